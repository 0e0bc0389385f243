#include <cstdlib>

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

}  // namespace ombrix::tests
