// The nested octree on one thread: add and hand over together, beside a sort of the same points' codes.
#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <tbb/global_control.h>

#include <ombrix/core.h>

#include "benchmarks/support/bench_cloud.h"
#include "benchmarks/support/peak_memory.h"

namespace {

using namespace ombrix::core;
using ombrix::benchmarks::cubeEdge;
using ombrix::benchmarks::PeakMemory;
using ombrix::benchmarks::pointSizes;

class SortedBuilder : public NestedOctreeFactory {
public:
    using NestedOctreeFactory::add_optim;
    using NestedOctreeFactory::NestedOctreeFactory;
};

/// A derived builder: every insertion goes through its own virtual operation.
class CountingBuilder : public NestedOctreeFactory {
public:
    using NestedOctreeFactory::add;
    using NestedOctreeFactory::NestedOctreeFactory;
    std::uint64_t insertions = 0;

protected:
    void add(Node& node, const Point& point) override {
        ++insertions;
        NestedOctreeFactory::add(node, point);
    }
};

template <class Builder, class Insert>
void build(benchmark::State& state, const Insert& insert) {
    const tbb::global_control oneThread(tbb::global_control::max_allowed_parallelism, 1);
    const PointCloud& cloud = ombrix::benchmarks::benchCloud(state.range(0));
    double peak = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const PeakMemory memory;
        {
            state.ResumeTiming();
            Builder builder(Vector3f::Zero(), cubeEdge(state.range(0)));
            Octree octree;
            insert(builder, cloud);
            builder(octree);
            state.PauseTiming();
            peak = std::max(peak, memory.bytes());
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.counters["peak/points"] = peak / static_cast<double>(cloud.size() * sizeof(Point));
}

void NestedBuild(benchmark::State& state) {
    build<NestedOctreeFactory>(state, [](auto& builder, const PointCloud& cloud) { builder.add(cloud); });
}

void NestedBuildByDerivedBuilder(benchmark::State& state) {
    build<CountingBuilder>(state, [](auto& builder, const PointCloud& cloud) { builder.add(cloud); });
}

void NestedBuildSorted(benchmark::State& state) {
    build<SortedBuilder>(state, [](auto& builder, const PointCloud& cloud) { builder.add_optim(cloud); });
}

/// The yardstick.
void SortOfCodeIndexPairs(benchmark::State& state) {
    const PointCloud& cloud = ombrix::benchmarks::benchCloud(state.range(0));
    std::vector<std::pair<std::uint64_t, std::uint64_t>> unsorted(cloud.size());
    for (std::uint64_t i = 0; i < cloud.size(); ++i) {
        unsorted[i] = {
            OctreeFactory::morton_keyd(cloud.positions()[i].cast<double>(), cubeEdge(state.range(0))).key, i};
    }
    for (auto _ : state) {
        state.PauseTiming();
        auto pairs = unsorted;
        state.ResumeTiming();
        std::sort(pairs.begin(), pairs.end());
        benchmark::DoNotOptimize(pairs.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

BENCHMARK(SortOfCodeIndexPairs)->Apply(pointSizes);
BENCHMARK(NestedBuild)->Apply(pointSizes);
BENCHMARK(NestedBuildByDerivedBuilder)->Apply(pointSizes);
BENCHMARK(NestedBuildSorted)->Apply(pointSizes);
