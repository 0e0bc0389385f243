#include "tree.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include <examples/common/console.h>
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

/// Seconds spent in the calls handed to it.
class Stopwatch {
public:
    template <class Work>
    void time(const Work& work) {
        const auto start = std::chrono::steady_clock::now();
        work();
        seconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    [[nodiscard]] double seconds() const { return seconds_; }

private:
    double seconds_ = 0.0;
};

void say(const Octree& octree, const char* kind, double seconds) {
    printRate(std::string(kind) + " octree", octree.size(), seconds);
    std::printf("%llu nodes, depth %u\n", static_cast<unsigned long long>(octree.keyCount()),
                octree.max_depth());
}

/// Adds the clouds in pieces, for the bar, and finishes the tree.
template <class Factory>
std::shared_ptr<Octree> buildWhole(Factory factory, const Scene& scene, const char* kind) {
    constexpr std::uint64_t pieceSize = 1u << 18;
    auto octree = std::make_shared<Octree>();
    Stopwatch watch;
    {
        Bar bar(std::string("building the ") + kind + " octree");
        std::uint64_t done = 0;
        PointCloud piece;
        for (const PointCloud& cloud : scene.clouds) {
            for (std::uint64_t first = 0; first < cloud.size(); first += pieceSize) {
                const std::uint64_t last = std::min(first + pieceSize, cloud.size()) - 1;
                piece = PointCloud();
                piece.push_back(cloud, first, last, false);
                watch.time([&] { factory.add(piece); });
                done += piece.size();
                bar.update(done, scene.size());
            }
        }
        watch.time([&] { factory(*octree); });
    }
    say(*octree, kind, watch.seconds());
    return octree;
}

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
    say(*octree, "dynamic", watch.seconds());
    return octree;
}

}  // namespace

std::shared_ptr<Octree> buildTree(const Scene& scene, const Options& options) {
    if (options.tree == TreeKind::dynamic)
        return buildDynamic(scene, options);
    const Vector3f origin = scene.box.min.cast<float>();
    const Vector3d size = scene.box.max - scene.box.min;
    // A cloud of one place still needs cells.
    const float extend = std::max(static_cast<float>(size.maxCoeff()) * 1.0001f, 1e-3f);
    if (options.tree == TreeKind::nested)
        return buildWhole(NestedOctreeFactory(origin, extend), scene, "nested");
    return buildWhole(FullOctreeFactory(origin, extend, options.leaf), scene, "full");
}

}  // namespace examples
