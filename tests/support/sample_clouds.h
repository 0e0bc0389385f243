#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

#include "tests/support/clouds.h"

namespace ombrix::test {

using Points = std::vector<core::Vector3f>;

/// n points with whole coordinates in [0, side]: many equal distances and duplicates.
inline Points latticePoints(std::size_t n, int side, unsigned int seed = 2) {
    Points points = uniformPoints(n, static_cast<float>(side + 1), seed);
    for (core::Vector3f& p : points) {
        p = p.array().floor();
    }
    return points;
}

inline Points planePoints(std::size_t n, unsigned int seed = 3) {
    Points points = uniformPoints(n, 10.0f, seed);
    for (core::Vector3f& p : points) {
        p.z() = 4.0f;
    }
    return points;
}

/// Tight clusters that lie far apart.
inline Points clusteredPoints(std::size_t n, unsigned int seed = 4) {
    Points points = uniformPoints(n, 0.01f, seed);
    for (std::size_t i = 0; i < n; ++i) {
        points[i] += core::Vector3f(1.0f, 10.0f, 1000.0f) * static_cast<float>(i % 5);
    }
    return points;
}

inline Points equalPoints(std::size_t n) {
    return Points(n, core::Vector3f(1.5f, -2.0f, 3.25f));
}

/// Uniform points, every seventh with a coordinate that is not finite.
inline Points brokenPoints(std::size_t n) {
    constexpr float INF = std::numeric_limits<float>::infinity();
    const float broken[] = {std::numeric_limits<float>::quiet_NaN(), INF, -INF};
    Points points = uniformPoints(n, 1.0f, 5);
    for (std::size_t i = 0; i < n; i += 7) {
        points[i][static_cast<Eigen::Index>(i % 3)] = broken[i / 7 % 3];
    }
    return points;
}

/// Uniform points, most of them at one of two places or at none.
inline Points crowdedPoints(std::size_t n) {
    Points points = uniformPoints(n, 1.0f, 6);
    for (std::size_t i = 0; i < n; ++i) {
        if (i % 4 != 0) {
            points[i] = points[i % 8 < 4 ? 0 : 4];
        }
        if (i % 9 == 1) {
            points[i].setConstant(std::numeric_limits<float>::quiet_NaN());
        }
    }
    return points;
}

/// Indices and squared distances of all points that can be found, by distance and then by index.
inline std::vector<std::pair<std::size_t, float>> bruteForce(const Points& points, const core::Vector3f& q) {
    std::vector<std::pair<std::size_t, float>> all;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const float dx = q.x() - points[i].x();
        const float dy = q.y() - points[i].y();
        const float dz = q.z() - points[i].z();
        const float sqDist = dx * dx + dy * dy + dz * dz;
        if (std::isfinite(sqDist)) {
            all.emplace_back(i, sqDist);
        }
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const auto& a, const auto& b) { return a.second < b.second; });
    return all;
}

}  // namespace ombrix::test
