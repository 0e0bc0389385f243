// Whole-cloud neighbourhood analysis on terrain in random order, trees included unless the name says not.

#include <benchmark/benchmark.h>

#include <ombrix/core/analysis/curvature_density.h>
#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/analysis/normal_estimator.h>
#include <ombrix/core/analysis/normal_orientation.h>
#include <ombrix/core/analysis/resolution.h>
#include <ombrix/core/analysis/statistical_outliers.h>
#include <ombrix/core/octree/full_octree_factory.h>

#include <benchmarks/support/bench_cloud.h>

namespace ombrix::benchmarks {
namespace {

using namespace ombrix::core;

void KDTreeBuild(benchmark::State& state) {
    const core::PointCloud& cloud = benchCloud(state.range(0));
    for (auto _ : state) {
        const KDTree tree(cloud);
        benchmark::DoNotOptimize(&tree);
    }
    pointRate(state);
}

void NormalsOfCloud16(benchmark::State& state) {
    core::PointCloud cloud = benchCloud(state.range(0));
    for (auto _ : state) {
        NormalEstimator::compute(cloud, 16);
    }
    pointRate(state);
}

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

void SurfaceDensityOmpAboutTenNeighbours(benchmark::State& state) {
    const core::PointCloud& cloud = benchCloud(state.range(0));
    for (auto _ : state) {
        const KDTree tree(cloud);
        Density density;
        density.surfaceDensity_omp(cloud.positions(), tree, densityRadius(state.range(0)));
        benchmark::DoNotOptimize(density.values().data());
    }
    pointRate(state);
}

void MeanNearestDistance(benchmark::State& state) {
    const core::PointCloud& cloud = benchCloud(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(ResolutionEstimator::mean_dist(cloud.positions()));
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

BENCHMARK(KDTreeBuild)->Apply(pointSizes);
BENCHMARK(NormalsOfCloud16)->Apply(pointSizes);
BENCHMARK(NormalsOfOctree16)->Apply(pointSizes);
BENCHMARK(OrientAlongSpanningTree10)->Apply(pointSizes);
BENCHMARK(SurfaceDensityOmpAboutTenNeighbours)->Apply(pointSizes);
BENCHMARK(MeanNearestDistance)->Apply(pointSizes);
BENCHMARK(StatisticalOutliers16)->Apply(pointSizes);

}  // namespace
}  // namespace ombrix::benchmarks
