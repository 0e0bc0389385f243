// Normals and nearest distances beside Open3D, which uses as many threads as there are, trees included.

#include <benchmark/benchmark.h>
#include <open3d/Open3D.h>

#include <cmath>
#include <numeric>

#include <ombrix/core/analysis/normal_estimator.h>
#include <ombrix/core/analysis/resolution.h>

#include <benchmarks/support/bench_cloud.h>

namespace ombrix::benchmarks {
namespace {

using namespace ombrix::core;

open3d::geometry::PointCloud converted(const core::PointCloud& cloud) {
    open3d::geometry::PointCloud out;
    out.points_.reserve(cloud.size());
    for (const Vector3f& p : cloud.positions()) {
        out.points_.push_back(p.cast<double>());
    }
    return out;
}

void Normals16_ombrix(benchmark::State& state) {
    core::PointCloud cloud = benchCloud(state.range(0));
    for (auto _ : state) {
        NormalEstimator::compute(cloud, 16);
    }
    pointRate(state);
}

void Normals16_open3d(benchmark::State& state) {
    core::PointCloud cloud = benchCloud(state.range(0));
    open3d::geometry::PointCloud peer = converted(cloud);
    for (auto _ : state) {
        peer.normals_.clear();
        peer.EstimateNormals(open3d::geometry::KDTreeSearchParamKNN(16));
    }
    NormalEstimator::compute(cloud, 16);
    std::size_t apart = 0;
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        apart += std::abs(cloud.normals()[i].cast<double>().dot(peer.normals_[i])) < 0.999 ? 1 : 0;
    }
    if (apart > cloud.size() / 1000) {
        state.SkipWithError("the answers differ");
    }
    pointRate(state);
}

void MeanNearestDistance_ombrix(benchmark::State& state) {
    const core::PointCloud& cloud = benchCloud(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(ResolutionEstimator::mean_dist(cloud.positions()));
    }
    pointRate(state);
}

void MeanNearestDistance_open3d(benchmark::State& state) {
    const core::PointCloud& cloud = benchCloud(state.range(0));
    const open3d::geometry::PointCloud peer = converted(cloud);
    double mean = 0.0;
    for (auto _ : state) {
        const std::vector<double> nearest = peer.ComputeNearestNeighborDistance();
        mean = std::accumulate(nearest.begin(), nearest.end(), 0.0) / static_cast<double>(nearest.size());
    }
    const double ours = static_cast<double>(ResolutionEstimator::mean_dist(cloud.positions()).first);
    if (!(std::abs(ours - mean) <= 1e-5 * mean)) {
        state.SkipWithError("the answers differ");
    }
    pointRate(state);
}

BENCHMARK(Normals16_ombrix)->Apply(pointSizes);
BENCHMARK(Normals16_open3d)->Apply(pointSizes);
BENCHMARK(MeanNearestDistance_ombrix)->Apply(pointSizes);
BENCHMARK(MeanNearestDistance_open3d)->Apply(pointSizes);

}  // namespace
}  // namespace ombrix::benchmarks
