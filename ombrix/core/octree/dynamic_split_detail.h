#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <ombrix/core/octree/octree.h>
#include <ombrix/core/points/point_cloud.h>

namespace ombrix::core::detail {

/// Leaves of a growing tree lie at this depth at most.
inline constexpr unsigned int DEEPEST_LEAF = 20;

/// Appends source[i] for `count` indices, each moved by `shift` (in double), so that all attributes of
/// `target` stay as long as its positions. The attributes of `source` must be as long as its positions, or
/// empty in the case of colours and scalars.
void appendPoints(PointCloud& target, const PointCloud& source, const std::uint64_t* indices,
                  std::size_t count, const Vector3d& shift);

/// A node that a leaf is split into.
struct SplitNode {
    std::uint64_t key;
    std::uint8_t children;
    std::shared_ptr<PointCloud> cloud;  ///< relative to the node's lower corner; empty for inner nodes
};

/// Splits the cloud of a leaf, relative to the leaf's lower corner, by octants until no part above depth 20
/// has more than `maxPoints` points.
///
/// @param levels  deepest level below the leaf to split to, at least 1.
/// @return        the leaf itself as an inner node, then all nodes below it, parents first.
[[nodiscard]] std::vector<SplitNode> splitLeaf(const Octree& octree, std::uint64_t key,
                                               const PointCloud& cloud, std::uint64_t maxPoints,
                                               unsigned int levels);

}  // namespace ombrix::core::detail
