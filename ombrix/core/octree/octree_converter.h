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
};

}  // namespace ombrix::core
