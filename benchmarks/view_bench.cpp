#include <map>
#include <random>

#include <benchmark/benchmark.h>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/view/frame_selection.h>
#include <ombrix/core/view/octree_query.h>
#include <ombrix/core/view/visibility.h>

#include <benchmarks/support/terrain.h>

namespace {

using namespace ombrix::core;

constexpr float EDGE = 1000.0f;

/// A tree of n nodes of 10,000 points each, without clouds: four of a node's octants are occupied, as on a
/// surface, level by level.
Octree& levelTree(std::int64_t n) {
    static std::map<std::int64_t, Octree> trees;
    Octree& octree = trees[n];
    if (octree.keyCount() == 0) {
        std::mt19937_64 random(4);
        std::vector<std::uint64_t> keys = {1};
        keys.reserve(static_cast<std::size_t>(n));
        for (std::size_t i = 0; keys.size() < static_cast<std::size_t>(n); ++i) {
            const unsigned int first = random() % 8;
            for (unsigned int octant = 0; octant < 4 && keys.size() < keys.capacity(); ++octant) {
                keys.push_back(child_key(keys[i], (first + 3 * octant) % 8));
            }
        }
        octree.setOriginTop(Vector3f::Zero(), Vector3f::Constant(EDGE));
        octree.set_hierarchy(keys, std::vector<std::uint64_t>(keys.size(), 10000));
    }
    return octree;
}

/// Frame i of a flight through the middle, a thousandth of the edge a frame.
ViewFrustum camera(int i) {
    ViewFrustum frustum;
    frustum.setIntrinsics(60.0f, 16.0f / 9.0f);
    frustum.setPixelSize(1080, 1920);
    frustum.setClipPlane(0.1f, 10.0f * EDGE);
    ViewFrustum::Pose pose = ViewFrustum::Pose::Identity();
    const float way = static_cast<float>(i % 2000) * 0.001f;
    pose.linear() = Eigen::AngleAxisf(way, Vector3f::UnitY()).toRotationMatrix();
    pose.translation() = EDGE * Vector3f(0.5f, 0.45f, way - 0.9f);
    frustum.setPosition(pose);
    return frustum;
}

void VisibilityUpdate(benchmark::State& state) {
    Visibility visibility(levelTree(state.range(0)));
    int frame = 0;
    std::size_t nodes = 0;
    for (auto _ : state) {
        visibility.update(camera(frame++), static_cast<std::uint64_t>(state.range(1)), 0.0f);
        nodes += visibility.getVisibleNodeKeys().size();
    }
    state.counters["nodes"] =
        benchmark::Counter(static_cast<double>(nodes), benchmark::Counter::kAvgIterations);
}

/// What of an update is the reset of all nodes' flags.
void VisibilityFlagWalk(benchmark::State& state) {
    Visibility visibility(levelTree(state.range(0)));
    for (auto _ : state) {
        visibility.update(camera(0), 0, 0.0f);
    }
}

void fly(benchmark::State& state, bool moving) {
    FrameSelection selection(levelTree(state.range(0)));
    int frame = moving ? 0 : 1000;
    std::size_t nodes = 0;
    std::size_t entered = 0;
    selection.update(camera(frame), static_cast<std::uint64_t>(state.range(1)), 0.0f);
    for (auto _ : state) {
        selection.update(camera(frame), static_cast<std::uint64_t>(state.range(1)), 0.0f);
        nodes += selection.keys().size();
        entered += selection.entered().size();
        frame += moving ? 1 : 0;
    }
    state.counters["nodes"] =
        benchmark::Counter(static_cast<double>(nodes), benchmark::Counter::kAvgIterations);
    state.counters["entered"] =
        benchmark::Counter(static_cast<double>(entered), benchmark::Counter::kAvgIterations);
}

void FrameSelectionMoving(benchmark::State& state) {
    fly(state, true);
}

void FrameSelectionStill(benchmark::State& state) {
    fly(state, false);
}

void treesAndBudgets(benchmark::internal::Benchmark* bench) {
    for (const std::int64_t nodes : {1'000, 10'000, 100'000, 1'000'000}) {
        for (const std::int64_t budget : {100'000, 1'000'000, 10'000'000}) {
            bench->Args({nodes, budget});
        }
    }
    bench->ArgNames({"nodes", "budget"})->Unit(benchmark::kMillisecond);
}

BENCHMARK(VisibilityUpdate)->Apply(treesAndBudgets);
BENCHMARK(VisibilityFlagWalk)
    ->ArgName("nodes")
    ->Arg(1'000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->Arg(1'000'000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(FrameSelectionMoving)->Apply(treesAndBudgets);
BENCHMARK(FrameSelectionStill)->Args({1'000'000, 10'000'000})->Unit(benchmark::kMillisecond);

/// The nested tree of a terrain of n points.
const Octree& terrainTree(std::int64_t n) {
    static std::map<std::int64_t, Octree> trees;
    Octree& octree = trees[n];
    if (octree.keyCount() == 0) {
        PointCloud cloud;
        cloud.positions() = ombrix::benchmarks::terrainPoints(static_cast<std::size_t>(n));
        NestedOctreeFactory factory(Vector3f::Zero(), Vector3f::Constant(EDGE));
        factory.add(cloud);
        factory(octree);
    }
    return octree;
}

/// Picks at places all over the viewport, from above the terrain.
void pick(benchmark::State& state, PickOrder order, double pixels) {
    const Octree& octree = terrainTree(state.range(0));
    const OctreeQuery query(octree);
    ViewFrustum frustum = camera(0);
    ViewFrustum::Pose pose = ViewFrustum::Pose::Identity();
    pose.linear() = Eigen::AngleAxisf(-2.45f, Vector3f::UnitX()).toRotationMatrix();
    pose.translation() = EDGE * Vector3f(0.5f, 0.1f, 0.8f);
    frustum.setPosition(pose);
    std::size_t hits = 0;
    std::size_t picks = 0;
    for (auto _ : state) {
        const double u = 0.9 * std::sin(0.7 * static_cast<double>(picks));
        const double v = 0.9 * std::cos(1.1 * static_cast<double>(picks));
        hits += query.pick(cursorBeam(frustum, u, v, pixels), order).point ? 1 : 0;
        ++picks;
    }
    state.counters["hits"] = static_cast<double>(hits) / static_cast<double>(picks);
}

void PickFrontmost(benchmark::State& state) {
    pick(state, PickOrder::FRONTMOST, 3.0);
}

void PickCentral(benchmark::State& state) {
    pick(state, PickOrder::CENTRAL, 20.0);
}

BENCHMARK(PickFrontmost)->ArgName("points")->Arg(3'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(PickCentral)->ArgName("points")->Arg(3'000'000)->Unit(benchmark::kMillisecond);

/// Regions that hold about a tenth of the points; the rate is points found.
template <class Search>
void region(benchmark::State& state, const Search& search) {
    const OctreeQuery query(terrainTree(state.range(0)));
    std::uint64_t found = 0;
    for (auto _ : state) {
        found += search(query).count;
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(found));
}

void PointsInBox(benchmark::State& state) {
    const Aabb box(Vector3d(300, 400, 0), Vector3d(620, 720, EDGE));
    region(state, [&](const OctreeQuery& query) { return query.inBox(box); });
}

void PointsInSphere(benchmark::State& state) {
    const Vector3d center(500, 500, 200);
    region(state, [&](const OctreeQuery& query) { return query.inSphere(center, 180.0); });
}

void PointsInFrustum(benchmark::State& state) {
    ViewFrustum frustum = camera(0);
    frustum.setIntrinsics(17.0f, 1.0f);
    region(state, [&](const OctreeQuery& query) { return query.inFrustum(frustum); });
}

BENCHMARK(PointsInBox)->ArgName("points")->Arg(3'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(PointsInSphere)->ArgName("points")->Arg(3'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(PointsInFrustum)->ArgName("points")->Arg(3'000'000)->Unit(benchmark::kMillisecond);

}  // namespace
