#pragma once

#include <cstdint>
#include <limits>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/node_frame_detail.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/types.h>

namespace ombrix::core::detail {

/// Where the points of a node and all below it can be, relative to the tree's origin.
struct OpenCube {
    Vector3d lower;
    Vector3d upper;
};

/// How far beyond its cube's faces rounding can leave a point.
[[nodiscard]] inline double cubeSlack(const Octree& octree) {
    return static_cast<double>(octree.extend()) * 0x1p-22;
}

/// The node's cube with its slack, open to the outside where it lies at the border of the root.
[[nodiscard]] inline OpenCube openCube(const Octree& octree, std::uint64_t key) {
    constexpr double INFINITE = std::numeric_limits<double>::infinity();
    const unsigned int depth = node_depth(key);
    const std::uint32_t last = (1u << depth) - 1;
    std::uint32_t cell[3];
    morton3d<std::uint64_t>(key ^ std::uint64_t{1} << (3 * depth)).decode(cell[0], cell[1], cell[2]);
    const double edge = static_cast<double>(octree.extend()) / static_cast<double>(1u << depth);
    const double slack = cubeSlack(octree);
    OpenCube cube;
    for (int axis = 0; axis < 3; ++axis) {
        cube.lower[axis] = cell[axis] == 0 ? -INFINITE : cell[axis] * edge - slack;
        cube.upper[axis] = cell[axis] == last ? INFINITE : (cell[axis] + 1.0) * edge + slack;
    }
    return cube;
}

/// Whether the node has points that are not held.
[[nodiscard]] inline bool lacksCloud(const Octree::Node& node) {
    return !node.pc && node.size > 0;
}

/// The offset of a node's positions, in double.
[[nodiscard]] inline Vector3d pointOffset(const Octree& octree, const Octree::Node& node) {
    return positionOffset(octree, node).cast<double>();
}

}  // namespace ombrix::core::detail
