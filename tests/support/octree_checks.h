#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <ombrix/core/octree/full_octree_factory.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/points/point_cloud.h>

namespace ombrix::test {

/// A point as plain numbers, so that clouds can be compared as multisets: x, y, z, scalar, red.
using Row = std::array<double, 5>;

/// n points in [low, high]^3 with colours, and scalars that number the points from `firstScalar` on.
inline core::PointCloud numberedCloud(std::size_t n, float low, float high, unsigned int seed,
                                      std::size_t firstScalar = 0) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(low, high);
    core::PointCloud cloud;
    cloud.resize(n);
    for (std::size_t i = 0; i < n; ++i) {
        const float x = uniform(random);
        const float y = uniform(random);
        cloud.positions()[i] = core::Vector3f(x, y, uniform(random));
        cloud.colors()[i] = core::ColorRGB(static_cast<unsigned char>(i % 256), 1, 2);
        cloud.scalars()[i] = static_cast<float>(firstScalar + i);
    }
    return cloud;
}

/// Gives the cloud a "distance" field equal to its scalars.
inline void addDistances(core::PointCloud& cloud) {
    cloud.fields().addField<float>(core::FIELD_DISTANCE).first->data() = cloud.scalars();
}

inline void appendRows(const core::PointCloud& cloud, const core::Vector3d& shift, std::vector<Row>& rows) {
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        const core::Vector3d p = cloud.positions()[i].cast<double>() + shift;
        rows.push_back({p.x(), p.y(), p.z(), i < cloud.scalars().size() ? cloud.scalars()[i] : 0.0,
                        i < cloud.colors().size() ? static_cast<double>(cloud.colors()[i].r) : 0.0});
    }
}

/// The points as a sorted list.
inline std::vector<Row> rowsOf(const core::PointCloud& cloud,
                               const core::Vector3d& shift = core::Vector3d::Zero()) {
    std::vector<Row> rows;
    appendRows(cloud, shift, rows);
    std::sort(rows.begin(), rows.end());
    return rows;
}

/// The points of all nodes, relative to the tree's origin moved by `shift`, as a sorted list.
inline std::vector<Row> rowsOf(const core::Octree& octree,
                               const core::Vector3d& shift = core::Vector3d::Zero()) {
    std::vector<Row> rows;
    for (const auto& [key, node] : octree.nodes()) {
        if (node.pc) {
            const core::Vector3d corner =
                (node.flags & 8) != 0 ? octree.node_origin(node).cast<double>() : core::Vector3d(0, 0, 0);
            appendRows(*node.pc, corner + shift, rows);
        }
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

/// The nodes under `root` form a tree: every node has its key and hangs on its parent's mask, every bit of a
/// mask names a node, and nothing lies below `deepest`.
inline void expectMasksAgree(const core::Octree& octree, unsigned int deepest = core::Octree::MAX_DEPTH,
                             std::uint64_t root = 1) {
    for (const auto& [key, node] : octree.nodes()) {
        EXPECT_EQ(node.key, key);
        EXPECT_LE(core::node_depth(key), deepest);
        if (key != root) {
            const auto parent = octree.nodes().find(core::parent_key(key));
            ASSERT_NE(parent, octree.nodes().end()) << "no parent of " << key;
            EXPECT_NE(parent->second.children >> (key & 7) & 1, 0) << "parent's mask lacks " << key;
        }
        for (unsigned int octant = 0; octant < 8; ++octant) {
            if ((node.children >> octant & 1) != 0) {
                EXPECT_TRUE(octree.hasKey(core::child_key(key, octant))) << "mask of " << key;
            }
        }
    }
}

/// The same nodes with the same points in the same order.
inline void expectSameNodes(const core::Octree& a, const core::Octree& b) {
    ASSERT_EQ(a.keyCount(), b.keyCount());
    for (const auto& [key, node] : a.nodes()) {
        ASSERT_TRUE(b.hasKey(key));
        ASSERT_EQ(node.children, b.node(key).children);
        ASSERT_EQ(node.pc->positions(), b.node(key).pc->positions());
        ASSERT_EQ(node.pc->scalars(), b.node(key).pc->scalars());
    }
}

/// The full tree of a cloud whose positions are relative to the origin.
inline core::Octree fullTree(const core::PointCloud& cloud, float edge, unsigned int capacity,
                             const core::Vector3f& origin = core::Vector3f::Zero()) {
    core::FullOctreeFactory factory(origin, edge, capacity);
    factory.add(cloud, origin.cast<double>());
    core::Octree octree;
    factory(octree);
    return octree;
}

/// Every point lies in its node's cube, up to `tolerance`.
inline void expectPointsInBoxes(const core::Octree& octree, float tolerance) {
    for (const auto& [key, node] : octree.nodes()) {
        if (!node.pc) {
            continue;
        }
        const core::Octree::Aabb box = octree.node_aabb(node);
        const core::Vector3f offset =
            (node.flags & 8) != 0 ? octree.node_origin(node) : core::Vector3f(0, 0, 0);
        for (const core::Vector3f& p : node.pc->positions()) {
            const float outside = ((p + offset) - box.center).cwiseAbs().maxCoeff() - box.radius;
            ASSERT_LE(outside, tolerance) << "node " << key;
        }
    }
}

}  // namespace ombrix::test
