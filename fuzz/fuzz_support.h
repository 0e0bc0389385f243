#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <limits>
#include <string>
#include <vector>

#include <tbb/global_control.h>

#include <ombrix/core/points/point_cloud.h>

namespace ombrix::fuzz {

/// Ends the run as a find unless the condition holds.
inline void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "BROKEN: %s\n", what);
        std::abort();
    }
}

/// To be called once before the first input: one worker, so that a find can be repeated, and nothing of what
/// the library prints.
inline void quietSingleThread() {
    static const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, 1);
    std::cout.setstate(std::ios::badbit);
}

/// Takes values off an input; what is used up reads as zeros.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : at_(data), left_(size) {}

    [[nodiscard]] bool empty() const { return left_ == 0; }

    template <class T>
    T take() {
        unsigned char bytes[sizeof(T)] = {};
        const std::size_t n = left_ < sizeof(T) ? left_ : sizeof(T);
        std::memcpy(bytes, at_, n);
        at_ += n;
        left_ -= n;
        return std::bit_cast<T>(bytes);
    }
    /// 0 to n - 1, of one byte.
    unsigned int below(unsigned int n) { return take<std::uint8_t>() % n; }
    bool flag() { return (take<std::uint8_t>() & 1) != 0; }

    /// Any value: small steps, cell corners, specials and raw bits take turns.
    float number() {
        static constexpr float SPECIALS[] = {0.0f,
                                             -0.0f,
                                             1.0f,
                                             -1.0f,
                                             1e30f,
                                             -1e30f,
                                             1e-45f,
                                             1.17549435e-38f,
                                             3.4028235e38f,
                                             -3.4028235e38f,
                                             0.99999994f,
                                             16777216.0f,
                                             std::numeric_limits<float>::infinity(),
                                             -std::numeric_limits<float>::infinity(),
                                             std::numeric_limits<float>::quiet_NaN(),
                                             8388607.5f};
        switch (below(4)) {
            case 0:
                return static_cast<float>(take<std::int8_t>()) / 16.0f;
            case 1:
                return static_cast<float>(take<std::uint16_t>()) / 65536.0f;
            case 2:
                return SPECIALS[below(16)];
            default:
                return take<float>();
        }
    }
    core::Vector3f vector() {
        const float x = number();
        const float y = number();
        return {x, y, number()};
    }

private:
    const std::uint8_t* at_;
    std::size_t left_;
};

/// At most `most` points with scalars that number them from `firstId` on, and now and then colours and
/// normals.
inline core::PointCloud cloudOf(Input& input, unsigned int most, std::uint64_t firstId) {
    core::PointCloud cloud;
    const unsigned int n = input.below(most + 1);
    const unsigned int form = input.below(8);
    for (unsigned int i = 0; i < n && !input.empty(); ++i) {
        cloud.positions().push_back(form == 7 && i > 0 ? cloud.positions()[0] : input.vector());
        cloud.scalars().push_back(static_cast<float>(firstId + i));
    }
    if ((form & 1) != 0) {
        cloud.colors().resize(cloud.size(), core::ColorRGB(1, 2, 3));
    }
    if ((form & 2) != 0) {
        cloud.normals().resize(cloud.size(), core::Vector3f(0, 0, 1));
    }
    return cloud;
}

inline bool sameBits(float a, float b) {
    return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b) ||
           (std::isnan(a) && std::isnan(b));
}

template <class Vector>
bool sameBits(const std::vector<Vector>& a, const std::vector<Vector>& b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        for (int axis = 0; axis < 3; ++axis) {
            if (!sameBits(a[i][axis], b[i][axis])) {
                return false;
            }
        }
    }
    return true;
}

/// A file of the process's own, overwritten for every input; TMPDIR says where.
class InputFile {
public:
    explicit InputFile(const std::string& ending)
        : path_((std::filesystem::temp_directory_path() / ("fuzz" + std::to_string(::getpid()) + ending))
                    .string()),
          descriptor_(::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        require(descriptor_ >= 0, "the input file can be made");
    }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    ~InputFile() {
        ::close(descriptor_);
        ::unlink(path_.c_str());
    }
    const std::string& write(const std::uint8_t* data, std::size_t size) {
        require(::ftruncate(descriptor_, static_cast<off_t>(size)) == 0 &&
                    ::pwrite(descriptor_, data, size, 0) == static_cast<ssize_t>(size),
                "the input file can be written");
        return path_;
    }
    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_;
    int descriptor_;
};

}  // namespace ombrix::fuzz
