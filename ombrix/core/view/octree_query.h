#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include <ombrix/core/core_export.h>
#include <ombrix/core/octree/aabb.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/types.h>
#include <ombrix/core/view/view_frustum.h>

namespace ombrix::core {

/// Where a pick looks for points: around a ray, as far from it as `radius + slope * depth`.
///
/// A radius alone is a cylinder, a slope alone a cone. The depth of a point is its distance from the ray's
/// origin along the ray.
struct PickBeam {
    Vector3d origin = Vector3d::Zero();      ///< relative to the tree's origin
    Vector3d direction = Vector3d::UnitZ();  ///< of any length
    double radius = 0.0;                     ///< units of position, at depth 0
    double slope = 0.0;                      ///< tangent of the cone's half angle
    double minDepth = 0.0;                   ///< points before it are not picked
    /// Nor are those behind this one.
    double maxDepth = std::numeric_limits<double>::infinity();
    /// Only points inside are picked, or on its faces; relative to the tree's origin.
    Aabb clip{Vector3d::Constant(-std::numeric_limits<double>::infinity()),
              Vector3d::Constant(std::numeric_limits<double>::infinity())};
};

/// Which of the points inside a beam is picked.
enum class PickOrder {
    FRONTMOST,  ///< smallest depth; of equal ones, nearest to the ray
    CENTRAL,    ///< smallest share of the beam's width: the distance from the ray in a cylinder, the angle
                ///< in a cone; of equal ones, smallest depth
};

/// A point that was picked.
struct PickedPoint {
    std::uint64_t key;    ///< of its node
    std::uint64_t index;  ///< in the node's cloud
    Vector3d position;    ///< relative to the tree's origin
    double depth;         ///< distance from the ray's origin along the ray
    double offset;        ///< distance from the ray
};

/// Answer to a pick.
struct PickResult {
    std::optional<PickedPoint> point;  ///< none where nothing is held inside the beam
    /// Nodes whose clouds are not held and may hold a point that goes before `point`, ascending. The answer
    /// is certain when there are none.
    std::vector<std::uint64_t> missing;
};

/// Points of one node.
struct NodePoints {
    std::uint64_t key;                   ///< of the node
    std::vector<std::uint64_t> indices;  ///< in the node's cloud, ascending
};

/// Answer to a search for all points of a region.
struct RegionResult {
    std::vector<NodePoints> nodes;       ///< nodes with points found, ascending by key
    std::uint64_t count = 0;             ///< number of points found
    std::vector<std::uint64_t> missing;  ///< nodes in the region whose clouds are not held, ascending
};

/// Exact searches in an octree of any kind: the point under the cursor, and the points of a region.
///
/// All positions are relative to the tree's origin. To keep their precision where coordinates are in the
/// millions, subtract `Octree::origin()` from absolute ones in double, and add it to results in double:
///
///     const PickResult hit = OctreeQuery(tree).pick(cursorBeam(camera, u, v, 3.0));
///     if (hit.point) show(tree.origin().cast<double>() + hit.point->position);
///
/// Points of all levels count, as far as their clouds are held; nothing is loaded. Nodes that have points
/// but no cloud are listed in the answer where they could change it: load them (`Octree::node_pc`, in a
/// derived tree) and ask again to be sure. Nodes that a mask names and the tree does not hold are passed
/// over. Outermost cubes count as open to the outside, because builders clamp points beyond the root box
/// into them. Points with coordinates that are not finite are never found.
///
/// Keeps a reference to the tree, which must outlive it and may change between searches. Searches may run
/// at once. The same tree gives the same answer, whatever the order of its nodes in memory.
class OMBRIX_CORE_API OctreeQuery {
public:
    /// Only takes the tree's address.
    explicit OctreeQuery(const Octree& octree) : octree_(&octree) {}

    /// The point of the beam that comes first in the given order; of equal ones, that with the smallest
    /// (key, index). Points on the beam's surface are inside.
    ///
    /// A beam holds no points when its origin, direction, radius or slope is not finite, its direction is 0,
    /// its radius or slope negative, or a limit NaN.
    [[nodiscard]] PickResult pick(const PickBeam& beam, PickOrder order = PickOrder::FRONTMOST) const;

    /// The points in a box or on its faces. A box with a corner that is NaN, or a lower corner above the
    /// upper, holds none; it may be infinite.
    [[nodiscard]] RegionResult inBox(const Aabb& box) const;
    /// The points in a sphere or on its surface. One with a centre that is not finite or a radius that is
    /// negative or NaN holds none.
    [[nodiscard]] RegionResult inSphere(const Vector3d& center, double radius) const;
    /// The points that `ViewFrustum::pointInFrustum` finds inside, which rounds as single precision does.
    /// A frustum whose pose is not finite holds none.
    [[nodiscard]] RegionResult inFrustum(const ViewFrustum& frustum) const;

    /// Appends the points found to a cloud, with their fields and relative to the tree's origin, in the
    /// order of the result. The tree must hold the clouds as it did when it was searched; nodes whose
    /// clouds were dropped since are left out.
    void extract(const RegionResult& found, PointCloud& out) const;

private:
    const Octree* octree_;
};

/// The beam under a place on the viewport, about `pixels` wide to all sides, between the clip planes.
///
/// For the point under the cursor, pick FRONTMOST within two or three pixels: it is the point that hides
/// the others when points are drawn that large. Where points are sparse and a wide beam is needed, CENTRAL
/// prefers the point nearest to the cursor, also behind others.
///
/// @param u, v    offsets from the viewport's centre along the camera's x and y axes: -1 and 1 at its
/// borders.
///                A window whose rows count downwards has v = 1 - 2 * row / height when the camera's y points
///                up.
/// @param pixels  radius around the cursor. In a perspective view the beam is a cone from the camera's
///                centre, in an orthographic one a cylinder from the plane through it.
[[nodiscard]] OMBRIX_CORE_API PickBeam cursorBeam(const ViewFrustum& frustum, double u, double v,
                                                  double pixels);

}  // namespace ombrix::core
