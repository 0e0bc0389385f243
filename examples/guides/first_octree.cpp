#include <cmath>
#include <cstdio>

#include <ombrix/core.h>

#include "expect.h"

using namespace ombrix::core;

int main() {
    // A wavy square of 250,000 points
    PointCloud cloud;
    cloud.reserve(250'000);
    for (int i = 0; i < 250'000; ++i) {
        Point p;
        p.position = Vector3f(float(i % 500), float(i / 500), 20.0f * std::sin(0.02f * float(i % 500)));
        p.scalar = p.position.z();
        cloud.push_back(p, true);  // true: positions, colours and scalars only, no fields
    }

    // Sort it into leaves of at most 1000 points
    FullOctreeFactory factory(cloud.aabb_min(), cloud.aabb_max(), 1000);
    factory.add(cloud);
    Octree tree;
    factory(tree);

    // Walk it
    std::uint64_t inLeaves = 0;
    for (const std::uint64_t key : tree.leaves()) {
        const Octree::Node& leaf = tree.node(key);
        inLeaves += leaf.pc->size();
    }
    std::printf("%llu points in %zu leaves, %u levels below the root\n",
                static_cast<unsigned long long>(inLeaves), tree.leaves().size(), tree.max_depth());
    expect(inLeaves == cloud.size() && tree.size() == cloud.size(), "leaves hold every point");

    // From a place to its leaf: the code of a point, cut at a depth, is the key of its cell
    const Vector3f place = Vector3f(123.0f, 456.0f, 0.0f) - tree.origin();
    const std::uint64_t code = factory.morton_key(place).key;
    std::uint64_t key = tree.rootKey();
    for (unsigned int depth = 1; depth <= Octree::MAX_DEPTH && tree.hasKey(node_key(code, depth)); ++depth) {
        key = node_key(code, depth);
    }
    const Octree::Aabb cube = tree.node_aabb(tree.node(key));
    std::printf("leaf %llu, edge %g, around (%g, %g)\n", static_cast<unsigned long long>(key),
                2.0 * double(cube.radius), double(tree.origin().x() + cube.center.x()),
                double(tree.origin().y() + cube.center.y()));
    expect(((place - cube.center).cwiseAbs().array() <= cube.radius).all(), "the place is in its cell");

    // The eight points nearest to it
    kNNSearch search(tree);
    std::vector<Point> nearest;
    search.search(place, -1, 8, nearest);
    expect(nearest.size() == 8, "eight neighbours");
    for (const Point& p : nearest) {
        std::printf("  %g away\n", double((p.position - place).norm()));
    }
}
