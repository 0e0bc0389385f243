// Builds a nested octree of which at most a few node clouds are in memory at a time, and reads it all again.
//
//   paged_octree [<points, 3000000>] [<clouds in memory, 16>] [<page file>]
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <random>
#include <string>

#include <ombrix/core.h>

#include "paged_octree.h"

namespace {

using namespace ombrix::core;

constexpr float EDGE = 1000.0f;

/// Points on hills in the cube [0, EDGE]^3; the scalar numbers them.
PointCloud hills(std::uint64_t count) {
    std::mt19937 random(1);
    std::uniform_real_distribution<float> uniform(0.0f, 1.0f);
    PointCloud cloud;
    cloud.resize(count);
    for (std::uint64_t i = 0; i < count; ++i) {
        const float x = uniform(random);
        const float y = uniform(random);
        cloud.positions()[i] = Vector3f(x, y, 0.5f + 0.1f * std::sin(9 * x) * std::cos(7 * y)) * EDGE;
        cloud.scalars()[i] = static_cast<float>(i);
    }
    return cloud;
}

bool run(std::uint64_t count, std::size_t bound, const std::string& path) {
    NestedOctreeFactory factory(Vector3f::Zero(), EDGE);
    factory.add(hills(count));
    paged::PagedOctree octree(path, bound);
    factory(octree);
    octree.finalize(true, octree.rootKey());
    std::printf("%llu points in %llu nodes, %.1f MB in %llu pages of %s\n",
                static_cast<unsigned long long>(octree.size()),
                static_cast<unsigned long long>(octree.keyCount()),
                static_cast<double>(octree.fileBytes()) / 1e6,
                static_cast<unsigned long long>(octree.pagesWritten()), path.c_str());

    // Level by level, as a viewer would ask for it
    std::uint64_t total = 0;
    std::array<std::uint64_t, Octree::MAX_DEPTH + 1> atDepth{};
    for (const std::uint64_t key : octree.branch(octree.rootKey())) {
        if (const auto cloud = octree.node_pc(key)) {
            atDepth[node_depth(key)] += cloud->size();
            total += cloud->size();
        }
    }
    for (unsigned int depth = 0; depth <= octree.max_depth(); ++depth) {
        std::printf("  depth %2u: %llu points\n", depth, static_cast<unsigned long long>(atDepth[depth]));
    }
    std::printf("%llu points came back; at most %zu of %zu clouds in memory\n",
                static_cast<unsigned long long>(total), octree.mostHeld(), bound);
    return total == count && octree.mostHeld() <= bound;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const std::uint64_t count = argc > 1 ? std::stoull(argv[1]) : 3'000'000;
        const std::size_t bound = argc > 2 ? std::stoull(argv[2]) : 16;
        const std::string path =
            argc > 3 ? argv[3] : (std::filesystem::temp_directory_path() / "paged_octree.pages").string();
        const bool whole = run(count, bound, path);
        std::filesystem::remove(path);
        return whole ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "paged_octree: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
