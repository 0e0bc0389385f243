#pragma once

#include <cstdint>

#include <ombrix/core/octree/octree.h>

namespace ombrix::core::detail {

/// Flags value of nodes whose positions are relative to the node's lower corner.
inline constexpr std::uint8_t NODE_RELATIVE = 8;

/// Lower corner of the node's cube, relative to the tree's origin.
[[nodiscard]] inline Vector3f nodeCorner(const Octree& octree, std::uint64_t key) {
    Octree::Node node;
    node.key = key;
    return octree.node_origin(node);
}

/// What has to be added to a node's positions to make them relative to the tree's origin.
[[nodiscard]] inline Vector3f positionOffset(const Octree& octree, const Octree::Node& node) {
    if ((node.flags & NODE_RELATIVE) != 0) {
        return octree.node_origin(node);
    }
    return Vector3f::Zero();
}

}  // namespace ombrix::core::detail
