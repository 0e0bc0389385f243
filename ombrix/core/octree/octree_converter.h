#pragma once

#include <cstdint>
#include <utility>

#include <tbb/cache_aligned_allocator.h>
#include <tbb/concurrent_vector.h>

#include <ombrix/core/core_export.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/points/point_cloud.h>

namespace ombrix::core {

/// Builds full octrees out of sorted codes, and converts between full and nested octrees.
class OMBRIX_CORE_API OctreeConverter {
public:
    /// A run of the sorted pairs that becomes the sub-tree under one node.
    struct NodeChunk {
        std::uint64_t first;  ///< position of the run's first pair
        std::uint64_t last;   ///< position of the run's last pair, included
        std::uint64_t key;    ///< node key of the run, 1 for the root
        std::uint32_t depth;  ///< depth of the node, 0 for the root
    };

    /// (index of a point, its 21-level Morton code).
    using Pair = std::pair<std::uint64_t, std::uint64_t>;
    /// (index of a point, its 21-level Morton code) pairs.
    using PairVector = tbb::concurrent_vector<Pair, tbb::cache_aligned_allocator<Pair>>;

    /// Code bits of depth 0; shifted right by 3 * depth, those of a deeper level.
    static constexpr std::uint64_t MASK_EQUAL = 0x7000000000000000;

    /// Cuts a run of sorted codes into nodes: inner nodes with an empty cloud, and leaves that receive their
    /// points in the order of the pairs.
    ///
    /// A run of at most `threshold` points, or one at depth 21, becomes a leaf. Every node gets its children
    /// mask and the size 1 (points are counted by the node's cloud). A node that has a cloud keeps its
    /// points and receives the new ones behind them. Box, type and scalar range of `out` are the caller's.
    /// The caller's thread cuts the tree and writes its nodes; the leaves' points are copied on several.
    ///
    /// @param cloud      source, positions relative to the tree's origin.
    /// @param pairs      (index, code) pairs sorted by code.
    /// @param chunk      the run, normally (0, n - 1, 1, 0); a last before the first, also by wrapping
    ///                   around, is an empty run and builds nothing.
    /// @param threshold  largest number of points of a leaf above depth 21.
    /// @param flag       passed on as `positionsOnly` when a leaf receives its points.
    static void recursiveBuild(const PointCloud& cloud, const PairVector& pairs, const NodeChunk& chunk,
                               unsigned int threshold, bool flag, Octree& out);

    // The conversions lose no point. Nodes with flags value 8 are read relative to their corner; fields that
    // only some clouds hold are zero elsewhere; clouds that `node_pc` does not give are skipped. With `flag`,
    // fields are left behind (`positionsOnly`). A tree may be converted into itself.

    /// Builds the full octree of a nested tree's points: `full` becomes it, with the nested tree's box and
    /// scalar range.
    ///
    /// @param depth      deepest nodes to take points from, negative for all, so that full.size() is
    ///                   nested.size(depth).
    /// @param threshold  as in `recursiveBuild`.
    static void nestedOctree2FullOctree(Octree& nested, int depth, unsigned int threshold, Octree& full,
                                        bool flag);

    /// Builds the nested octree of a full tree's points: `nested` becomes it, with the full tree's box.
    /// Points are inserted node by node in the order of the keys, with the fields that nested builders keep.
    static void fullOctreeToNestedOctree(Octree& full, Octree& nested);

    /// Builds the part of the full octree that lies under one cell, out of the points of the branch under
    /// `key` and of those that proper ancestors hold in the cell.
    ///
    /// `partial` becomes that sub-tree under the keys of the whole tree, with nothing above `key`; it gets
    /// the box and type of `full`, which is only read, and the scalar range of its points. Without `key` in
    /// `nested`, or without points, it has no nodes.
    static void nestedOctreeNode2PartialFullOctree(Octree& nested, std::uint64_t key, Octree& full,
                                                   unsigned int threshold, Octree& partial, bool flag);

    /// Appends the points of one cell of a front to `out`, relative to the tree's origin: those that proper
    /// ancestors hold in the cell, root first, then those of the node itself, but none from below it.
    ///
    /// An inner node may hold points in octants without a child, which belong to no node of a front. The key
    /// of such a child gives them: over `front(d)` and the absent children of the nodes above it, every point
    /// of depth <= d comes exactly once.
    static void mergeFrontNodeWithAncestors(Octree& nested, std::uint64_t frontKey, PointCloud& out,
                                            bool flag);

    /// Replaces the sub-tree of `full` under `key` by that of `partial`, whose clouds are shared afterwards.
    ///
    /// Missing ancestors are created as `recursiveBuild` makes them, masks are set up to the root, and the
    /// scalar range is widened. An ancestor that is a leaf with points is split along the path first: its
    /// points in the cell are superseded, the others go to sibling leaves. A `partial` without `key` only
    /// removes the branch. Doing it twice changes nothing more.
    static void updateFullOctree(const Octree& partial, std::uint64_t key, Octree& full);
};

}  // namespace ombrix::core
