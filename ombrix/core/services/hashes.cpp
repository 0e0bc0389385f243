#include <ombrix/core/services/hashes.h>

#include <bit>
#include <cstring>

namespace {

constexpr std::uint64_t BLOCK_FACTOR = 0x880355f21e6d1965u;
constexpr std::uint64_t MIX_FACTOR = 0x2127599bf4325c37u;

constexpr std::uint64_t mix(std::uint64_t h) noexcept {
    h ^= h >> 23;
    h *= MIX_FACTOR;
    h ^= h >> 47;
    return h;
}

/// The next count (1 to 8) bytes as a little-endian word whose missing high bytes are zero.
std::uint64_t littleEndianWord(const unsigned char* bytes, std::uint64_t count) noexcept {
    std::uint64_t word = 0;
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(&word, bytes, count);
    } else {
        for (std::uint64_t i = 0; i < count; ++i)
            word |= std::uint64_t{bytes[i]} << (8 * i);
    }
    return word;
}

}  // namespace

std::uint64_t fasthash64(const void* buf, std::uint64_t len, std::uint64_t seed) noexcept {
    const auto* bytes = static_cast<const unsigned char*>(buf);
    std::uint64_t h = seed ^ (len * BLOCK_FACTOR);
    for (std::uint64_t blocks = len / 8; blocks > 0; --blocks, bytes += 8)
        h = (h ^ mix(littleEndianWord(bytes, 8))) * BLOCK_FACTOR;
    if (len % 8 > 0)
        h = (h ^ mix(littleEndianWord(bytes, len % 8))) * BLOCK_FACTOR;
    return mix(h);
}

std::uint32_t fasthash32(const void* buf, std::uint64_t len, std::uint32_t seed) noexcept {
    const std::uint64_t h = fasthash64(buf, len, seed);
    return static_cast<std::uint32_t>(h - (h >> 32));
}
