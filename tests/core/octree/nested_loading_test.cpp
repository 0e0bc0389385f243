#include <vector>

#include <gtest/gtest.h>

#include <ombrix/core/octree/nested_octree_factory.h>

#include "tests/core/octree/nested_reference.h"
#include "tests/support/clouds.h"
#include "tests/support/octree_checks.h"

namespace {

using namespace ombrix::core;
using ombrix::test::numbered;
using ombrix::test::rowsOf;
using ombrix::test::uniformPoints;

constexpr float EDGE = 100.0f;

TEST(NestedLoading, MakesTheNodeReachableThroughGrids) {
    NestedOctreeFactory factory(Vector3f::Zero(), EDGE);
    const std::uint64_t key = node_key(0x1234567012345670, 3);
    PointCloud cloud = numbered(uniformPoints(10, 1.0f));
    factory.add_node_pc(key, cloud, Vector3d(1, 2, 3));
    for (const std::uint64_t above : {key >> 3, key >> 6, std::uint64_t{1}}) {
        EXPECT_TRUE(factory.nodes().at(above).expanded);
        EXPECT_EQ(factory.nodes().at(above).grid.size(), 0u);
    }
    EXPECT_FALSE(factory.nodes().at(key).expanded);
    EXPECT_EQ(factory.maxDepth(), 2u);

    factory.add_node_pc(key, cloud);  // replaces
    EXPECT_EQ(factory.size(), 10u);
    for (const std::uint64_t nonsense : {0u, 3u, 100'000u, 1u << 31}) {
        factory.add_node_pc(nonsense, cloud);
    }
    EXPECT_EQ(factory.size(), 10u);

    Octree octree;
    factory(octree);
    ombrix::test::expectMasksAgree(octree);
    EXPECT_EQ(octree.keyCount(), 4u);
    EXPECT_EQ(rowsOf(octree), rowsOf(cloud));
}

TEST(NestedLoading, AnEmptyCloudTakesALeafOutOfTheTreeUntilPointsComeBack) {
    NestedOctreeFactory factory(Vector3f::Zero(), EDGE);
    factory.add_node_pc(9, numbered(uniformPoints(5, EDGE)));
    factory.add_node_pc(9, PointCloud());
    EXPECT_EQ(factory.nodes().at(1).children, 0);
    EXPECT_EQ(factory.size(), 0u);

    // Two points of one cell in octant 1: the second goes down to the node that is there
    const Point p = numbered({Vector3f(1, 1, 99)}).point(0);
    factory.add_local(p);
    factory.add_local(p);
    EXPECT_EQ(factory.nodes().at(1).children, 1u << 1);
    EXPECT_EQ(factory.nodes().at(9).points.size(), 1u);
}

TEST(NestedLoading, LosesNothingWhenALoadedBucketIsExpanded) {
    NestedOctreeFactory factory(Vector3f::Zero(), EDGE);
    PointCloud all = numbered(uniformPoints(100'000, EDGE));
    PointCloud upper;
    PointCloud lower;
    upper.push_back(all, 0, 64'999, true);
    lower.push_back(all, 65'000, 69'999, true);
    factory.add_node_pc(1, upper);
    Octree::Node inner;
    inner.key = 8;
    inner.children = 1;
    factory.add_node(inner);
    EXPECT_TRUE(factory.nodes().at(8).expanded);
    factory.add_node_pc(64, lower);  // expands the root's bucket on the way
    EXPECT_TRUE(factory.nodes().at(1).expanded);
    factory.add_node_pc(8, PointCloud());  // an inner node that has children stays in its parent's mask
    EXPECT_NE(factory.nodes().at(1).children & 1, 0);

    const std::uint64_t held = factory.size();
    PointCloud rest;
    rest.push_back(all, 70'000, 99'999, true);
    factory.add(rest);
    EXPECT_EQ(factory.size(), held + 30'000);
    Octree octree;
    factory(octree);
    EXPECT_EQ(octree.size(), held + 30'000);
}

/// The nodes of a tree can be loaded into a factory again, and more points follow.
TEST(NestedLoading, AReloadedTreeGrowsOn) {
    const PointCloud cloud = numbered(uniformPoints(250'000, EDGE));
    NestedOctreeFactory first(Vector3f::Constant(5.0f), EDGE);
    first.add(cloud);
    Octree stored;
    first(stored);

    NestedOctreeFactory second(stored.origin(), stored.top());
    for (const auto& [key, node] : stored.nodes()) {
        second.add_node(node);
    }
    for (const std::uint64_t key : stored.branch(1)) {
        if (stored.node(key).pc) {
            second.add_node_pc(key, *stored.node(key).pc, stored.origin().cast<double>());
        }
    }
    EXPECT_EQ(second.size(), cloud.size());
    second.add(cloud);
    Octree octree;
    second(octree);
    ombrix::test::expectMasksAgree(octree);
    PointCloud twice = cloud;
    twice.push_back(cloud, true);
    for (Vector3f& p : twice.positions()) {
        p -= stored.origin();
    }
    EXPECT_EQ(rowsOf(octree), rowsOf(twice));
}

TEST(NestedLoading, KeepsWhatABucketAboveHandsDownToTheLoadedNode) {
    NestedOctreeFactory factory(Vector3f::Zero(), 1.0f);
    PointCloud above;
    above.positions() = {{0.1f, 0.1f, 0.1f}, {0.1f, 0.1f, 0.1f}, {0.1f, 0.1f, 0.1f}};  // one cell keeps one
    above.resize(3);
    factory.add(above);
    PointCloud below;
    below.positions() = {{0.2f, 0.2f, 0.2f}};
    below.resize(1);
    factory.add_node_pc(8, below);
    EXPECT_EQ(factory.size(), 4u);
    factory.add_node_pc(8, below);
    EXPECT_EQ(factory.size(), 2u) << "loading again replaces all that the node holds";
}

}  // namespace
