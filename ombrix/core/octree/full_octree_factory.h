#pragma once

#include <cstdint>

#include <ombrix/core/core_export.h>
#include <ombrix/core/octree/octree_factory.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/services/work_context.h>

namespace ombrix::core {

namespace detail {
class Work;
}

/// Builds a full octree: points in leaves only, each leaf with at most `capacity` points unless it lies at
/// depth 21.
///
/// Collects copies of all points first; `operator()` keys and sorts them on several threads and cuts the
/// tree. The points stay in the factory, which can build again or take more. Points of a leaf are in the
/// order of their codes, points with equal codes in the order in which they were added. `size()` and
/// `clear()` are the base's and do nothing.
class OMBRIX_CORE_API FullOctreeFactory : public OctreeFactory {
public:
    /// As the base's constructors.
    /// @param capacity  most points in a leaf above depth 21.
    FullOctreeFactory(const Vector3f& origin, const Vector3f& top, unsigned int capacity);
    FullOctreeFactory(const Vector3f& origin, float extend, unsigned int capacity);

    /// Adds all points with their fields, moved by `shift` (in double), and widens the scalar range. What
    /// only some of the clouds added have (colours, scalars, a field) is zero for the points of the others.
    void add(const PointCloud& cloud, const Vector3d& shift) override;
    void add(const PointCloud& cloud) override;
    /// The same within a context. When stopped, it answers false and the factory is as it was.
    [[nodiscard]] bool add(const PointCloud& cloud, const Vector3d& shift, const WorkContext& context);
    [[nodiscard]] bool add(const PointCloud& cloud, const WorkContext& context);

    /// Builds the tree into `out`: box, scalar range, type full, and the nodes. Positions in the leaves are
    /// relative to the origin. Nodes that `out` holds already keep their points and receive more. Without
    /// points there are no nodes.
    void operator()(Octree& out) override;
    /// The same within a context. When stopped, it answers false, the factory is as it was and `out` has no
    /// nodes; removing them takes up to 10 ns for a new point and 40 ns for one that `out` held before.
    [[nodiscard]] bool operator()(Octree& out, const WorkContext& context);

protected:
    /// Builds the tree, see `operator()`.
    void factory(Octree& out);

    PointCloud cloud_;       ///< all points added, relative to the origin
    unsigned int capacity_;  ///< most points in a leaf above depth 21

private:
    void build(Octree& out, detail::Work* work);
};

}  // namespace ombrix::core
