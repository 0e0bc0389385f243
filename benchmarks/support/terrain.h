#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

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

/// n points of a terrain surface in the cube [0, 1000]^3, in random order, the same on every call.
inline std::vector<core::Vector3f> terrainPoints(std::size_t n) {
    std::mt19937_64 random(20240611);
    std::uniform_real_distribution<float> uniform(0.0f, 1.0f);
    std::vector<core::Vector3f> points(n);
    for (core::Vector3f& p : points) {
        const float x = uniform(random);
        const float y = uniform(random);
        p = core::Vector3f(x, y, terrainHeight(x, y)) * 1000.0f;
    }
    return points;
}

/// A cloud of terrain points with colours and scalars that depend on the height.
inline core::PointCloud terrainCloud(std::size_t n) {
    core::PointCloud cloud;
    cloud.positions() = terrainPoints(n);
    cloud.resize(n);
    for (std::size_t i = 0; i < n; ++i) {
        const float height = cloud.positions()[i].z();
        const auto level = static_cast<unsigned char>(std::clamp(height * 0.5f, 0.0f, 255.0f));
        cloud.colors()[i] = core::ColorRGB(level, 128, static_cast<unsigned char>(255 - level));
        cloud.scalars()[i] = height;
    }
    return cloud;
}

/// The terrain cloud of n points, kept until another size is asked for.
inline const core::PointCloud& keptTerrainCloud(std::int64_t n) {
    static core::PointCloud cloud;
    if (cloud.size() != static_cast<std::uint64_t>(n)) {
        cloud = terrainCloud(static_cast<std::size_t>(n));
    }
    return cloud;
}

}  // namespace ombrix::benchmarks
