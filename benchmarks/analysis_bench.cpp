// Whole-cloud neighbourhood analysis that no peer is measured with, trees included. The rest is in ours/.

#include <benchmark/benchmark.h>

#include <ombrix/core/analysis/normal_estimator.h>
#include <ombrix/core/analysis/normal_orientation.h>
#include <ombrix/core/analysis/statistical_outliers.h>
#include <ombrix/core/octree/full_octree_factory.h>

#include <benchmarks/support/bench_cloud.h>

namespace ombrix::benchmarks {
namespace {

using namespace ombrix::core;

void NormalsOfOctree16(benchmark::State& state) {
    const core::PointCloud& cloud = benchCloud(state.range(0));
    FullOctreeFactory factory(Vector3f::Zero(), cubeEdge(state.range(0)), 4096);
    factory.add(cloud);
    Octree octree;
    factory(octree);
    for (auto _ : state) {
        NormalEstimator::compute(octree, 16, Octree::MAX_DEPTH);
    }
    pointRate(state);
}

void OrientAlongSpanningTree10(benchmark::State& state) {
    core::PointCloud cloud = benchCloud(state.range(0));
    NormalEstimator::compute(cloud, 16);
    for (auto _ : state) {
        NormalOrientation::alongSpanningTree(cloud, 10);
    }
    pointRate(state);
}

void StatisticalOutliers16(benchmark::State& state) {
    const core::PointCloud& cloud = benchCloud(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(StatisticalOutliers::find(cloud.positions(), 16, 2.0f));
    }
    pointRate(state);
}

BENCHMARK(NormalsOfOctree16)->Apply(pointSizes);
BENCHMARK(OrientAlongSpanningTree10)->Apply(pointSizes);
BENCHMARK(StatisticalOutliers16)->Apply(pointSizes);

}  // namespace
}  // namespace ombrix::benchmarks
