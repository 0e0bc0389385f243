#pragma once

#include <cstdint>
#include <vector>

#include <ombrix/core/core_export.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/points/point.h>

namespace ombrix::core {

/// Exact nearest neighbours among the points of an octree of any kind.
///
/// Visits nodes by the distance of their cubes, nearest first, until no cube can hold a nearer point, so a
/// query touches few leaves of a full tree; in a nested tree it reads the whole cloud of every ancestor.
/// Outermost cubes count as open to the outside, because builders clamp points beyond the root box into
/// them. Keeps a reference to the tree, which must outlive it and may change between queries. Queries may
/// run at once as long as all clouds are held.
class OMBRIX_CORE_API kNNSearch {
public:
    /// Only takes the tree's address.
    explicit kNNSearch(Octree& octree) : octree_(&octree) {}

    /// Finds the k points nearest to p, or all when there are fewer.
    ///
    /// Nodes without a cloud are asked for it through `Octree::node_pc`, which derived trees may page in. A
    /// node that stays without one although its size says that it has points is skipped.
    ///
    /// @param p      relative to the tree's origin. When it is not finite, nothing is found.
    /// @param depth  deepest nodes to search, the root's depth is 0; negative for all.
    /// @param out    becomes the points found, ascending by (distance, node key, index in the node's
    ///               cloud). `Point::index` is the index in the node's cloud, positions are relative to the
    ///               tree's origin. Points with coordinates that are not finite are never found.
    /// @return       number of nodes skipped; the result is exact when it is 0.
    std::uint64_t search(const Vector3f& p, int depth, unsigned int k, std::vector<Point>& out) const;
    /// The same; `keys` becomes the key of each point's node.
    std::uint64_t search(const Vector3f& p, int depth, unsigned int k, std::vector<Point>& out,
                         std::vector<std::uint64_t>& keys) const;

private:
    std::uint64_t search(const Vector3f& p, int depth, unsigned int k, std::vector<Point>& out,
                         std::vector<std::uint64_t>* keys) const;

    Octree* octree_;
};

}  // namespace ombrix::core
