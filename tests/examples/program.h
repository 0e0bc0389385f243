#pragma once

#include <filesystem>
#include <string>

#include <examples/common/image.h>

namespace ombrix::tests {

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

/// Runs a shell command line, with the words of `program` and `arguments` as they stand.
Outcome run(const std::string& program, const std::string& arguments);

/// An empty folder of the running test's own.
std::filesystem::path emptyFolder();

/// The pixels of a PNG file; fails the test and gives an empty picture when it cannot be read.
examples::Image readPng(const std::filesystem::path& path);

}  // namespace ombrix::tests
