#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <set>
#include <vector>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/view/view_frustum.h>

namespace ombrix::test {

using Keys = std::vector<std::uint64_t>;

/// A tree of nodes with random masks and sizes in [0, 100]^3; half of them hold clouds without set positions.
inline core::Octree randomTree(unsigned int seed, std::size_t count) {
    std::mt19937_64 random(seed);
    std::set<std::uint64_t> keys = {1};
    Keys list = {1};
    while (list.size() < count) {
        const std::uint64_t child = core::child_key(list[random() % list.size()], random() % 8);
        if (core::node_depth(child) <= 8 && keys.insert(child).second) {
            list.push_back(child);
        }
    }
    Keys sizes;
    for (std::size_t i = 0; i < count; ++i) {
        sizes.push_back(random() % 100);
    }
    core::Octree octree;
    octree.setOriginTop(core::Vector3f(0, 0, 0), core::Vector3f(100, 100, 100));
    octree.set_hierarchy(list, sizes);
    for (auto& [key, node] : octree.nodes()) {
        if (random() % 2 == 0) {
            node.pc = std::make_shared<core::PointCloud>();
            node.pc->resize(random() % 100);
        }
    }
    return octree;
}

/// A camera around the tree that looks inside; every third one is orthographic.
inline core::ViewFrustum randomCamera(unsigned int seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    const auto vector = [&] {
        const float x = uniform(random);
        const float y = uniform(random);
        return core::Vector3f(x, y, uniform(random));
    };
    core::ViewFrustum frustum;
    frustum.setIntrinsics(50.0f, 1.4f);
    frustum.setPixelSize(1000, 1400);
    frustum.setClipPlane(0.5f, 400.0f);
    const core::Vector3f centre = core::Vector3f(50, 50, 50) + 120.0f * vector();
    core::ViewFrustum::Pose pose = core::ViewFrustum::Pose::Identity();
    const core::Vector3f z = (core::Vector3f(50, 50, 50) + 20.0f * vector() - centre).normalized();
    const core::Vector3f x = core::Vector3f(0.3f, 0.9f, 0.1f).cross(z).normalized();
    pose.linear() << x, z.cross(x), z;
    pose.translation() = centre;
    frustum.setPosition(pose);
    frustum.setOrthographic(seed % 3 == 0);
    frustum.setOrthographicSize(40.0f);
    return frustum;
}

}  // namespace ombrix::test
