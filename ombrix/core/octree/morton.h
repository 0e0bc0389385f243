#pragma once

#include <bit>
#include <cstdint>

namespace ombrix::core {

namespace detail {

/// Moves bit i of v to bit 3*i for i in [0, 20]; higher bits of v are dropped.
[[nodiscard]] constexpr std::uint64_t spread3(std::uint64_t v) noexcept {
    v &= 0x1fffff;
    v = (v | v << 32) & 0x001f00000000ffff;
    v = (v | v << 16) & 0x001f0000ff0000ff;
    v = (v | v << 8) & 0x100f00f00f00f00f;
    v = (v | v << 4) & 0x10c30c30c30c30c3;
    v = (v | v << 2) & 0x1249249249249249;
    return v;
}

/// Moves bit 3*i of v to bit i for i in [0, 20]; the other bits of v are dropped.
[[nodiscard]] constexpr std::uint64_t compact3(std::uint64_t v) noexcept {
    v &= 0x1249249249249249;
    v = (v | v >> 2) & 0x10c30c30c30c30c3;
    v = (v | v >> 4) & 0x100f00f00f00f00f;
    v = (v | v >> 8) & 0x001f0000ff0000ff;
    v = (v | v >> 16) & 0x001f00000000ffff;
    v = (v | v >> 32) & 0x00000000001fffff;
    return v;
}

static_assert(spread3(0b1011) == 0b001'000'001'001);
static_assert(compact3(spread3(0x1fffff)) == 0x1fffff);

}  // namespace detail

/// Interleaved cell coordinates: a Morton code (Z-order), x highest in each triple of bits.
///
///     bit   62 61 60 | 59 58 57 | ... | 2  1  0
///           x  y  z  | x  y  z  | ... | x  y  z
///
/// Bit k of x is bit 3k+2 of the key, bit k of y bit 3k+1, bit k of z bit 3k, for k in [0, 20].
/// Source: Morton, "A computer oriented geodetic data base", IBM 1966.
template <class T>
class morton3d {
public:
    T key = 0;  ///< the code

    constexpr morton3d() = default;
    /// The code itself.
    constexpr explicit morton3d(T code) noexcept : key(code) {}
    /// Cell coordinates, each in [0, 2^21 - 1]; higher bits are dropped.
    constexpr morton3d(std::uint32_t x, std::uint32_t y, std::uint32_t z) noexcept
        : key(static_cast<T>(detail::spread3(x) << 2 | detail::spread3(y) << 1 | detail::spread3(z))) {}

    /// Writes the cell coordinates.
    template <class Coordinate>
    constexpr void decode(Coordinate& x, Coordinate& y, Coordinate& z) const noexcept {
        x = static_cast<Coordinate>(detail::compact3(key >> 2));
        y = static_cast<Coordinate>(detail::compact3(key >> 1));
        z = static_cast<Coordinate>(detail::compact3(key));
    }

    friend constexpr bool operator==(const morton3d&, const morton3d&) = default;
    friend constexpr auto operator<=>(const morton3d&, const morton3d&) = default;
};

/// Number of levels below the root that a point's code resolves.
inline constexpr unsigned int MORTON_LEVELS = 21;

// A node key is the first 3 * depth bits of the codes of all points inside, behind a leading 1:
// root 1, its children 8 to 15, theirs 64 to 127, and so on.

/// Depth of a node: floor(log2(key)) / 3, the root's is 0. A key of 0 counts as depth 21.
[[nodiscard]] constexpr unsigned int node_depth(std::uint64_t key) noexcept {
    return static_cast<unsigned int>(63 - (std::countl_zero(key) & 63)) / 3;
}

/// Key of the child in an octant, 0 to 7 (4 * upper x + 2 * upper y + upper z). A node of depth 21 has no
/// children: the result would wrap around.
[[nodiscard]] constexpr std::uint64_t child_key(std::uint64_t key, unsigned int octant) noexcept {
    return key << 3 | octant;
}

/// Key of the parent; 0 for the root.
[[nodiscard]] constexpr std::uint64_t parent_key(std::uint64_t key) noexcept {
    return key >> 3;
}

/// Key of the node of a depth, 0 to 21, that contains the points with this 21-level code.
[[nodiscard]] constexpr std::uint64_t node_key(std::uint64_t code, unsigned int depth) noexcept {
    return std::uint64_t{1} << (3 * depth) | code >> (3 * (MORTON_LEVELS - depth));
}

}  // namespace ombrix::core
