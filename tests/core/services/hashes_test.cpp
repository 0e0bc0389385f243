#include <ombrix/core/services/hashes.h>

#include <gtest/gtest.h>

#include <iterator>
#include <numeric>
#include <string>

namespace ombrix::core {
namespace {

// Each hash is the seed of the next one; the last is computed with Python's integers.
TEST(FastHash, TakesEveryLengthAndAlignment) {
    unsigned char bytes[256];
    std::iota(std::begin(bytes), std::end(bytes), static_cast<unsigned char>(0));
    std::uint64_t hash = 0;
    for (std::uint64_t first = 0; first < 8; ++first)
        for (std::uint64_t length = 0; length <= 200; ++length)
            hash = fasthash64(bytes + first, length, hash);
    EXPECT_EQ(hash, 0x22eb6df41cfc91afu);
}

TEST(FastHash, GivesTheValuesThatCallersHaveStored) {
    struct Case {
        std::string bytes;
        std::uint64_t seed, hash64;
        std::uint32_t hash32;  // with the low half of the seed
    };
    std::string all(256, '\0');
    std::iota(all.begin(), all.end(), '\0');
    // Computed with Python's integers; the first two follow from mix(0) = 0 and mix(1) = k ^ (k >> 47).
    for (const Case& c : {
             Case{"", 0, 0, 0},
             Case{"", 1, 0x2127599bf4321e79, 0xd30ac4de},
             Case{std::string("\1\0\0\0\0\0\0\0", 8), 0, 0x0a65abc2803efec6, 0x75d95304},
             Case{"a", 0, 0x527c05aa961741c6, 0x439b3c1c},
             Case{"point cloud", 42, 0xedfb7c7b546ee9d7, 0x66736d5c},
             Case{std::string(15, '\xff'), 0x0123456789abcdef, 0x55948f9edd44084a, 0xf4753102},
             Case{all, ~std::uint64_t{0}, 0xf7921355e5646ecd, 0x04a6f97a},
         }) {
        EXPECT_EQ(fasthash64(c.bytes.data(), c.bytes.size(), c.seed), c.hash64) << c.bytes;
        EXPECT_EQ(fasthash32(c.bytes.data(), c.bytes.size(), static_cast<std::uint32_t>(c.seed)), c.hash32);
    }
    EXPECT_EQ(::fasthash64(nullptr, 0, 0), 0u);
}

}  // namespace
}  // namespace ombrix::core
