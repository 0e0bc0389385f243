// Normals from 16 neighbours beside PCL's NormalEstimationOMP on two threads, trees included.

#include <benchmark/benchmark.h>
#include <pcl/features/normal_3d_omp.h>
#include <pcl/point_types.h>
#include <pcl/search/kdtree.h>

#include <cmath>

#include <ombrix/core/analysis/normal_estimator.h>

#include <benchmarks/support/bench_cloud.h>

namespace ombrix::benchmarks {
namespace {

using namespace ombrix::core;

void Normals16_ombrix(benchmark::State& state) {
    core::PointCloud cloud = benchCloud(state.range(0));
    for (auto _ : state) {
        NormalEstimator::compute(cloud, 16);
    }
    pointRate(state);
}

void Normals16_pcl(benchmark::State& state) {
    core::PointCloud cloud = benchCloud(state.range(0));
    pcl::PointCloud<pcl::PointXYZ>::Ptr input(new pcl::PointCloud<pcl::PointXYZ>);
    for (const Vector3f& p : cloud.positions()) {
        input->push_back({p.x(), p.y(), p.z()});
    }
    pcl::PointCloud<pcl::Normal> output;
    for (auto _ : state) {
        pcl::NormalEstimationOMP<pcl::PointXYZ, pcl::Normal> estimation(2);
        estimation.setInputCloud(input);
        estimation.setSearchMethod(std::make_shared<pcl::search::KdTree<pcl::PointXYZ>>());
        estimation.setKSearch(16);
        estimation.compute(output);
    }
    // PCL sums in float and turns normals to the origin: compare the axes, and only nearly all of them.
    NormalEstimator::compute(cloud, 16);
    std::size_t apart = 0;
    for (std::size_t i = 0; i < output.size(); ++i) {
        apart += std::abs(cloud.normals()[i].dot(output[i].getNormalVector3fMap())) < 0.999f ? 1 : 0;
    }
    if (apart > output.size() / 1000) {
        state.SkipWithError("the answers differ");
    }
    pointRate(state);
}

BENCHMARK(Normals16_ombrix)->Apply(pointSizes);
BENCHMARK(Normals16_pcl)->Apply(pointSizes);

}  // namespace
}  // namespace ombrix::benchmarks
