// The point cloud beside loops that only move the same bytes.
#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include <ombrix/core.h>

#include "benchmarks/support/bench_cloud.h"

namespace {

using namespace ombrix::core;

const std::int64_t LARGEST = ombrix::benchmarks::pointCounts().back();
const std::size_t POINTS = static_cast<std::size_t>(LARGEST);

const PointCloud& sourceCloud() {
    return ombrix::benchmarks::benchCloud(LARGEST);
}

/// Random order within windows of 128 points, as leaves of a tree gather them, or over the whole cloud.
std::vector<std::uint64_t> shuffledIndices(bool everywhere) {
    std::vector<std::uint64_t> indices(POINTS);
    std::iota(indices.begin(), indices.end(), 0u);
    std::mt19937_64 random(7);
    const std::size_t window = everywhere ? POINTS : 128;
    for (std::size_t first = 0; first < POINTS; first += window) {
        const auto begin = indices.begin() + static_cast<std::ptrdiff_t>(first);
        std::shuffle(begin, begin + static_cast<std::ptrdiff_t>(std::min(window, POINTS - first)), random);
    }
    return indices;
}

struct Arrays {
    std::vector<char> positions, colors, scalars;
    explicit Arrays(std::size_t n) : positions(12 * n), colors(3 * n), scalars(4 * n) {}
};

void finish(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(POINTS));
}

/// Copies into storage that is there already, so that the system's page faults do not count.
void AppendCloud(benchmark::State& state) {
    const PointCloud& source = sourceCloud();
    PointCloud target = source;
    for (auto _ : state) {
        target.clear();
        target.push_back(source, false);
        benchmark::ClobberMemory();
    }
    finish(state);
}

void MemcpyOfTheSameBytes(benchmark::State& state) {
    const PointCloud& source = sourceCloud();
    Arrays target(POINTS);
    for (auto _ : state) {
        std::memcpy(target.positions.data(), source.positions().data()->data(), target.positions.size());
        std::memcpy(target.colors.data(), source.colors().data(), target.colors.size());
        std::memcpy(target.scalars.data(), source.scalars().data(), target.scalars.size());
        benchmark::ClobberMemory();
    }
    finish(state);
}

void AppendShifted(benchmark::State& state) {
    const PointCloud& source = sourceCloud();
    PointCloud target = source;
    for (auto _ : state) {
        target.clear();
        target.push_back(source, Vector3d(1.0, 2.0, 3.0), false);
        benchmark::ClobberMemory();
    }
    finish(state);
}

void GatherIndices(benchmark::State& state) {
    const PointCloud& source = sourceCloud();
    const auto indices = shuffledIndices(state.range(0) != 0);
    PointCloud target = source;
    for (auto _ : state) {
        target.clear();
        target.push_back(source, indices, false);
        benchmark::ClobberMemory();
    }
    finish(state);
}

/// One memcpy an element over the same indices and arrays.
void GatherLoopOfTheSameBytes(benchmark::State& state) {
    const PointCloud& source = sourceCloud();
    const auto indices = shuffledIndices(state.range(0) != 0);
    Arrays target(POINTS);
    const auto gather = [&](std::vector<char>& out, const void* in, std::size_t width) {
        for (std::size_t i = 0; i < POINTS; ++i) {
            std::memcpy(out.data() + width * i, static_cast<const char*>(in) + width * indices[i], width);
        }
    };
    for (auto _ : state) {
        gather(target.positions, source.positions().data(), 12);
        gather(target.colors, source.colors().data(), 3);
        gather(target.scalars, source.scalars().data(), 4);
        benchmark::ClobberMemory();
    }
    finish(state);
}

void Transform(benchmark::State& state) {
    PointCloud cloud = sourceCloud();
    Eigen::Transform<double, 3, Eigen::Affine> turn(Eigen::AngleAxisd(0.1, Vector3d::UnitZ()));
    for (auto _ : state) {
        cloud.transform(turn);
        benchmark::ClobberMemory();
    }
    finish(state);
}

void MemcpyOfPositionsInPlace(benchmark::State& state) {
    const PointCloud& source = sourceCloud();
    std::vector<char> target(12 * POINTS);
    for (auto _ : state) {
        std::memcpy(target.data(), source.positions().data()->data(), target.size());
        benchmark::ClobberMemory();
    }
    finish(state);
}

BENCHMARK(AppendCloud)->Unit(benchmark::kMillisecond);
BENCHMARK(AppendShifted)->Unit(benchmark::kMillisecond);
BENCHMARK(MemcpyOfTheSameBytes)->Unit(benchmark::kMillisecond);
BENCHMARK(GatherIndices)->Arg(0)->Arg(1)->ArgName("everywhere")->Unit(benchmark::kMillisecond);
BENCHMARK(GatherLoopOfTheSameBytes)->Arg(0)->Arg(1)->ArgName("everywhere")->Unit(benchmark::kMillisecond);
BENCHMARK(Transform)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(MemcpyOfPositionsInPlace)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
