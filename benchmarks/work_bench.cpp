#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <random>
#include <thread>

#include <benchmark/benchmark.h>

#include <ombrix/core/analysis/curvature_density.h>
#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/analysis/normal_estimator.h>
#include <ombrix/core/octree/dynamic_octree_factory.h>
#include <ombrix/core/octree/full_octree_factory.h>
#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/services/work_context.h>

#include "benchmarks/support/bench_cloud.h"

namespace {

using namespace ombrix::core;
using Clock = std::chrono::steady_clock;
using ombrix::benchmarks::benchCloud;
using ombrix::benchmarks::cubeEdge;

double seconds(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

/// Makes a fresh object; the result runs the work on it, without a context where it is null.
using Run = std::function<void(const WorkContext*)>;
using Make = std::function<Run(std::int64_t)>;

/// Time from a request at some moment of the work to its return. The counter is the slowest of all.
void stopLatency(benchmark::State& state, const Make& make) {
    static_cast<void>(benchCloud(state.range(0)));  // made before anything is measured
    const WorkContext quiet;
    const Run whole = make(state.range(0));
    const auto start = Clock::now();
    whole(&quiet);
    const double length = seconds(start, Clock::now());

    std::mt19937 random(5);
    std::uniform_real_distribution<double> moment(0.0, length);
    double slowest = 0.0;
    double slowestCpu = 0.0;
    for (auto _ : state) {
        const Run run = make(state.range(0));
        std::stop_source source;
        std::atomic<bool> started = false;
        Clock::time_point requested;
        std::clock_t requestedCpu = 0;
        const double wait = moment(random);
        std::thread stopper([&] {
            while (!started) {
            }
            std::this_thread::sleep_for(std::chrono::duration<double>(wait));
            requested = Clock::now();
            requestedCpu = std::clock();
            source.request_stop();
        });
        const WorkContext context{source.get_token()};
        started = true;
        run(&context);
        const auto returned = Clock::now();
        const std::clock_t returnedCpu = std::clock();
        stopper.join();
        const double latency = std::max(0.0, seconds(requested, returned));
        state.SetIterationTime(latency);
        slowest = std::max(slowest, latency);
        slowestCpu = std::max(slowestCpu, static_cast<double>(returnedCpu - requestedCpu) / CLOCKS_PER_SEC);
    }
    state.counters["slowest_ms"] = 1e3 * slowest;
    state.counters["slowest_cpu_ms"] = 1e3 * slowestCpu;  // of all threads, whatever else runs
    state.counters["whole_ms"] = 1e3 * length;
}

/// The work without a context and within an empty one, in turn; the time is that of the second.
void watchedCost(benchmark::State& state, const Make& make) {
    static_cast<void>(benchCloud(state.range(0)));
    const WorkContext quiet;
    double plain = 0.0;
    double watched = 0.0;
    for (auto _ : state) {
        const double before = watched;
        for (const WorkContext* context : {static_cast<const WorkContext*>(nullptr), &quiet}) {
            const Run run = make(state.range(0));
            const auto start = Clock::now();
            run(context);
            (context == nullptr ? plain : watched) += seconds(start, Clock::now());
        }
        state.SetIterationTime(watched - before);
    }
    state.counters["ratio"] = watched / plain;
}

Run fullAdd(std::int64_t n) {
    const auto factory = std::make_shared<FullOctreeFactory>(Vector3f::Zero(), cubeEdge(n), 128);
    return [=](const WorkContext* context) {
        const PointCloud& cloud = benchCloud(n);
        context != nullptr ? void(factory->add(cloud, Vector3d::Zero(), *context)) : factory->add(cloud);
    };
}

Run fullBuild(std::int64_t n) {
    const auto factory = std::make_shared<FullOctreeFactory>(Vector3f::Zero(), cubeEdge(n), 128);
    factory->add(benchCloud(n));
    const auto octree = std::make_shared<Octree>();
    return [=](const WorkContext* context) {
        context != nullptr ? void((*factory)(*octree, *context)) : (*factory)(*octree);
    };
}

Run nestedAdd(std::int64_t n) {
    const auto factory = std::make_shared<NestedOctreeFactory>(Vector3f::Zero(), cubeEdge(n));
    return [=](const WorkContext* context) {
        const PointCloud& cloud = benchCloud(n);
        context != nullptr ? void(factory->add(cloud, *context)) : factory->add(cloud);
    };
}

Run nestedBuild(std::int64_t n) {
    const auto factory = std::make_shared<NestedOctreeFactory>(Vector3f::Zero(), cubeEdge(n));
    factory->add(benchCloud(n));
    const auto octree = std::make_shared<Octree>();
    return [=](const WorkContext* context) {
        context != nullptr ? void((*factory)(*octree, *context)) : (*factory)(*octree);
    };
}

/// As the first cloud, or moved by half of its size behind itself.
Run dynamicAdd(std::int64_t n, bool first) {
    const auto factory = std::make_shared<DynamicOctreeFactory>();
    if (!first) {
        factory->add(benchCloud(n));
    }
    const Vector3d shift = first ? Vector3d::Zero() : Vector3d::Constant(0.01);
    return [=](const WorkContext* context) {
        const PointCloud& cloud = benchCloud(n);
        context != nullptr ? void(factory->add(cloud, shift, *context)) : factory->add(cloud, shift);
    };
}

Run normals(std::int64_t n) {
    const auto cloud = std::make_shared<PointCloud>();
    cloud->positions() = benchCloud(n).positions();
    return [=](const WorkContext* context) {
        context != nullptr ? void(NormalEstimator::compute(*cloud, 16, *context))
                           : NormalEstimator::compute(*cloud, 16);
    };
}

Run surfaceDensity(std::int64_t n) {
    static std::shared_ptr<KDTree> tree;
    static std::int64_t size = 0;
    const std::vector<Vector3f>& points = benchCloud(n).positions();
    if (size != n) {
        tree = std::make_shared<KDTree>(points);
        size = n;
    }
    const auto density = std::make_shared<Density>();
    return [=, &points](const WorkContext* context) {
        const float r = ombrix::benchmarks::densityRadius(n);
        context != nullptr ? void(density->surfaceDensity_omp(points, *tree, r, *context))
                           : density->surfaceDensity_omp(points, *tree, r);
    };
}

const struct {
    const char* name;
    Make make;
} JOBS[] = {{"FullAdd", fullAdd},
            {"FullBuild", fullBuild},
            {"NestedAdd", nestedAdd},
            {"NestedBuild", nestedBuild},
            {"DynamicFirst", [](std::int64_t n) { return dynamicAdd(n, true); }},
            {"DynamicNext", [](std::int64_t n) { return dynamicAdd(n, false); }},
            {"Normals", normals},
            {"SurfaceDensity", surfaceDensity}};

const bool REGISTERED = [] {
    for (const auto& job : JOBS) {
        benchmark::RegisterBenchmark((std::string("StopLatency/") + job.name).c_str(),
                                     [make = job.make](benchmark::State& state) { stopLatency(state, make); })
            ->ArgName("points")
            ->Arg(10'000'000)
            ->Iterations(8)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((std::string("WatchedAndPlain/") + job.name).c_str(),
                                     [make = job.make](benchmark::State& state) { watchedCost(state, make); })
            ->ArgName("points")
            ->Arg(2'000'000)
            ->Iterations(3)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond);
    }
    return true;
}();

}  // namespace
