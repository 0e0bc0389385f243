#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <ombrix/io.h>

#include "tests/support/temp_path.h"

namespace ombrix::io::test {

/// A folder of its own for each test, removed with what is in it.
class IoTest : public ::testing::Test {
protected:
    IoTest() { std::filesystem::create_directories(folder_.str()); }

    [[nodiscard]] std::filesystem::path path(const std::string& name) const {
        return std::filesystem::path(folder_.str()) / name;
    }

    /// Writes a file and returns its path.
    std::filesystem::path file(const std::string& name, const std::string& content) const {
        std::filesystem::remove(path(name));  // some file systems flush what is overwritten
        std::ofstream(path(name), std::ios::binary) << content;
        return path(name);
    }

    [[nodiscard]] PointFile read(const std::string& name, const std::string& content,
                                 const ReadOptions& options = {}) const {
        return readPoints(file(name, content), options);
    }

    /// The message of the `Error` that reading gives, without the file's name; "" when it gives none.
    [[nodiscard]] std::string errorOf(const std::string& name, const std::string& content) const {
        const std::string where = file(name, content).string() + ": ";
        try {
            static_cast<void>(readPoints(where.substr(0, where.size() - 2)));
        } catch (const Error& error) {
            const std::string what = error.what();
            EXPECT_TRUE(what.starts_with(where)) << what;
            return what.substr(std::min(where.size(), what.size()));
        }
        return "";
    }

private:
    const ombrix::test::TempPath folder_;
};

inline std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Bytes put together value by value, in a byte order of choice.
class Bytes {
public:
    explicit Bytes(bool big = false) : big_(big) {}

    template <class T>
    Bytes& add(T value) {
        char raw[sizeof(T)];
        std::memcpy(raw, &value, sizeof value);
        if (big_ != (std::endian::native == std::endian::big)) {
            std::reverse(raw, raw + sizeof(T));
        }
        text.append(raw, sizeof(T));
        return *this;
    }
    /// Overwrites what stands at a place.
    template <class T>
    Bytes& set(std::size_t at, T value) {
        Bytes one(big_);
        text.replace(at, sizeof(T), one.add(value).text);
        return *this;
    }

    std::string text;

private:
    bool big_;
};

/// Point i in the world.
inline core::Vector3d world(const PointFile& file, std::size_t i) {
    return file.cloud.positions()[i].cast<double>() + file.shift;
}

inline std::vector<float> field(const PointFile& file, const std::string& name) {
    return file.cloud.fields().contains(name) ? file.cloud.fields().get<float>(name)->data()
                                              : std::vector<float>{};
}

}  // namespace ombrix::io::test
