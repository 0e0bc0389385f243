#include "program.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>
#include <png.h>
#include <sys/wait.h>

namespace ombrix::tests {
namespace {

std::string content(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

std::filesystem::path ownPath(const std::string& kind) {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    return std::filesystem::path(testing::TempDir()) /
           (std::string("ombrix_") + test->test_suite_name() + "_" + test->name() + "_" + kind);
}

}  // namespace

Outcome run(const std::string& program, const std::string& arguments) {
    const auto out = ownPath("out");
    const auto err = ownPath("err");
    const std::string command = program + " " + arguments + " >" + out.string() + " 2>" + err.string();
    const int status = std::system(command.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, content(out), content(err)};
}

std::filesystem::path emptyFolder() {
    const auto folder = ownPath("folder");
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    return folder;
}

examples::Image readPng(const std::filesystem::path& path) {
    png_image header{};
    header.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&header, path.c_str()) == 0) {
        ADD_FAILURE() << path << ": " << header.message;
        return {};
    }
    header.format = PNG_FORMAT_RGB;
    examples::Image image(static_cast<int>(header.width), static_cast<int>(header.height));
    png_image_finish_read(&header, nullptr, image.rgb.data(), 0, nullptr);
    return image;
}

}  // namespace ombrix::tests
