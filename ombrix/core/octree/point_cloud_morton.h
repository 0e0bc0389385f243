#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include <ombrix/core/core_export.h>
#include <ombrix/core/octree/octree_converter.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/types.h>

namespace ombrix::core {

/// A linear octree: a copy of a cloud in Morton order with its sorted codes.
///
/// Every node of every depth is one contiguous run of points, found by binary search; no node is stored.
/// Points with equal codes keep the order of the source cloud.
class OMBRIX_CORE_API PointCloudMorton {
public:
    /// Keys, sorts and copies the points on several threads.
    ///
    /// @param cloud   source, stays as it is; positions are copied as they are.
    /// @param origin  lower corner of the root box, in the frame of the positions.
    /// @param extend  edge of the root box. Points outside are clamped to it for their code only.
    PointCloudMorton(const PointCloud& cloud, const Vector3f& origin, float extend);

    /// Number of points.
    [[nodiscard]] std::uint64_t size() const { return codes_.size(); }
    /// The points in ascending order of their codes, with colours, scalars and fields.
    [[nodiscard]] const PointCloud& cloud() const { return cloud_; }
    /// 21-level codes of `cloud()`'s points, ascending.
    [[nodiscard]] const std::vector<std::uint64_t>& codes() const { return codes_; }
    /// For each point of `cloud()` its index in the source cloud.
    [[nodiscard]] const std::vector<std::uint64_t>& permutation() const { return permutation_; }

    /// Positions [first, last) of the node's points in `cloud()`. For a node without points both are where
    /// its points would stand. `range(1)` is everything.
    [[nodiscard]] std::pair<std::uint64_t, std::uint64_t> range(std::uint64_t key) const;

    /// Keys of the nodes of a depth (at most 21) that hold points, ascending.
    [[nodiscard]] std::vector<std::uint64_t> keys(unsigned int depth) const;

    /// (position in `cloud()`, code) pairs: what `OctreeConverter::recursiveBuild` takes beside `cloud()`.
    /// A tree's positions are relative to its origin: build one from a cloud that is, with origin zero.
    [[nodiscard]] OctreeConverter::PairVector pairs() const;

private:
    PointCloud cloud_;
    std::vector<std::uint64_t> codes_;
    std::vector<std::uint64_t> permutation_;
};

}  // namespace ombrix::core
