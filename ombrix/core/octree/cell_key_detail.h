#pragma once

#include <cstdint>

#include <ombrix/core/octree/morton.h>

namespace ombrix::core::detail {

/// c / extend clamped to [0, the second number below 1], so that an upper face falls into the last cell; NaN
/// gives 0.
template <class T>
[[nodiscard]] inline T relative(T c, T extend) {
    constexpr T LAST = sizeof(T) == sizeof(float) ? T(0.99999988079071044921875) : T(0.9999999999999998);
    const T q = c / extend;
    const T low = q >= T{0} ? q : T{0};
    return low > LAST ? LAST : low;
}

/// What `OctreeFactory::morton_key` and `morton_keyd` compute, for loops over many points.
template <class Vector>
[[nodiscard]] inline morton3d<std::uint64_t> cellKey(const Vector& p, typename Vector::Scalar extend) {
    using Scalar = typename Vector::Scalar;
    constexpr Scalar CELLS = 1u << MORTON_LEVELS;
    return {static_cast<std::uint32_t>(relative(p.x(), extend) * CELLS),
            static_cast<std::uint32_t>(relative(p.y(), extend) * CELLS),
            static_cast<std::uint32_t>(relative(p.z(), extend) * CELLS)};
}

}  // namespace ombrix::core::detail
