#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include <ombrix/core.h>

#include "expect.h"

using namespace ombrix::core;

// Runs some work on a cloud and prints what it took
template <class Work>
void measure(const char* name, std::uint64_t points, const Work& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    std::printf("%-8s %6.2f s %8.1f million points/s\n", name, took.count(),
                double(points) / took.count() * 1e-6);
}

int main(int count, char** words) {
    const std::uint64_t points = count > 1 ? std::strtoull(words[1], nullptr, 10) : 200'000;
    PointCloud cloud;
    cloud.resize(points);
    std::uint32_t state = 1;
    for (Vector3f& p : cloud.positions()) {
        state = state * 1664525u + 1013904223u;
        p.x() = float(state >> 8) * 0x1p-14f;
        state = state * 1664525u + 1013904223u;
        p.y() = float(state >> 8) * 0x1p-14f;
        p.z() = 20.0f * std::sin(0.01f * p.x()) + 10.0f * std::cos(0.017f * p.y());
    }

    Octree full;
    measure("full", points, [&] {
        FullOctreeFactory factory(cloud.aabb_min(), cloud.aabb_max(), 128);
        factory.add(cloud);
        factory(full);
    });
    Octree nested;
    measure("nested", points, [&] {
        NestedOctreeFactory factory(cloud.aabb_min(), cloud.aabb_max());
        factory.add(cloud);
        factory(nested);
    });
    DynamicOctreeFactory growing;
    measure("dynamic", points, [&] { growing.add(cloud, Vector3d::Zero()); });
    std::uint64_t sortedPoints = 0;
    measure("sorted", points, [&] {
        const PointCloudMorton sorted(cloud, full.origin(), full.extend());
        sortedPoints = sorted.size();
    });
    expect(full.size() == points && nested.size() == points && growing.size() == points &&
               sortedPoints == points,
           "every builder keeps every point");
}
