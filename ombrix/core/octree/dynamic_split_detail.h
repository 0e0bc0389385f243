#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <ombrix/core/octree/octree.h>
#include <ombrix/core/octree/octree_converter.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/services/work_detail.h>

namespace ombrix::core::detail {

/// Leaves of a growing tree lie at this depth at most.
inline constexpr unsigned int DEEPEST_LEAF = 20;

/// Points on their way to their leaves, as a run of pairs (index, code) that are sorted by code.
struct Arrivals {
    using Pair = OctreeConverter::Pair;

    const PointCloud* cloud = nullptr;   ///< all attributes as long as the positions, or empty
    Vector3d offset = Vector3d::Zero();  ///< added to a position, it is relative to the tree's origin
    const Pair* first = nullptr;
    const Pair* last = nullptr;  ///< one past the end

    [[nodiscard]] std::size_t size() const { return static_cast<std::size_t>(last - first); }
    [[nodiscard]] Arrivals part(const Pair* from, const Pair* to) const { return {cloud, offset, from, to}; }
};

/// Cuts the arrivals in a node of a depth, 20 at most, by octants.
/// @return  where each octant's pairs end.
[[nodiscard]] std::array<const Arrivals::Pair*, 8> octantEnds(const Arrivals& arrivals, unsigned int depth);

/// Appends the arrivals, relative to `corner`, which is relative to the tree's origin. All attributes of
/// `target` stay as long as its positions.
void append(PointCloud& target, const Arrivals& arrivals, const Vector3d& corner);

/// A node that a leaf is split into.
struct SplitNode {
    std::uint64_t key;
    std::uint8_t children;
    bool added;                         ///< the tree did not have it
    std::shared_ptr<PointCloud> cloud;  ///< relative to the node's lower corner; empty for inner nodes
    Octree::Node* node;                 ///< once it is in the tree
};

/// A leaf to split.
struct SplitLeaf {
    std::uint64_t key;
    const PointCloud* cloud;  ///< relative to the leaf's lower corner; null for none
    Arrivals arrivals;        ///< what comes to it, too
};

/// Buffers that are reused from one split to the next.
struct SplitScratch {
    std::vector<Arrivals::Pair> pairs;
    std::vector<Arrivals::Pair> moved;
};

/// Splits a leaf by octants until no part above depth 20 has more than `maxPoints` points.
///
/// @param levels  deepest level below the leaf to split to, at least 1.
/// @param out     receives the leaf itself as an inner node, then all nodes below it, parents first.
/// @param work    null unless somebody watches.
void splitLeaf(const Octree& octree, const SplitLeaf& leaf, std::uint64_t maxPoints, unsigned int levels,
               SplitScratch& scratch, std::vector<SplitNode>& out, Work* work);

}  // namespace ombrix::core::detail
