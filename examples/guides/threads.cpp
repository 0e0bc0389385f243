#include <cstdio>
#include <stop_token>
#include <thread>

#include <tbb/global_control.h>
#include <tbb/task_arena.h>

#include <ombrix/core.h>

#include "expect.h"

using namespace ombrix::core;

PointCloud scattered(std::uint64_t count) {
    PointCloud cloud;
    cloud.resize(count);
    std::uint32_t state = 1;
    for (Vector3f& p : cloud.positions()) {
        for (int axis = 0; axis < 3; ++axis) {
            state = state * 1664525u + 1013904223u;
            p[axis] = float(state >> 8) * 0x1p-24f;
        }
    }
    return cloud;
}

Octree build(const PointCloud& cloud) {
    FullOctreeFactory factory(Vector3f::Zero(), 1.0f, 200);
    factory.add(cloud);
    Octree tree;
    factory(tree);
    return tree;
}

bool sameTree(const Octree& a, const Octree& b) {
    if (a.keyCount() != b.keyCount()) {
        return false;
    }
    for (const auto& [key, node] : a.nodes()) {
        if (node.pc->positions() != b.node(key).pc->positions()) {
            return false;
        }
    }
    return true;
}

int main() {
    const PointCloud cloud = scattered(200'000);

    // One thread, for everything inside of this scope
    Octree first;
    {
        const tbb::global_control one(tbb::global_control::max_allowed_parallelism, 1);
        first = build(cloud);
    }

    // Two threads, for what runs in this arena
    Octree second;
    tbb::task_arena arena(2);
    arena.execute([&] { second = build(cloud); });
    expect(sameTree(first, second), "the tree is the same on any number of threads");

    // A thread of its own, so that the window goes on drawing
    Octree background;
    std::thread worker([&] { background = build(cloud); });
    worker.join();
    expect(sameTree(first, background), "and on whatever thread");

    // Work that can be watched, stopped, and kept to an arena
    FullOctreeFactory factory(Vector3f::Zero(), 1.0f, 200);
    std::stop_source source;
    WorkContext context{source.get_token(), {}, &arena};
    context.progress = [](double fraction) { std::printf("\r%3.0f%%", 100.0 * fraction); };
    expect(factory.add(cloud, context), "true: it was not stopped");
    source.request_stop();
    Octree stopped;
    expect(!factory(stopped, context) && stopped.keyCount() == 0,
           "false: stopped, and nothing is half built");

    // Many readers of one tree that nobody changes
    const auto& points = cloud.positions();
    const KDTree tree(points);
    std::vector<std::size_t> counts(2);
    std::vector<std::thread> readers;
    for (std::size_t reader = 0; reader < counts.size(); ++reader) {
        readers.emplace_back([&, reader] {
            for (std::size_t i = reader; i < 1000; i += counts.size()) {
                counts[reader] += tree.radiusCount(points[i], 0.05f);
            }
        });
    }
    for (std::thread& reader : readers) {
        reader.join();
    }
    std::printf("%zu and %zu neighbours\n", counts[0], counts[1]);
    expect(counts[0] > 0 && counts[1] > 0, "both found some");
}
