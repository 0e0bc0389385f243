#pragma once

#include <cstddef>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <tbb/global_control.h>

#include <ombrix/core/points/point_cloud.h>

namespace ombrix::test {

/// A cloud with a name to print when a check on it fails.
struct NamedCloud {
    std::string name;
    core::PointCloud cloud;
};

/// Colours and scalars that tell the points apart, and a normal that repeats the position.
inline core::PointCloud withAttributes(std::vector<core::Vector3f> positions) {
    core::PointCloud cloud;
    cloud.positions() = std::move(positions);
    cloud.resize(cloud.positions().size());
    cloud.normals() = cloud.positions();
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        cloud.colors()[i] =
            core::ColorRGB(static_cast<unsigned char>(i), static_cast<unsigned char>(i >> 8), 7);
        cloud.scalars()[i] = static_cast<float>(i);
    }
    return cloud;
}

/// n points, uniform in the cube [0, edge]^3.
inline std::vector<core::Vector3f> uniformPoints(std::size_t n, float edge, unsigned int seed = 1) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(0.0f, edge);
    std::vector<core::Vector3f> points(n);
    for (core::Vector3f& p : points) {
        const float x = uniform(random);
        const float y = uniform(random);
        p = {x, y, uniform(random)};
    }
    return points;
}

/// n points in a few tight clusters in the cube [0, edge]^3, one in ten of them a copy of another.
inline std::vector<core::Vector3f> clusteredPoints(std::size_t n, float edge, unsigned int seed = 2) {
    std::mt19937 random(seed);
    const std::vector<core::Vector3f> centres = uniformPoints(5, edge, seed);
    std::normal_distribution<float> near(0.0f, edge * 1e-4f);
    std::vector<core::Vector3f> points;
    for (std::size_t i = 0; i < n; ++i) {
        if (i % 10 == 9) {
            points.push_back(points[random() % i]);
        } else {
            const float x = near(random);
            const float y = near(random);
            const core::Vector3f p = centres[random() % 5] + core::Vector3f(x, y, near(random));
            points.push_back(p.cwiseMax(0.0f).cwiseMin(edge));
        }
    }
    return points;
}

/// The clouds that every builder has to stand, in the cube [0, edge]^3.
inline std::vector<NamedCloud> buildersClouds(std::size_t n, float edge) {
    return {{"uniform", withAttributes(uniformPoints(n, edge))},
            {"clustered", withAttributes(clusteredPoints(n, edge))},
            {"all equal", withAttributes(std::vector<core::Vector3f>(n / 10, {edge / 3, edge / 5, edge}))},
            {"one point", withAttributes({{edge, 0.0f, edge / 2}})}};
}

/// Calls work() with the task pool held to one worker, then to four.
template <class Work>
void withOneAndFourWorkers(const Work& work) {
    for (const std::size_t workers : {1, 4}) {
        const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, workers);
        work();
    }
}

}  // namespace ombrix::test
