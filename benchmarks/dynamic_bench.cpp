// The growing octree beside the full one, neighbour search in octrees beside the k-d tree, and the grid merge
// and the Morton-sorted cloud over the same points.
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include <ombrix/core.h>

#include "benchmarks/support/bench_cloud.h"

namespace {

using namespace ombrix::core;
using ombrix::benchmarks::benchCloud;
using ombrix::benchmarks::cubeEdge;
using ombrix::benchmarks::pointSizes;

constexpr unsigned int CAPACITY = 128;
constexpr std::size_t SLICES = 10;

/// The terrain in ten clouds: consecutive points, which lie all over it, or strips along x.
std::vector<PointCloud> slicesOf(const PointCloud& cloud, float edge, bool strips) {
    std::vector<std::vector<std::uint64_t>> indices(SLICES);
    for (std::uint64_t i = 0; i < cloud.size(); ++i) {
        const std::size_t strip = static_cast<std::size_t>(cloud.positions()[i].x() / edge * SLICES);
        indices[strips ? std::min(strip, SLICES - 1) : i * SLICES / cloud.size()].push_back(i);
    }
    std::vector<PointCloud> slices(SLICES);
    for (std::size_t s = 0; s < SLICES; ++s) {
        slices[s].push_back(cloud, indices[s], false);
    }
    return slices;
}

void FullOctreeOfTheWhole(benchmark::State& state) {
    const PointCloud& cloud = benchCloud(state.range(0));
    for (auto _ : state) {
        FullOctreeFactory factory(Vector3f::Zero(), cubeEdge(state.range(0)), CAPACITY);
        Octree octree;
        factory.add(cloud);
        factory(octree);
        benchmark::DoNotOptimize(octree.keyCount());
        state.PauseTiming();
        octree = Octree();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void DynamicOctreeOfTenSlices(benchmark::State& state) {
    const std::vector<PointCloud> slices =
        slicesOf(benchCloud(state.range(0)), cubeEdge(state.range(0)), state.range(2) != 0);
    for (auto _ : state) {
        DynamicOctreeFactory factory(static_cast<std::uint64_t>(state.range(1)));
        for (const PointCloud& slice : slices) {
            factory.add(slice);
        }
        factory.factory();
        benchmark::DoNotOptimize(factory.octree());
        state.PauseTiming();
        state.counters["nodes"] = static_cast<double>(factory.octree()->keyCount());
        state.counters["dropped"] = static_cast<double>(factory.droppedPoints());
        factory = DynamicOctreeFactory();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

constexpr std::size_t QUERIES = 100'000;
constexpr unsigned int NEIGHBOURS = 16;

/// Every n-th point, moved off the surface a little.
std::vector<Vector3f> queriesOf(const PointCloud& cloud) {
    std::vector<Vector3f> queries;
    for (std::size_t q = 0; q < QUERIES; ++q) {
        queries.push_back(cloud.positions()[q * cloud.size() / QUERIES] + Vector3f(0.1f, 0.1f, 0.1f));
    }
    return queries;
}

void KnnOfKDTree(benchmark::State& state) {
    const PointCloud& cloud = benchCloud(state.range(0));
    const std::vector<Vector3f> queries = queriesOf(cloud);
    const KDTree tree(cloud);
    std::vector<std::size_t> indices;
    std::vector<float> sqDists;
    for (auto _ : state) {
        for (const Vector3f& query : queries) {
            benchmark::DoNotOptimize(tree.knnSearch(query, NEIGHBOURS, indices, sqDists));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(QUERIES));
}

void searchAll(benchmark::State& state, Octree& octree, const std::vector<Vector3f>& queries) {
    const kNNSearch search(octree);
    std::vector<Point> found;
    for (auto _ : state) {
        for (const Vector3f& query : queries) {
            benchmark::DoNotOptimize(search.search(query, -1, NEIGHBOURS, found));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(queries.size()));
}

void KnnInFullOctree(benchmark::State& state) {
    const PointCloud& cloud = benchCloud(state.range(0));
    FullOctreeFactory factory(Vector3f::Zero(), cubeEdge(state.range(0)),
                              static_cast<unsigned int>(state.range(1)));
    Octree octree;
    factory.add(cloud);
    factory(octree);
    searchAll(state, octree, queriesOf(cloud));
}

void KnnInNestedOctree(benchmark::State& state) {
    const PointCloud& cloud = benchCloud(state.range(0));
    NestedOctreeFactory factory(Vector3f::Zero(), cubeEdge(state.range(0)));
    Octree octree;
    factory.add(cloud);
    factory(octree);
    std::vector<Vector3f> queries = queriesOf(cloud);
    queries.resize(1000);
    searchAll(state, octree, queries);
}

void MortonSortedCloud(benchmark::State& state) {
    const PointCloud& cloud = benchCloud(state.range(0));
    for (auto _ : state) {
        const PointCloudMorton sorted(cloud, Vector3f::Zero(), cubeEdge(state.range(0)));
        benchmark::DoNotOptimize(sorted.codes().data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// Ten points a cell; with all of adding and merging.
void MergeTenSlices(benchmark::State& state) {
    const std::vector<PointCloud> slices =
        slicesOf(benchCloud(state.range(0)), cubeEdge(state.range(0)), false);
    PointCloud out;
    for (auto _ : state) {
        Merge merge(ombrix::benchmarks::tenPointCell(state.range(0)));
        merge.setAveraging(state.range(1) != 0);
        for (const PointCloud& slice : slices) {
            merge.add(slice, Vector3d::Zero());
        }
        merge.result(out);
    }
    state.counters["cells"] = static_cast<double>(out.size());
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

const std::int64_t LARGEST = ombrix::benchmarks::pointCounts().back();
BENCHMARK(FullOctreeOfTheWhole)->Apply(pointSizes);
BENCHMARK(DynamicOctreeOfTenSlices)
    ->ArgNames({"points", "maxPoints", "strips"})
    ->Args({LARGEST, CAPACITY, 0})
    ->Args({LARGEST, CAPACITY, 1})
    ->Args({LARGEST, 65536, 0})
    ->Args({LARGEST, 65536, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(KnnOfKDTree)->Apply(pointSizes);
BENCHMARK(KnnInFullOctree)
    ->ArgNames({"points", "capacity"})
    ->Args({LARGEST, 32})
    ->Args({LARGEST, CAPACITY})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(KnnInNestedOctree)->Apply(pointSizes);
BENCHMARK(MortonSortedCloud)->Apply(pointSizes);
BENCHMARK(MergeTenSlices)
    ->ArgNames({"points", "average"})
    ->Args({LARGEST, 0})
    ->Args({LARGEST, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
