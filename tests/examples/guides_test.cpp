#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace ombrix::tests {
namespace {

namespace fs = std::filesystem;
const fs::path GUIDES = OMBRIX_SOURCE_DIR "/docs/guides";
const fs::path PROGRAMS = OMBRIX_SOURCE_DIR "/examples/guides";

/// A file's lines without their indentation.
std::string flushLeft(const fs::path& path) {
    std::ifstream in(path);
    std::string text;
    for (std::string line; std::getline(in, line);) {
        line.erase(0, line.find_first_not_of(' '));
        text += line + '\n';
    }
    return text;
}

TEST(Guides, ShowTheCodeOfTheirPrograms) {
    std::size_t blocks = 0;
    for (const fs::directory_entry& program : fs::directory_iterator(PROGRAMS)) {
        if (program.path().extension() == ".cpp") {
            EXPECT_TRUE(fs::exists(GUIDES / program.path().stem().concat(".md"))) << program.path();
        }
    }
    for (const fs::directory_entry& guide : fs::directory_iterator(GUIDES)) {
        const std::string name = guide.path().stem().string();
        std::istringstream lines(flushLeft(guide.path()));
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind("```", 0) != 0) {
                continue;
            }
            const std::string source = line == "```glsl" ? "depth_lookup.glsl" : name + ".cpp";
            std::string block;
            for (std::string inside; std::getline(lines, inside) && inside != "```";) {
                block += inside + '\n';
            }
            EXPECT_NE(flushLeft(PROGRAMS / source).find(block), std::string::npos)
                << name << " shows what is not in " << source << ":\n"
                << block;
            ++blocks;
        }
    }
    EXPECT_GT(blocks, 20u);
}

}  // namespace
}  // namespace ombrix::tests
