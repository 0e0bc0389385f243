#include <ombrix/core/services/hashes.h>

#include <gtest/gtest.h>

#include <string>

#include "temp_file.h"

namespace ombrix::core {
namespace {

/// The hash fed with one byte after the other, in 128-bit arithmetic cut to 64 bits.
class ByteHash {
public:
    ByteHash(std::uint64_t length, std::uint64_t seed) : state_(seed ^ times(length, M)) {}

    void feed(unsigned char byte) {
        word_ += std::uint64_t{byte} << shift_;
        shift_ += 8;
        if (shift_ == 64)
            absorb();
    }
    std::uint64_t finish() {
        if (shift_ > 0)
            absorb();
        return mixed(state_);
    }

private:
    static constexpr std::uint64_t M = 0x880355f21e6d1965;
    __extension__ using Wide = unsigned __int128;

    static std::uint64_t times(std::uint64_t a, std::uint64_t b) {
        return static_cast<std::uint64_t>(Wide{a} * b % (Wide{1} << 64));
    }
    static std::uint64_t mixed(std::uint64_t v) {
        const std::uint64_t product = times(v ^ (v / (1u << 23)), 0x2127599bf4325c37);
        return product ^ (product / (std::uint64_t{1} << 47));
    }
    void absorb() {
        state_ = times(state_ ^ mixed(word_), M);
        word_ = 0;
        shift_ = 0;
    }

    std::uint64_t state_;
    std::uint64_t word_ = 0;
    unsigned shift_ = 0;
};

TEST(FastHash, AgreesWithABytewiseHashAtEveryLengthAndAlignment) {
    const test::Bytes bytes = test::someBytes(208);
    for (std::uint64_t first = 0; first < 8; ++first)
        for (std::uint64_t length = 0; length <= 200; ++length)
            for (const std::uint64_t seed :
                 {std::uint64_t{0}, std::uint64_t{0x9e3779b97f4a7c15} * (length + 1)}) {
                ByteHash expected(length, seed);
                for (std::uint64_t i = 0; i < length; ++i)
                    expected.feed(bytes[first + i]);
                ASSERT_EQ(fasthash64(bytes.data() + first, length, seed), expected.finish()) << length;
            }
}

TEST(FastHash, GivesTheValuesThatCallersHaveStored) {
    struct Case {
        std::string bytes;
        std::uint64_t seed, hash64;
        std::uint32_t hash32;  // with the low half of the seed
    };
    test::Bytes all(256);
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i] = static_cast<unsigned char>(i);
    // Computed with Python's integers; the first two follow from mix(0) = 0 and mix(1) = k ^ (k >> 47).
    for (const Case& c : {
             Case{"", 0, 0, 0},
             Case{"", 1, 0x2127599bf4321e79, 0xd30ac4de},
             Case{std::string("\1\0\0\0\0\0\0\0", 8), 0, 0x0a65abc2803efec6, 0x75d95304},
             Case{"a", 0, 0x527c05aa961741c6, 0x439b3c1c},
             Case{"point cloud", 42, 0xedfb7c7b546ee9d7, 0x66736d5c},
             Case{std::string(15, '\xff'), 0x0123456789abcdef, 0x55948f9edd44084a, 0xf4753102},
             Case{std::string(all.begin(), all.end()), ~std::uint64_t{0}, 0xf7921355e5646ecd, 0x04a6f97a},
         }) {
        EXPECT_EQ(fasthash64(c.bytes.data(), c.bytes.size(), c.seed), c.hash64) << c.bytes;
        EXPECT_EQ(fasthash32(c.bytes.data(), c.bytes.size(), static_cast<std::uint32_t>(c.seed)), c.hash32);
    }
    EXPECT_EQ(::fasthash64(nullptr, 0, 0), 0u);
}

}  // namespace
}  // namespace ombrix::core
