// Nearest distances beside FLANN's exact single-tree index on two threads, trees included.

#include <benchmark/benchmark.h>
#include <flann/flann.hpp>

#include <cmath>
#include <vector>

#include <ombrix/core/analysis/resolution.h>

#include <benchmarks/support/bench_cloud.h>

namespace ombrix::benchmarks {
namespace {

using namespace ombrix::core;

void MeanNearestDistance_ombrix(benchmark::State& state) {
    const core::PointCloud& cloud = benchCloud(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(ResolutionEstimator::mean_dist(cloud.positions()));
    }
    pointRate(state);
}

void MeanNearestDistance_flann(benchmark::State& state) {
    core::PointCloud cloud = benchCloud(state.range(0));
    const std::size_t n = cloud.size();
    flann::Matrix<float> data(cloud.positions().front().data(), n, 3);
    std::vector<int> indices(2 * n);
    std::vector<float> sqDists(2 * n);
    for (auto _ : state) {
        flann::Index<flann::L2_Simple<float>> index(data, flann::KDTreeSingleIndexParams(10));
        index.buildIndex();
        flann::Matrix<int> indexRows(indices.data(), n, 2);
        flann::Matrix<float> distRows(sqDists.data(), n, 2);
        flann::SearchParams params(flann::FLANN_CHECKS_UNLIMITED);
        params.cores = 2;
        index.knnSearch(data, indexRows, distRows, 2, params);
    }
    double mean = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
        mean += std::sqrt(static_cast<double>(sqDists[2 * i + 1])) / static_cast<double>(n);
    }
    const double ours = static_cast<double>(ResolutionEstimator::mean_dist(cloud.positions()).first);
    if (!(std::abs(ours - mean) <= 1e-5 * mean)) {
        state.SkipWithError("the answers differ");
    }
    pointRate(state);
}

BENCHMARK(MeanNearestDistance_ombrix)->Apply(pointSizes);
BENCHMARK(MeanNearestDistance_flann)->Apply(pointSizes);

}  // namespace
}  // namespace ombrix::benchmarks
