#include <algorithm>
#include <memory>
#include <vector>

#include <ombrix/core.h>

#include "benchmarks/ours/ours.h"
#include "benchmarks/support/answers.h"
#include "benchmarks/support/bench_cloud.h"
#include "benchmarks/support/rows.h"
#include "benchmarks/support/slices.h"
#include "benchmarks/support/threads.h"

namespace ombrix::benchmarks::ours {

using namespace core;

namespace {

/// The builder lives as long as the tree: freeing it is not part of the work.
template <class Factory>
struct Built {
    Factory factory;
    Octree octree;

    template <class... Arguments>
    explicit Built(const Arguments&... arguments) : factory(arguments...) {}
};

template <class Factory, class... Arguments>
std::unique_ptr<Built<Factory>> built(const PointCloud& cloud, const Arguments&... arguments) {
    auto tree = std::make_unique<Built<Factory>>(arguments...);
    tree->factory.add(cloud);
    tree->factory(tree->octree);
    return tree;
}

/// Sets the counter "levels": how many nodes there are from the root to where a point is kept, on average.
void countLevels(benchmark::State& state, const Octree& octree) {
    double levels = 0;
    double points = 0;
    for (const auto& [key, node] : octree.nodes()) {
        const auto kept = static_cast<double>(node.pc->size());
        points += kept;
        levels += kept * (1.0 + node_depth(key));
    }
    state.counters["levels"] = levels / points;
}

}  // namespace

void fullOctree(int threads) {
    const auto prepare = [](std::int64_t n) {
        return [&cloud = benchCloud(n), edge = cubeEdge(n)] {
            return built<FullOctreeFactory>(cloud, Vector3f::Zero().eval(), edge, LEAF_CAPACITY);
        };
    };
    measure(
        rows::FULL_OCTREE, libraryName(threads), onThreads(threads, prepare),
        [](std::int64_t, const auto& tree) {
            std::uint64_t points = 0;
            std::uint64_t largest = 0;
            for (const auto& [key, node] : tree->octree.nodes()) {
                points += node.pc->size();
                largest = std::max(largest, node.pc->size());
            }
            return leafAnswer(points, largest);
        },
        Pace::QUICK, [](auto& state, const auto& tree) { countLevels(state, tree->octree); });
}

void nestedOctree() {
    measure(
        rows::NESTED_OCTREE, "ombrix",
        [](std::int64_t n) {
            return [&cloud = benchCloud(n), edge = cubeEdge(n)] {
                return built<NestedOctreeFactory>(cloud, Vector3f::Zero().eval(), edge);
            };
        },
        [](std::int64_t, const auto& tree) { return Answer{static_cast<double>(tree->octree.size())}; },
        Pace::QUICK, [](auto& state, const auto& tree) { countLevels(state, tree->octree); });
}

void dynamicOctree(int threads) {
    const auto prepare = [](std::int64_t n) {
        const auto slices = std::make_shared<std::vector<PointCloud>>(tenSlices(benchCloud(n)));
        return [slices] {
            auto factory = std::make_unique<DynamicOctreeFactory>();
            for (const PointCloud& slice : *slices) {
                factory->add(slice);
            }
            factory->factory();
            return factory;
        };
    };
    measure(
        rows::DYNAMIC_OCTREE, libraryName(threads), onThreads(threads, prepare),
        [](std::int64_t, const auto& factory) {
            return Answer{static_cast<double>(factory->octree()->size() + factory->droppedPoints())};
        },
        Pace::QUICK, [](auto& state, const auto& factory) { countLevels(state, *factory->octree()); });
}

void kdTreeBuild() {
    measure(
        rows::KDTREE_BUILD, "ombrix",
        [](std::int64_t n) {
            return [&points = benchPoints(n)] { return std::make_unique<KDTree>(points); };
        },
        [](std::int64_t n, const auto& tree) {
            Answer answer;
            std::vector<std::size_t> indices;
            std::vector<float> sqDists;
            for (const std::size_t i : sampledIndices(benchPoints(n).size())) {
                tree->knnSearch(benchPoints(n)[i], NEIGHBOURS, indices, sqDists);
                answer.push_back(sqDists.back());
            }
            return answer;
        });
}

}  // namespace ombrix::benchmarks::ours
