// The full octree: what building it costs beside a sort of the same pairs, and what selection costs.
#include <algorithm>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <tbb/parallel_sort.h>

#include <ombrix/core.h>

#include "benchmarks/support/bench_cloud.h"
#include "benchmarks/support/peak_memory.h"

namespace {

using namespace ombrix::core;
using ombrix::benchmarks::benchCloud;
using ombrix::benchmarks::cubeEdge;
using ombrix::benchmarks::PeakMemory;
using ombrix::benchmarks::pointSizes;

constexpr unsigned int CAPACITY = 128;

void FullOctreeAddAndBuild(benchmark::State& state) {
    const PointCloud& cloud = benchCloud(state.range(0));
    double peak = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const PeakMemory memory;
        {
            state.ResumeTiming();
            FullOctreeFactory factory(Vector3f::Zero(), cubeEdge(state.range(0)), CAPACITY);
            Octree octree;
            factory.add(cloud);
            factory(octree);
            state.PauseTiming();
            peak = std::max(peak, memory.bytes());
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    const auto points = static_cast<double>(cloud.size());
    state.counters["bytes/point"] = peak / points;
    state.counters["beyond_pairs/input"] = (peak - 16 * points) / static_cast<double>(cloud.raw_size());
}

void MortonCodes(benchmark::State& state) {
    const PointCloud& cloud = benchCloud(state.range(0));
    for (auto _ : state) {
        std::uint64_t sum = 0;
        for (const Vector3f& p : cloud.positions()) {
            sum += OctreeFactory::morton_keyd(p.cast<double>(), cubeEdge(state.range(0))).key;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// The yardstick: the library's task pool sorting the same (index, code) pairs.
void ParallelSortOfPairs(benchmark::State& state) {
    const PointCloud& cloud = benchCloud(state.range(0));
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

void VisibilityUpdate(benchmark::State& state) {
    FullOctreeFactory factory(Vector3f::Zero(), cubeEdge(state.range(0)), CAPACITY);
    Octree octree;
    factory.add(benchCloud(state.range(0)));
    factory(octree);
    ViewFrustum frustum;
    frustum.setIntrinsics(60.0f, 1.5f);
    frustum.setPixelSize(1000, 1500);
    frustum.setClipPlane(0.1f, 5000.0f);
    ViewFrustum::Pose pose = ViewFrustum::Pose::Identity();
    pose.translation() = Vector3f(500.0f, 500.0f, -400.0f);
    frustum.setPosition(pose);
    Visibility visibility(octree);
    std::uint64_t points = 0;
    for (auto _ : state) {
        points = visibility.update(frustum, static_cast<std::uint64_t>(state.range(1)), 0.0f);
        benchmark::DoNotOptimize(points);
    }
    state.counters["nodes"] = static_cast<double>(octree.keyCount());
    state.counters["selected"] = static_cast<double>(visibility.getVisibleNodeKeys().size());
    state.counters["points"] = static_cast<double>(points);
}

const std::int64_t LARGEST = ombrix::benchmarks::pointCounts().back();
BENCHMARK(FullOctreeAddAndBuild)->Apply(pointSizes);
BENCHMARK(ParallelSortOfPairs)->Apply(pointSizes);
BENCHMARK(MortonCodes)->Apply(pointSizes);
BENCHMARK(VisibilityUpdate)
    ->Args({LARGEST, 0})
    ->Args({LARGEST, 100'000})
    ->Args({LARGEST, 1'000'000})
    ->Unit(benchmark::kMillisecond);

}  // namespace
