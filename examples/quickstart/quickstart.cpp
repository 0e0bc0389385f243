// Fills a cloud, builds an octree over it and picks the nodes that a camera should draw.
#include <cmath>
#include <iostream>

#include <ombrix/core.h>

using namespace ombrix::core;

int main() {
    PointCloud cloud;
    for (int i = 0; i < 1'000'000; ++i) {
        Point p;
        p.position = Vector3f(float(i % 1000), float(i / 1000), 50.0f * std::sin(0.01f * float(i % 1000)));
        cloud.push_back(p, true);
    }

    FullOctreeFactory factory(cloud.aabb_min(), cloud.aabb_max(), 1000);
    factory.add(cloud);
    Octree tree;
    factory(tree);

    ViewFrustum camera;  // looks along +z, from 800 below the middle; positions are relative to the tree
    camera.setIntrinsics(60.0f, 16.0f / 9.0f);
    camera.setPixelSize(1080, 1920);
    camera.setClipPlane(1.0f, 5000.0f);
    camera.setPosition(ViewFrustum::Pose(Eigen::Translation3f(500.0f, 500.0f, -800.0f)));

    Visibility visibility(tree);
    visibility.update(camera, 200'000, 2.0f);
    std::size_t points = 0;
    for (const std::uint64_t key : visibility.getVisibleNodeKeys())
        points += tree.node_pc(key)->positions().size();  // these are what to draw
    std::cout << points << " points to draw in " << visibility.getVisibleNodeKeys().size() << " nodes\n";
}
