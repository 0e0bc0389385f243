#pragma once

#include <algorithm>
#include <optional>

#include <Eigen/Geometry>

#include <ombrix/core/types.h>

namespace ombrix::mesh::detail {

struct Corners {
    core::Vector3d a, b, c;
};

/// Nearest point to p on the segment from a to b, which may be a point.
[[nodiscard]] inline core::Vector3d closestOnSegment(const core::Vector3d& a, const core::Vector3d& b,
                                                     const core::Vector3d& p) {
    const core::Vector3d edge = b - a;
    const double squared = edge.squaredNorm();
    const double t = squared > 0 ? std::clamp((p - a).dot(edge) / squared, 0.0, 1.0) : 0.0;
    return a + t * edge;
}

/// Nearest point to p on a triangle; on its edges when it is degenerate.
/// Source: Ericson, "Real-Time Collision Detection", 2005, section 5.1.5.
[[nodiscard]] inline core::Vector3d closestOnTriangle(const Corners& t, const core::Vector3d& p) {
    const core::Vector3d ab = t.b - t.a, ac = t.c - t.a, ap = p - t.a;
    const double d1 = ab.dot(ap), d2 = ac.dot(ap);
    if (d1 <= 0 && d2 <= 0) {
        return t.a;
    }
    const core::Vector3d bp = p - t.b;
    const double d3 = ab.dot(bp), d4 = ac.dot(bp);
    if (d3 >= 0 && d4 <= d3) {
        return t.b;
    }
    const core::Vector3d cp = p - t.c;
    const double d5 = ab.dot(cp), d6 = ac.dot(cp);
    if (d6 >= 0 && d5 <= d6) {
        return t.c;
    }
    // Twice the areas of the projected point with each edge, times twice the triangle's area.
    const double onAB = d1 * d4 - d3 * d2, onAC = d5 * d2 - d1 * d6, onBC = d3 * d6 - d5 * d4;
    const double sum = onAB + onAC + onBC;
    if (onAB > 0 && onAC > 0 && onBC > 0) {
        return t.a + ab * (onAC / sum) + ac * (onAB / sum);
    }
    // On the rim, or rounding on a needle has made the signs unreliable: the nearest of the three edges.
    core::Vector3d best = closestOnSegment(t.a, t.b, p);
    for (const core::Vector3d& other : {closestOnSegment(t.b, t.c, p), closestOnSegment(t.c, t.a, p)}) {
        if ((other - p).squaredNorm() < (best - p).squaredNorm()) {
            best = other;
        }
    }
    return best;
}

struct TriangleHit {
    double t, u, v;
};

/// Where the ray from the origin of coordinates along a direction meets a triangle, from either side.
///
/// The signs of the three volumes spanned by the direction and an edge decide. Two triangles compute the
/// volume of a common edge from the same products with the opposite sign, so no ray slips between them.
[[nodiscard]] inline std::optional<TriangleHit> meetRay(const Corners& t, const core::Vector3d& direction) {
    const double wa = direction.dot(t.b.cross(t.c));
    const double wb = direction.dot(t.c.cross(t.a));
    const double wc = direction.dot(t.a.cross(t.b));
    const bool front = wa >= 0 && wb >= 0 && wc >= 0;
    const bool back = wa <= 0 && wb <= 0 && wc <= 0;
    const double sum = wa + wb + wc;
    if ((!front && !back) || sum == 0) {
        return std::nullopt;
    }
    const core::Vector3d point = (wa * t.a + wb * t.b + wc * t.c) / sum;
    const double along = point.dot(direction) / direction.squaredNorm();
    if (along < 0) {
        return std::nullopt;
    }
    return TriangleHit{along, wb / sum, wc / sum};
}

}  // namespace ombrix::mesh::detail
