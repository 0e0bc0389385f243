#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace ombrix::test {

/// A path of its own that is removed at the end, with whatever stands there.
class TempPath {
public:
    TempPath()
        : path_((std::filesystem::temp_directory_path() / ("ombrix" + std::to_string(std::random_device{}())))
                    .string()) {}
    /// Writes a file of these bytes.
    template <class Bytes>
    explicit TempPath(const Bytes& content) : TempPath() {
        std::ofstream(path_, std::ios::binary)
            .write(reinterpret_cast<const char*>(content.data()),
                   static_cast<std::streamsize>(content.size()));
    }
    TempPath(const TempPath&) = delete;
    TempPath& operator=(const TempPath&) = delete;
    ~TempPath() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    [[nodiscard]] const std::string& str() const { return path_; }
    [[nodiscard]] std::string content() const {
        std::ifstream file(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::string path_;
};

}  // namespace ombrix::test
