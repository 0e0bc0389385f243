#pragma once

#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include <ombrix/core/points/point_cloud.h>

/// What the benchmarks run over: generated terrain, or the point file that the environment variable
/// OMBRIX_BENCH_CLOUD names. Clouds are moved so that their lower corner is zero.
namespace ombrix::benchmarks {

/// Numbers of points to measure with: those in OMBRIX_BENCH_SIZES (separated by commas), 1 and 10 million
/// without it; the size of the given cloud alone where there is one.
const std::vector<std::int64_t>& pointCounts();

/// Registers a benchmark for each of `pointCounts()`, in milliseconds of wall time.
void pointSizes(benchmark::internal::Benchmark* bench);

/// The cloud of n points with colours and scalars, in random order when it is terrain. The last two sizes
/// asked for are kept.
const core::PointCloud& benchCloud(std::int64_t n);
const std::vector<core::Vector3f>& benchPoints(std::int64_t n);

/// Edge of a cube at the origin that holds the cloud.
float cubeEdge(std::int64_t n);

/// A radius that holds about ten points around a point of the cloud.
float densityRadius(std::int64_t n);

/// Edge of grid cells that hold about ten points each.
float tenPointCell(std::int64_t n);

/// Counts every iteration as one pass over state.range(0) points.
inline void pointRate(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace ombrix::benchmarks
