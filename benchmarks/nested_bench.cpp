// The nested octree on one thread: add and hand over together, beside a sort of the same points' codes.
#include <algorithm>
#include <cstdint>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <benchmark/benchmark.h>
#include <tbb/global_control.h>

#include <ombrix/core.h>

#include "benchmarks/support/terrain.h"

namespace {

using namespace ombrix::core;
using ombrix::benchmarks::terrainCloud;

constexpr float EDGE = 1000.0f;

const PointCloud& cloudOf(std::int64_t n) {
    static PointCloud cloud;
    if (cloud.size() != static_cast<std::uint64_t>(n)) {
        cloud = terrainCloud(static_cast<std::size_t>(n));
    }
    return cloud;
}

/// Gives freed memory back, so that the next peak shows what one build takes.
void trimMemory() {
#if defined(__GLIBC__)
    malloc_trim(0);
#endif
}

/// A line of /proc/self/status in bytes; 0 where there is none.
double statusBytes(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == name) {
            double kilobytes = 0;
            status >> kilobytes;
            return kilobytes * 1024;
        }
    }
    return 0;
}

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
    const PointCloud& cloud = cloudOf(state.range(0));
    double peak = 0;
    for (auto _ : state) {
        state.PauseTiming();
        trimMemory();
        std::ofstream("/proc/self/clear_refs") << 5;  // forgets the peak so far
        const double before = statusBytes("VmRSS:");
        {
            state.ResumeTiming();
            Builder builder(Vector3f::Zero(), EDGE);
            Octree octree;
            insert(builder, cloud);
            builder(octree);
            state.PauseTiming();
            peak = std::max(peak, statusBytes("VmHWM:") - before);
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
    const PointCloud& cloud = cloudOf(state.range(0));
    std::vector<std::pair<std::uint64_t, std::uint64_t>> unsorted(cloud.size());
    for (std::uint64_t i = 0; i < cloud.size(); ++i) {
        unsorted[i] = {OctreeFactory::morton_keyd(cloud.positions()[i].cast<double>(), EDGE).key, i};
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

BENCHMARK(SortOfCodeIndexPairs)->Arg(10'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(NestedBuild)->Arg(10'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(NestedBuildByDerivedBuilder)->Arg(10'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(NestedBuildSorted)->Arg(10'000'000)->Unit(benchmark::kMillisecond);
