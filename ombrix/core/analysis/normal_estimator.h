#pragma once

#include <cstddef>
#include <vector>

#include <ombrix/core/core_export.h>
#include <ombrix/core/octree/knn_search.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/points/point.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/services/work_context.h>
#include <ombrix/core/types.h>

namespace ombrix::core {

/// Surface normals from neighbourhoods: the negated eigenvector of the smallest eigenvalue of `PCA`.
///
/// A normal has length 1 within rounding. On purpose it points to whichever side the solver yields; see
/// `NormalOrientation` for sides that agree. Coincident points give (-1, 0, 0), no points at all (0, 0, 0).
class OMBRIX_CORE_API NormalEstimator {
public:
    /// Normal of one neighbourhood: of all points, or of those with the listed indices.
    [[nodiscard]] static Vector3f compute(const std::vector<Point>& nbrs);
    [[nodiscard]] static Vector3f compute(const std::vector<Point>& pts,
                                          const std::vector<std::size_t>& indices);
    [[nodiscard]] static Vector3f compute(const std::vector<Vector3f>& pts,
                                          const std::vector<std::size_t>& indices);

    /// Normal at p, relative to the tree's origin, from its k nearest points in the nodes of depth <= `depth`
    /// (negative: all), into `normal`.
    static void compute(kNNSearch& search, const Vector3f& p, int depth, Vector3f& normal, unsigned int k);

    /// Normals of all points of a cloud, each from its k nearest neighbours (itself included), into the
    /// cloud's `normals()`; on several threads. Neighbours are those of `KDTree::knnSearch`. A position that
    /// is not finite has no neighbours and gets (0, 0, 0), as every point does for k = 0.
    static void compute(PointCloud& cloud, std::size_t k);
    /// The same within a context. When stopped, it answers false and the cloud is as it was.
    [[nodiscard]] static bool compute(PointCloud& cloud, std::size_t k, const WorkContext& context);

    /// The same for all points of the loaded nodes of depth <= `depth`, across the borders of nodes. A
    /// "normal" field that another cloud shares is replaced by one of the node's own first. Nothing happens
    /// for k <= 0.
    static void compute(Octree& octree, int k, unsigned int depth);
    /// The same within a context. When stopped, it answers false and the tree is as it was.
    [[nodiscard]] static bool compute(Octree& octree, int k, unsigned int depth, const WorkContext& context);
};

}  // namespace ombrix::core
