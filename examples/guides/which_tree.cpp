#include <cmath>
#include <cstdio>

#include <ombrix/core.h>

#include "expect.h"

using namespace ombrix::core;

int main() {
    PointCloud cloud;
    for (int i = 0; i < 300'000; ++i) {
        Point p;
        p.position = Vector3f(float(i % 600), float(i / 600), 30.0f * std::sin(0.02f * float(i % 600)));
        cloud.push_back(p, true);
    }

    // Full: every point in a leaf. For analysis, picking, export cell by cell
    FullOctreeFactory fullFactory(cloud.aabb_min(), cloud.aabb_max(), 500);
    fullFactory.add(cloud);
    Octree full;
    fullFactory(full);

    // Nested: a sample in every node. For drawing
    NestedOctreeFactory nestedFactory(cloud.aabb_min(), cloud.aabb_max());
    nestedFactory.add(cloud);
    Octree nested;
    nestedFactory(nested);

    // Dynamic: no box known before, clouds one after another. For scanning and import
    DynamicOctreeFactory growing(65536);
    for (int scan = 0; scan < 3; ++scan) {
        growing.add(cloud, Vector3d(550.0 * scan, 0.0, 0.0));
    }

    // Sorted: no nodes at all, every node of every depth is a range
    PointCloudMorton sorted(cloud, full.origin(), full.extend());

    for (const auto& [name, tree] : {std::pair("full", &full), std::pair("nested", &nested)}) {
        std::printf("%s: %llu points, %llu of them in the root\n", name,
                    static_cast<unsigned long long>(tree->size()),
                    static_cast<unsigned long long>(tree->size(0)));
    }
    expect(full.size() == cloud.size() && nested.size() == cloud.size(), "no point is lost or doubled");
    expect(full.size(0) == 0 && nested.size(0) > 0, "the root of a full tree is empty");
    const auto [first, last] = sorted.range(full.first_leaf());
    expect(last - first == full.node(full.first_leaf()).pc->size(), "a leaf is a range");

    // From one to the other
    Octree converted;
    OctreeConverter::nestedOctree2FullOctree(nested, -1, 500, converted, false);
    expect(converted.keyCount() == full.keyCount(), "the same points give the same leaves");
    const std::shared_ptr<NestedOctreeFactory> drawn =
        growing.convert();  // empties the growing tree's clouds
    Octree ofAllScans;
    (*drawn)(ofAllScans);
    expect(ofAllScans.size() + growing.droppedPoints() == 3 * cloud.size(), "all scans in one tree to draw");
}
