#include "tree.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include <examples/common/console.h>
#include <examples/common/tree_building.h>
#include <ombrix/core/octree/dynamic_octree_factory.h>
#include <ombrix/core/octree/full_octree_factory.h>
#include <ombrix/core/octree/nested_octree_factory.h>

namespace examples {

using ombrix::core::DynamicOctreeFactory;
using ombrix::core::FullOctreeFactory;
using ombrix::core::NestedOctreeFactory;
using ombrix::core::Octree;
using ombrix::core::PointCloud;
using ombrix::core::Vector3d;
using ombrix::core::Vector3f;

namespace {

/// The points of a cloud in slices of about the same number along its longer side.
std::vector<PointCloud> slices(const PointCloud& cloud, const ombrix::core::Aabb& box, unsigned count) {
    const Vector3d size = box.max - box.min;
    const int axis = size.x() >= size.y() ? 0 : 1;
    std::vector<std::uint64_t> order(cloud.size());
    for (std::uint64_t i = 0; i < order.size(); ++i)
        order[i] = i;
    // What is not a number goes first, so that the order is one.
    const auto key = [&](std::uint64_t i) {
        const float value = cloud.positions()[i][axis];
        return value == value ? value : -3.4028235e38f;
    };
    std::sort(order.begin(), order.end(),
              [&](std::uint64_t a, std::uint64_t b) { return std::pair(key(a), a) < std::pair(key(b), b); });

    std::vector<PointCloud> parts;
    for (unsigned part = 0; part < count; ++part) {
        const auto first = order.begin() + static_cast<std::ptrdiff_t>(order.size() * part / count);
        const auto last = order.begin() + static_cast<std::ptrdiff_t>(order.size() * (part + 1) / count);
        if (first != last)
            parts.emplace_back().push_back(cloud, std::vector<std::uint64_t>(first, last), false);
    }
    return parts;
}

std::shared_ptr<Octree> buildDynamic(const Scene& scene, const Options& options) {
    std::vector<PointCloud> cut;
    if (scene.clouds.size() == 1)
        cut = slices(scene.clouds.front(), scene.box, options.slices);
    const std::vector<PointCloud>& parts = cut.empty() ? scene.clouds : cut;

    DynamicOctreeFactory factory(static_cast<std::uint64_t>(options.leaf));
    struct State {
        std::uint64_t points;
        std::uint64_t nodes;
        double edge;
    };
    std::vector<State> states;
    Stopwatch watch;
    {
        Bar bar("growing the dynamic octree");
        std::uint64_t done = 0;
        for (const PointCloud& part : parts) {
            watch.time([&] { factory.add(part); });
            done += part.size();
            bar.update(done, scene.size());
            states.push_back(
                {part.size(), factory.octree()->keyCount(), static_cast<double>(factory.octree()->extend())});
        }
        watch.time([&] { factory.factory(); });
    }
    std::printf("\n%-6s %10s %10s %12s\n", "part", "points", "nodes", "root edge");
    for (std::size_t i = 0; i < states.size(); ++i)
        std::printf("%-6zu %10llu %10llu %12g\n", i + 1, static_cast<unsigned long long>(states[i].points),
                    static_cast<unsigned long long>(states[i].nodes), states[i].edge);
    std::printf("%llu points left out as they fell into one finest cell with another\n\n",
                static_cast<unsigned long long>(factory.droppedPoints()));
    auto octree = factory.octree();
    sayTree(*octree, "dynamic", watch.seconds());
    return octree;
}

}  // namespace

std::shared_ptr<Octree> buildTree(const Scene& scene, const Options& options) {
    if (options.tree == TreeKind::dynamic)
        return buildDynamic(scene, options);
    const Vector3f origin = scene.box.min.cast<float>();
    const float extend = rootEdge(scene);
    if (options.tree == TreeKind::nested) {
        NestedOctreeFactory factory(origin, extend);
        return buildWhole(factory, scene, "nested");
    }
    FullOctreeFactory factory(origin, extend, options.leaf);
    return buildWhole(factory, scene, "full");
}

}  // namespace examples
