#pragma once

#include <algorithm>
#include <cmath>

#include <Eigen/Geometry>

#include <ombrix/core/types.h>

namespace ombrix::mesh::detail {

/// Tests one triangle against axis-aligned cubes of one size, touching included.
///
/// A cube and the triangle are apart when their projections are apart on one of 13 axes: the three of the
/// cube, the triangle's normal and the nine cross products of its edges with the cube's axes.
/// Source: Akenine-Möller, "Fast 3D Triangle-Box Overlap Testing", Journal of Graphics Tools 6 (2001).
/// Works for triangles degenerated to segments or points, too.
class TriangleCubes {
public:
    /// @param half  half the cubes' edge length.
    TriangleCubes(const core::Vector3d (&corners)[3], double half) {
        const core::Vector3d edges[3] = {corners[1] - corners[0], corners[2] - corners[1],
                                         corners[0] - corners[2]};
        Slab* slab = slabs_;
        const auto add = [&](const core::Vector3d& axis) {
            const double a = axis.dot(corners[0]), b = axis.dot(corners[1]), c = axis.dot(corners[2]);
            const double radius = half * axis.lpNorm<1>();
            *slab++ = {axis, std::min({a, b, c}) - radius, std::max({a, b, c}) + radius};
        };
        // The axes without a z component come first: they decide on whole columns of cubes.
        add(core::Vector3d::UnitX());
        add(core::Vector3d::UnitY());
        for (const core::Vector3d& edge : edges) {
            add({-edge.y(), edge.x(), 0});
        }
        add(edges[0].cross(edges[1]));
        add(core::Vector3d::UnitZ());
        for (const core::Vector3d& edge : edges) {
            add({0, -edge.z(), edge.y()});
            add({edge.z(), 0, -edge.x()});
        }
    }

    /// Whether some cube with this centre in x and y can overlap.
    [[nodiscard]] bool overlapsColumn(double x, double y) const {
        return std::all_of(slabs_, slabs_ + COLUMN_AXES, [=](const Slab& slab) {
            const double at = slab.axis.x() * x + slab.axis.y() * y;
            return at >= slab.low && at <= slab.high;
        });
    }

    /// For a column that overlaps: whether the cube with its centre at z does.
    [[nodiscard]] bool overlapsInColumn(const core::Vector3d& center) const {
        return std::all_of(slabs_ + COLUMN_AXES, slabs_ + AXES, [&](const Slab& slab) {
            const double at = slab.axis.dot(center);
            return at >= slab.low && at <= slab.high;
        });
    }

    [[nodiscard]] bool overlaps(const core::Vector3d& center) const {
        return overlapsColumn(center.x(), center.y()) && overlapsInColumn(center);
    }

    /// Narrows the range of centres [low, high] along z in which cubes of a column meet the triangle's
    /// plane.
    void clipColumn(double x, double y, double& low, double& high) const {
        const Slab& plane = slabs_[COLUMN_AXES];
        const double slope = plane.axis.z();
        if (slope == 0) {
            return;
        }
        const double at = plane.axis.x() * x + plane.axis.y() * y;
        const double a = (plane.low - at) / slope, b = (plane.high - at) / slope;
        low = std::max(low, std::min(a, b));
        high = std::min(high, std::max(a, b));
    }

private:
    static constexpr int COLUMN_AXES = 5;
    static constexpr int AXES = 13;

    /// Cubes whose centre projects outside [low, high] do not touch the triangle.
    struct Slab {
        core::Vector3d axis;
        double low, high;
    };
    Slab slabs_[AXES];
};

}  // namespace ombrix::mesh::detail
