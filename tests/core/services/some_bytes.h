#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "tests/support/temp_path.h"

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

}  // namespace ombrix::test
