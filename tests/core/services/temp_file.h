#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace ombrix::test {

using Bytes = std::vector<unsigned char>;

/// Bytes without a period that a page or a block of a file could hide.
inline Bytes someBytes(std::size_t n, std::uint32_t seed = 1) {
    std::mt19937 random(seed);
    Bytes bytes(n);
    for (auto& byte : bytes)
        byte = static_cast<unsigned char>(random());
    return bytes;
}

/// A path of its own that is removed at the end, with whatever stands there.
class TempPath {
public:
    TempPath()
        : path_((std::filesystem::temp_directory_path() / ("ombrix" + std::to_string(std::random_device{}())))
                    .string()) {}
    explicit TempPath(const Bytes& content) : TempPath() {
        std::ofstream out(path_, std::ios::binary);
        for (const unsigned char byte : content)
            out.put(static_cast<char>(byte));
    }
    TempPath(const TempPath&) = delete;
    TempPath& operator=(const TempPath&) = delete;
    ~TempPath() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    [[nodiscard]] const std::string& str() const { return path_; }

private:
    std::string path_;
};

}  // namespace ombrix::test
