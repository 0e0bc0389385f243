#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

#include <ombrix/core.h>

#include "expect.h"

using namespace ombrix::core;

// A node as the shader reads it
struct GpuNode {
    std::uint32_t childMask;
    std::uint32_t childOffset;
};

// The shader's loop, step by step
int shaderDepth(const std::vector<GpuNode>& nodes, Vector3f p, float extend) {
    if (nodes.empty()) {
        return 0;
    }
    std::uint32_t index = 0;
    float edge = extend;
    Vector3f corner = Vector3f::Zero();
    int depth = 0;
    for (; depth < 21; ++depth) {
        edge *= 0.5f;
        const bool x = p.x() >= corner.x() + edge;
        const bool y = p.y() >= corner.y() + edge;
        const bool z = p.z() >= corner.z() + edge;
        const std::uint32_t octant = 4u * x + 2u * y + z;
        const GpuNode node = nodes[index];
        if ((node.childMask >> octant & 1u) == 0u) {
            break;
        }
        const std::uint32_t before = node.childMask & ((1u << octant) - 1u);
        index += node.childOffset + std::uint32_t(std::popcount(before));
        corner += edge * Vector3f(x, y, z);
    }
    return depth;
}

int main() {
    PointCloud cloud;
    for (int i = 0; i < 600'000; ++i) {
        Point p;
        p.position = Vector3f(float(i % 1000), float(i / 1000), 40.0f * std::sin(0.01f * float(i % 1000)));
        cloud.push_back(p, true);
    }
    NestedOctreeFactory factory(cloud.aabb_min(), cloud.aabb_max());
    factory.add(cloud);
    Octree tree;
    factory(tree);

    // The camera, relative to the tree's origin, looking along +z of its pose
    ViewFrustum camera;
    camera.setIntrinsics(45.0f, 16.0f / 9.0f);
    camera.setPixelSize(1080, 1920);
    camera.setClipPlane(1.0f, 5000.0f);
    camera.setPosition(ViewFrustum::Pose(Eigen::Translation3f(500.0f, 300.0f, -600.0f)));

    // What to draw: at most 400,000 points, nodes of more than 20 pixels
    Visibility visibility(tree);
    const std::uint64_t points = visibility.update(camera, 400'000, 20.0f);
    for (const std::uint64_t key : visibility.getVisibleNodeKeys()) {
        const auto node = tree.node_pc(key);
        // upload node->positions() once, then draw the buffer of `key` every frame
        expect(!node || node->size() > 0, "a selected node has points or none");
    }
    std::printf("%llu points in %zu nodes\n", static_cast<unsigned long long>(points),
                visibility.getVisibleNodeKeys().size());
    expect(points > 60'000 && visibility.getVisibleNodeKeys().size() > 1, "more than the root is drawn");

    // The same from frame to frame, for a camera that moves
    FrameSelection selection(tree);
    selection.setHysteresis(0.1f);
    for (const float x : {100.0f, 300.0f, 500.0f, 700.0f, 900.0f}) {
        camera.setPosition(ViewFrustum::Pose(Eigen::Translation3f(x, 300.0f, -300.0f)));
        selection.update(camera, 250'000, 20.0f);
        std::printf("%zu nodes to upload, %zu to drop\n", selection.entered().size(),
                    selection.left().size());
    }
    expect(selection.keys().size() > 1, "it selects as Visibility does");

    // The point under the cursor, a quarter of the way from the viewport's centre to its right border
    const PickResult hit = OctreeQuery(tree).pick(cursorBeam(camera, 0.25, 0.0, 3.0));
    expect(hit.point.has_value() && hit.missing.empty(), "a point is there, and all nodes are loaded");
    const Vector3d picked = tree.origin().cast<double>() + hit.point->position;
    std::printf("picked (%g, %g, %g)\n", picked.x(), picked.y(), picked.z());

    // The hierarchy buffer: one entry per selected node, breadth first
    visibility.buildHierarchy(true);
    std::vector<GpuNode> buffer;
    for (const Visibility::HNode& node : visibility.getHierarchy()) {
        buffer.push_back({node.childMask, std::uint32_t(node.childOffset)});
    }

    // At every point drawn, the shader's loop finds the deepest selected cell around it
    const std::vector<std::uint64_t> selected = visibility.getVisibleNodeKeys();
    for (std::size_t i = 0; i < cloud.size(); i += 997) {
        const Vector3f p = cloud.positions()[i] - tree.origin();
        const std::uint64_t code = factory.morton_key(p).key;
        int deepest = 0;
        while (deepest < 21 && std::find(selected.begin(), selected.end(),
                                         node_key(code, unsigned(deepest + 1))) != selected.end()) {
            ++deepest;
        }
        expect(shaderDepth(buffer, p, tree.extend()) == deepest, "the lookup agrees with the keys");
    }
}
