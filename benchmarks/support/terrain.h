#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include <tbb/parallel_for.h>

#include <ombrix/core/points/point_cloud.h>

namespace ombrix::benchmarks {

/// Height of the generated terrain at (x, y), all in [0, 1]: hills of five sizes.
inline float terrainHeight(float x, float y) {
    float height = 0.0f;
    float amplitude = 0.06f;
    float frequency = 6.0f;
    for (int octave = 0; octave < 5; ++octave) {
        height += amplitude * std::sin(frequency * x + 1.3f * static_cast<float>(octave)) *
                  std::cos(frequency * 1.1f * y - 0.7f * static_cast<float>(octave));
        amplitude *= 0.45f;
        frequency *= 2.3f;
    }
    return height + 0.2f;
}

inline constexpr float TERRAIN_EDGE = 1000.0f;

/// n points of a terrain surface in the cube [0, TERRAIN_EDGE]^3, in random order, the same on every call.
inline std::vector<core::Vector3f> terrainPoints(std::size_t n) {
    std::mt19937_64 random(20240611);
    std::uniform_real_distribution<float> uniform(0.0f, 1.0f);
    std::vector<core::Vector3f> points(n);
    for (core::Vector3f& p : points) {
        const float x = uniform(random);
        p = core::Vector3f(x, uniform(random), 0.0f);
    }
    tbb::parallel_for(std::size_t{0}, n, [&](std::size_t i) {
        const float x = points[i].x();
        const float y = points[i].y();
        points[i] = core::Vector3f(x, y, terrainHeight(x, y)) * TERRAIN_EDGE;
    });
    return points;
}

/// Gives points that have none colours and scalars that depend on the height.
inline void addHeightColors(core::PointCloud& cloud) {
    cloud.resize(cloud.positions().size());
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        const float height = cloud.positions()[i].z();
        const auto level = static_cast<unsigned char>(std::clamp(height * 0.5f, 0.0f, 255.0f));
        cloud.colors()[i] = core::ColorRGB(level, 128, static_cast<unsigned char>(255 - level));
        cloud.scalars()[i] = height;
    }
}

inline core::PointCloud terrainCloud(std::size_t n) {
    core::PointCloud cloud;
    cloud.positions() = terrainPoints(n);
    addHeightColors(cloud);
    return cloud;
}

}  // namespace ombrix::benchmarks
