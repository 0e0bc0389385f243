#pragma once

#include <cstdint>
#include <vector>

#include <ombrix/core/analysis/kd_index_detail.h>
#include <ombrix/core/types.h>

namespace ombrix::core::detail {

/// The indices of all points in the order of a Z-curve with 1024 cells along the longest side of their box;
/// points of one cell by index. Neighbours in space are near in this order, so that queries in it find their
/// part of an index in the cache.
[[nodiscard]] std::vector<std::uint64_t> spatialOrder(const std::vector<Vector3f>& points,
                                                      Work* work = nullptr);
/// The points in that order.
[[nodiscard]] std::vector<Vector3f> gathered(const std::vector<Vector3f>& points,
                                             const std::vector<std::uint64_t>& order, Work* work = nullptr);

/// A copy of positions in spatial order with an index over it. Neighbours come in the same order as from a
/// tree over the original: equal distances by original index.
template <class Index>
class BasicSpatialCopy {
public:
    explicit BasicSpatialCopy(const std::vector<Vector3f>& points, Work* work = nullptr)
        : order_(spatialOrder(points, work)),
          points_(gathered(points, order_, work)),
          index_(points_, work) {}

    [[nodiscard]] std::size_t size() const { return points_.size(); }
    [[nodiscard]] const std::vector<Vector3f>& points() const { return points_; }
    /// Original index of point i of the copy.
    [[nodiscard]] std::uint64_t original(std::size_t i) const { return order_[i]; }
    [[nodiscard]] const Index& index() const { return index_; }

    /// The k nearest points of the copy's point i, itself among them; returns their number.
    std::size_t knn(std::size_t i, std::size_t k, std::size_t* indices, float* sqDists) const {
        return index_.knn(points_[i], k, indices, sqDists, ByOriginal{order_.data()});
    }

private:
    struct ByOriginal {
        const std::uint64_t* order;
        std::uint64_t operator()(std::size_t i) const noexcept { return order[i]; }
    };

    std::vector<std::uint64_t> order_;
    std::vector<Vector3f> points_;
    Index index_;
};

using SpatialCopy = BasicSpatialCopy<KdIndex>;
using WatchedSpatialCopy = BasicSpatialCopy<WatchedKdIndex>;

/// Points that one task of a parallel pass takes in a row: it sets up its buffers once for all of them.
inline constexpr std::size_t SPATIAL_GRAIN = 2048;

}  // namespace ombrix::core::detail
