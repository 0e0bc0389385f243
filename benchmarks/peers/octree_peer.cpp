// Full octrees of the same terrain with at most 128 points a leaf: this library, CGAL and PCL in turn, beside
// a sort of the same (index, code) pairs. This library also copies the points into the leaves' clouds.
#include <CGAL/Octree.h>
#include <CGAL/Simple_cartesian.h>
#include <benchmark/benchmark.h>
#include <pcl/octree/octree_pointcloud.h>
#include <pcl/point_types.h>
#include <tbb/parallel_sort.h>

#include <algorithm>
#include <utility>
#include <vector>

#include <ombrix/core.h>

#include "benchmarks/support/bench_cloud.h"

namespace {

using namespace ombrix::core;
using ombrix::benchmarks::cubeEdge;

constexpr unsigned int CAPACITY = 128;

void report(benchmark::State& state, std::size_t points, std::size_t largestLeaf, std::size_t leaves) {
    if (points != static_cast<std::size_t>(state.range(0)) || largestLeaf > CAPACITY) {
        state.SkipWithError("the tree does not hold all points in leaves of at most 128");
    }
    state.counters["leaves"] = static_cast<double>(leaves);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void Ombrix(benchmark::State& state) {
    const PointCloud& cloud = ombrix::benchmarks::benchCloud(state.range(0));
    std::size_t points = 0;
    std::size_t largest = 0;
    std::size_t leaves = 0;
    for (auto _ : state) {
        FullOctreeFactory factory(Vector3f::Zero(), cubeEdge(state.range(0)), CAPACITY);
        Octree octree;
        factory.add(cloud);
        factory(octree);
        state.PauseTiming();
        points = octree.size();
        leaves = octree.leaves().size();
        for (const auto& [key, node] : octree.nodes()) {
            largest = std::max<std::size_t>(largest, node.pc->size());
        }
        octree = Octree();
        factory = FullOctreeFactory(Vector3f::Zero(), cubeEdge(state.range(0)), CAPACITY);
        state.ResumeTiming();
    }
    report(state, points, largest, leaves);
}

void Cgal(benchmark::State& state) {
    using Kernel = CGAL::Simple_cartesian<float>;
    using Points = std::vector<Kernel::Point_3>;
    Points source;
    for (const Vector3f& p : ombrix::benchmarks::benchCloud(state.range(0)).positions()) {
        source.emplace_back(p.x(), p.y(), p.z());
    }
    std::size_t points = 0;
    std::size_t largest = 0;
    std::size_t leaves = 0;
    for (auto _ : state) {
        state.PauseTiming();
        Points reordered = source;
        state.ResumeTiming();
        CGAL::Octree<Kernel, Points> octree(reordered);
        octree.refine(21, CAPACITY);
        state.PauseTiming();
        points = largest = leaves = 0;
        for (const auto& node : octree.traverse<CGAL::Orthtrees::Leaves_traversal>()) {
            points += node.size();
            largest = std::max<std::size_t>(largest, node.size());
            ++leaves;
        }
        state.ResumeTiming();
    }
    report(state, points, largest, leaves);
}

void Pcl(benchmark::State& state) {
    const auto cloud = pcl::make_shared<pcl::PointCloud<pcl::PointXYZ>>();
    for (const Vector3f& p : ombrix::benchmarks::benchCloud(state.range(0)).positions()) {
        cloud->emplace_back(p.x(), p.y(), p.z());
    }
    std::size_t points = 0;
    std::size_t largest = 0;
    std::size_t leaves = 0;
    for (auto _ : state) {
        pcl::octree::OctreePointCloud<pcl::PointXYZ> octree(cubeEdge(state.range(0)) / 2097152.0);
        octree.enableDynamicDepth(CAPACITY);
        octree.setInputCloud(cloud);
        octree.addPointsFromInputCloud();
        state.PauseTiming();
        points = largest = leaves = 0;
        for (auto leaf = octree.leaf_depth_begin(); leaf != octree.leaf_depth_end(); ++leaf) {
            const std::size_t size = leaf.getLeafContainer().getSize();
            points += size;
            largest = std::max(largest, size);
            ++leaves;
        }
        state.ResumeTiming();
    }
    report(state, points, largest, leaves);
}

void ParallelSort(benchmark::State& state) {
    const PointCloud& cloud = ombrix::benchmarks::benchCloud(state.range(0));
    std::vector<std::pair<std::uint64_t, std::uint64_t>> unsorted(cloud.size());
    for (std::uint64_t i = 0; i < cloud.size(); ++i) {
        unsorted[i] = {
            i, OctreeFactory::morton_keyd(cloud.positions()[i].cast<double>(), cubeEdge(state.range(0))).key};
    }
    for (auto _ : state) {
        state.PauseTiming();
        auto pairs = unsorted;
        state.ResumeTiming();
        tbb::parallel_sort(pairs.begin(), pairs.end(),
                           [](const auto& a, const auto& b) { return a.second < b.second; });
        benchmark::DoNotOptimize(pairs.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

using ombrix::benchmarks::pointSizes;
BENCHMARK(Ombrix)->Apply(pointSizes);
BENCHMARK(ParallelSort)->Apply(pointSizes);
BENCHMARK(Cgal)->Apply(pointSizes);
BENCHMARK(Pcl)->Apply(pointSizes);

}  // namespace
