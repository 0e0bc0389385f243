#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include <Eigen/Geometry>

#include <ombrix/core/types.h>

namespace ombrix::mesh::detail {

struct Ball {
    core::Vector3d center = core::Vector3d::Zero();
    double squaredRadius = 0;

    [[nodiscard]] bool contains(const core::Vector3d& p) const {
        return (p - center).squaredNorm() <= squaredRadius * (1 + 1e-12);
    }
};

/// The smallest ball with three points on its surface; the fallback where they lie on a line.
[[nodiscard]] inline Ball ballThrough(const core::Vector3d& a, const core::Vector3d& b,
                                      const core::Vector3d& c, const Ball& fallback) {
    const core::Vector3d u = b - a, v = c - a, normal = u.cross(v);
    const double scale = 2 * normal.squaredNorm();
    if (!(scale > 0)) {
        return fallback;
    }
    const core::Vector3d offset =
        (v.squaredNorm() * normal.cross(u) + u.squaredNorm() * v.cross(normal)) / scale;
    return {a + offset, offset.squaredNorm()};
}

/// The ball with four points on its surface; the fallback where they lie in a plane.
[[nodiscard]] inline Ball ballThrough(const core::Vector3d& a, const core::Vector3d& b,
                                      const core::Vector3d& c, const core::Vector3d& d,
                                      const Ball& fallback) {
    const core::Vector3d u = b - a, v = c - a, w = d - a;
    const double scale = 2 * u.dot(v.cross(w));
    if (scale == 0) {
        return fallback;
    }
    const core::Vector3d offset =
        (u.squaredNorm() * v.cross(w) + v.squaredNorm() * w.cross(u) + w.squaredNorm() * u.cross(v)) / scale;
    return {a + offset, offset.squaredNorm()};
}

/// The smallest ball around points: whenever one lies outside the ball of those before it, it lies on the
/// surface of the next ball. Expected linear time for points in random order.
/// Source: Welzl, "Smallest enclosing disks (balls and ellipsoids)", 1991.
[[nodiscard]] inline Ball smallestBall(const std::vector<core::Vector3d>& points) {
    Ball ball{points.empty() ? core::Vector3d::Zero().eval() : points[0], 0};
    for (std::size_t i = 1; i < points.size(); ++i) {
        if (ball.contains(points[i])) {
            continue;
        }
        ball = {points[i], 0};
        for (std::size_t j = 0; j < i; ++j) {
            if (ball.contains(points[j])) {
                continue;
            }
            ball = {(points[i] + points[j]) / 2, (points[i] - points[j]).squaredNorm() / 4};
            for (std::size_t k = 0; k < j; ++k) {
                if (ball.contains(points[k])) {
                    continue;
                }
                ball = ballThrough(points[i], points[j], points[k], ball);
                for (std::size_t l = 0; l < k; ++l) {
                    if (!ball.contains(points[l])) {
                        ball = ballThrough(points[i], points[j], points[k], points[l], ball);
                    }
                }
            }
        }
    }
    // Nearly degenerate points may have been left out by rounding.
    for (const core::Vector3d& point : points) {
        ball.squaredRadius = std::max(ball.squaredRadius, (point - ball.center).squaredNorm());
    }
    return ball;
}

}  // namespace ombrix::mesh::detail
