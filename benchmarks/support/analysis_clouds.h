#pragma once

#include <map>

#include <benchmark/benchmark.h>

#include <ombrix/core/points/point_cloud.h>

#include <benchmarks/support/terrain.h>

namespace ombrix::benchmarks {

/// The terrain of n points without colours, made once per program.
inline core::PointCloud& sharedTerrain(std::int64_t n) {
    static std::map<std::int64_t, core::PointCloud> clouds;
    core::PointCloud& cloud = clouds[n];
    if (cloud.size() == 0) {
        cloud.positions() = terrainPoints(static_cast<std::size_t>(n));
    }
    return cloud;
}

/// A radius around a terrain point that holds about ten points of n.
inline float densityRadius(std::int64_t n) {
    return 1000.0f * std::sqrt(10.0f / (3.14159f * static_cast<float>(n)));
}

inline void pointRate(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace ombrix::benchmarks
