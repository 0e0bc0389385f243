#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "program.h"

namespace ombrix::tests {

TEST(Quickstart, SelectsUpToItsBudget) {
    const Outcome outcome = run(QUICKSTART_PROGRAM, "");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    const long points = std::strtol(outcome.out.c_str(), nullptr, 10);
    EXPECT_GE(points, 200'000);
    EXPECT_LE(points, 201'000);  // by at most the 1000 points of the last leaf
}

std::string contentOf(const std::string& path) {
    std::ifstream in(std::string(OMBRIX_SOURCE_DIR "/") + path);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(Quickstart, IsTheProgramOfTheReadme) {
    const std::string program = contentOf("examples/quickstart/quickstart.cpp");
    ASSERT_NE(program.find("#include"), std::string::npos);
    EXPECT_NE(contentOf("README.md").find(program.substr(program.find("#include"))), std::string::npos);
}

}  // namespace ombrix::tests
