#pragma once

#include <algorithm>
#include <cstdint>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/nested_cell_map.h>
#include <ombrix/core/octree/octree_factory.h>
#include <ombrix/core/points/point.h>
#include <ombrix/core/types.h>

namespace ombrix::core::detail {

/// Position in double; a NaN counts as 0.
[[nodiscard]] inline Vector3d keyPosition(const Vector3f& p) noexcept {
    const auto value = [](float v) { return v == v ? static_cast<double>(v) : 0.0; };
    return {value(p.x()), value(p.y()), value(p.z())};
}

/// Cube of a node, relative to the root's origin, and its 128 x 128 x 128 cells.
class NodeCube {
public:
    NodeCube(std::uint64_t key, double rootEdge) noexcept {
        const unsigned int depth = node_depth(key);
        const std::uint64_t code = key ^ std::uint64_t{1} << (3 * depth);
        edge_ = rootEdge / static_cast<double>(std::uint64_t{1} << depth);
        min_ = Vector3d(static_cast<double>(compact3(code >> 2)), static_cast<double>(compact3(code >> 1)),
                        static_cast<double>(compact3(code))) *
               edge_;
        cell_ = edge_ * 0.0078125;
    }

    /// Cell coordinates of a position, not clamped.
    [[nodiscard]] Vector3d cells(const Vector3d& p) const noexcept { return (p - min_) / cell_; }

    /// Cell coordinates clamped to [0, 128 - 2^-23], so that the upper faces belong to the last cell.
    [[nodiscard]] Vector3d clampedCells(const Vector3d& p) const noexcept {
        constexpr double LAST = 128.0 - 0x1p-23;
        const auto clamp = [](double u) {
            const double atLeast0 = u > 0.0 ? u : 0.0;
            return atLeast0 < LAST ? atLeast0 : LAST;
        };
        const Vector3d u = cells(p);
        return {clamp(u.x()), clamp(u.y()), clamp(u.z())};
    }

    /// p clamped into the cube; the upper faces lie 2^-23 inside.
    [[nodiscard]] Vector3d clamped(const Vector3d& p) const noexcept {
        const auto clamp = [&](int axis) {
            return std::min(std::max(p[axis], min_[axis]), min_[axis] + edge_ - 0x1p-23);
        };
        return {clamp(0), clamp(1), clamp(2)};
    }

    /// Octant of a position by comparison with the cube's centre.
    [[nodiscard]] unsigned int octant(const Vector3d& p) const noexcept {
        const double half = edge_ * 0.5;
        const auto upper = [&](int axis) { return p[axis] >= min_[axis] + half ? 1u : 0u; };
        return upper(0) << 2 | upper(1) << 1 | upper(2);
    }

    /// Whether `clamped` leaves p as it is.
    [[nodiscard]] bool contains(const Vector3d& p) const noexcept {
        const auto inside = [&](int axis) {
            return static_cast<int>(p[axis] >= min_[axis]) &
                   static_cast<int>(p[axis] <= min_[axis] + edge_ - 0x1p-23);
        };
        return (inside(0) & inside(1) & inside(2)) != 0;
    }

private:
    Vector3d min_;
    double edge_;
    double cell_;
};

/// A position's place in the grid of a node.
struct GridCell {
    Vector3d at;      ///< clamped cell coordinates
    Vector3d center;  ///< of the cell that they lie in
    std::uint64_t key;
};

[[nodiscard]] inline GridCell gridCell(const NodeCube& cube, const Vector3d& p) noexcept {
    GridCell cell;
    cell.at = cube.clampedCells(p);
    const auto x = static_cast<std::int32_t>(cell.at.x());
    const auto y = static_cast<std::int32_t>(cell.at.y());
    const auto z = static_cast<std::int32_t>(cell.at.z());
    // NOLINTNEXTLINE(bugprone-misplaced-widening-cast): all three are below 128
    cell.key = static_cast<std::uint64_t>((z * 128 + y) * 128 + x);
    cell.center = Vector3d(x, y, z) + Vector3d::Constant(0.5);
    return cell;
}

/// Whether a point in `cell` is nearer to the cell's centre than the point that holds the cell; not at equal
/// distances. The occupant's cell coordinates are not clamped.
[[nodiscard]] inline bool isNearer(const NodeCube& cube, const GridCell& cell,
                                   const Point& occupant) noexcept {
    const Vector3d old = cube.cells(keyPosition(occupant.position));
    return (cell.center - cell.at).squaredNorm() < (cell.center - old).squaredNorm();
}

/// Octant of the child of node `key` that a displaced point goes to.
///
/// It is the octant that the code of the point clamped into the cube has at the next level. For a position
/// inside, comparing with the centre gives just that: floats of 24 bits and the centre, of at most 45, are
/// apart by more than the rounding of the code's division.
[[nodiscard]] inline unsigned int octantBelow(const NodeCube& cube, std::uint64_t key, double rootEdge,
                                              const Vector3f& displaced) {
    const Vector3d p = keyPosition(displaced);
    const unsigned int depth = node_depth(key);
    if (cube.contains(p) || depth >= MORTON_LEVELS) {
        return cube.octant(p);
    }
    const std::uint64_t code = OctreeFactory::morton_keyd(cube.clamped(p), rootEdge).key;
    const std::uint64_t below = node_key(code, depth + 1);
    // A cube whose edge is near 2^-23, or a root beyond 2^29, is not resolved by the clamp
    return parent_key(below) == key ? static_cast<unsigned int>(below & 7) : cube.octant(p);
}

}  // namespace ombrix::core::detail
