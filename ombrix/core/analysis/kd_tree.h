#pragma once

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include <ombrix/core/core_export.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/types.h>

namespace ombrix::core {

/// Nearest-neighbour and fixed-radius queries over 3-D positions: a k-d tree with leaves of 10 points.
///
/// Keeps a reference to the positions, which must outlive the tree; after a change to them (new points, a
/// moved one, a reallocation) the tree answers again from the next `update()` on. Distances are squared
/// Euclidean, in squared units of position. Results are exact, and equal distances ascend by index, so
/// that the order of equally near points does not depend on how the tree was built.
///
/// Many points at one place cost no more than others, however many they are, except in results that list
/// them; where there are such, coordinates below 2^-70 (8.5e-22) in magnitude count as 0.
///
/// Large trees are built by tasks of the caller's arena; they are the same on any number of threads. While it
/// is built a tree takes 16 bytes a point more than afterwards, a copy of the points that it orders.
///
/// A position with a coordinate that is not finite is never returned and disturbs no other. A tree over no
/// points answers with none. Const queries may run at once; `update()` must not overlap any query.
class OMBRIX_CORE_API KDTree {
public:
    /// Builds the index at once.
    explicit KDTree(const std::vector<Vector3f>& points);
    /// Over the cloud's positions.
    explicit KDTree(const PointCloud& cloud);

    /// A copy refers to the same positions and builds an index of its own. A moved-from tree has no index
    /// until it is assigned to: its queries throw `std::runtime_error`.
    KDTree(const KDTree& other);
    KDTree(KDTree&& other) noexcept;
    KDTree& operator=(const KDTree& other);
    KDTree& operator=(KDTree&& other) noexcept;
    ~KDTree();

    /// Rebuilds the index over the present content of the positions. Where memory runs out, the tree is left
    /// without an index, as a moved-from one.
    void update();

    /// The k nearest points, ascending by distance. Both vectors get length k; entries past the returned
    /// count are unspecified. Points at squared distance 3.4028235e38 or beyond are not found.
    ///
    /// @return  the number found: less than k when there are fewer points, 0 for k = 0.
    /// @throws std::runtime_error "[nanoflann] findNeighbors() called before building the index."
    std::size_t knnSearch(const Vector3f& q, std::size_t k, std::vector<std::size_t>& indices,
                          std::vector<float>& sqDists) const;

    /// All points whose squared distance is below radius * radius, as (index, squared distance), ascending
    /// by distance. A radius of 0 finds nothing.
    ///
    /// @param radius  in units of position, not squared.
    /// @throws std::runtime_error as `knnSearch`.
    [[nodiscard]] std::vector<std::pair<std::size_t, float>> radiusSearch(const Vector3f& q,
                                                                          float radius) const;
    /// The same into `out`, which is cleared first; in no particular order unless `sorted`.
    void radiusSearch(const Vector3f& q, float radius, std::vector<std::pair<std::size_t, float>>& out,
                      bool sorted) const;
    /// The number of points that `radiusSearch` finds, without a list of them.
    /// @throws std::runtime_error as `knnSearch`.
    [[nodiscard]] std::size_t radiusCount(const Vector3f& q, float radius) const;

    /// The positions as the index reads them. Indices are not checked.
    [[nodiscard]] std::size_t kdtree_get_point_count() const { return points_->size(); }
    /// Coordinate of position i: 0 is x, 1 is y, any other value z. One that is not finite reads as 0.
    [[nodiscard]] float kdtree_get_pt(std::size_t i, std::size_t dim) const;
    /// Squared distance between (p[0], p[1], p[2]) and position i as it is; `size` is ignored.
    [[nodiscard]] float kdtree_distance(const float* p, std::size_t i, std::size_t size) const;

private:
    struct Impl;
    [[nodiscard]] const Impl& index() const;

    const std::vector<Vector3f>* points_;  ///< owned by the caller
    std::unique_ptr<Impl> impl_;
};

}  // namespace ombrix::core
