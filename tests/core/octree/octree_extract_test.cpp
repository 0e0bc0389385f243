#include <limits>

#include <gtest/gtest.h>

#include <ombrix/core/octree/octree.h>

#include "tests/support/clouds.h"

namespace {

using namespace ombrix::core;

constexpr float EDGE = 16.0f;

/// A tree of root, child 15 and grandchild 8 * 15 with 200 points each, spread over the whole root box (as
/// no builder would) in the upper nodes; the child's positions are relative to its corner.
Octree layeredTree() {
    Octree octree;
    octree.setOriginTop(Vector3f(7, 7, 7), Vector3f(7 + EDGE, 7 + EDGE, 7 + EDGE));
    octree.set_hierarchy({1, 15, 120}, {});
    for (const std::uint64_t key : {1, 15, 120}) {
        Octree::Node& node = octree.node(key);
        node.pc = std::make_shared<PointCloud>(
            ombrix::test::withAttributes(ombrix::test::uniformPoints(200, EDGE, static_cast<unsigned>(key))));
    }
    Octree::Node& child = octree.node(15);
    child.flags = 8;
    for (Vector3f& p : child.pc->positions()) {
        p -= octree.node_origin(child);
    }
    return octree;
}

bool inCell(const Vector3f& p, const Vector3f& low, const Vector3f& high) {
    return (p.array() >= low.array()).all() && (p.array() < high.array()).all();
}

TEST(OctreeExtract, AppendsTheBranchAsItStandsAndSkipsReleasedClouds) {
    Octree octree = layeredTree();
    PointCloud out;
    octree.extractPointCloud(1, 1, out);
    EXPECT_EQ(out.size(), 400u);
    EXPECT_EQ(out.normals().size(), 400u);
    EXPECT_EQ(out.positions()[200], octree.node(15).pc->positions()[0]);
    octree.free_node(15);
    PointCloud rest;
    octree.extractPointCloud(15, 21, rest);
    EXPECT_EQ(rest.size(), 200u);
}

TEST(OctreeExtract, TakesFromTheAncestorsWhatLiesInTheCell) {
    Octree octree = layeredTree();
    const Vector3f low(8, 8, 8);
    const Vector3f high(12, 12, 12);  // the cell of key 120
    PointCloud expected;
    for (const std::uint64_t key : {1, 15}) {
        const Octree::Node& node = octree.node(key);
        const Vector3f corner = key == 15 ? octree.node_origin(node) : Vector3f(0, 0, 0);
        for (std::uint64_t i = 0; i < 200; ++i) {
            const Vector3f p = node.pc->positions()[i] + corner;
            if (inCell(p, low, high)) {
                expected.push_back(*node.pc, i, i, false);
                expected.positions().back() = p;
            }
        }
    }
    ASSERT_GT(expected.size(), 0u);
    PointCloud out;
    octree.extractUpperPointCloud(120, out);
    EXPECT_EQ(out.positions(), expected.positions());
    EXPECT_EQ(out.scalars(), expected.scalars());
    EXPECT_EQ(out.normals(), expected.normals());
    PointCloud none;
    octree.extractUpperPointCloud(1, none);
    EXPECT_EQ(none.size(), 0u);
}

TEST(OctreeExtract, FillsUpAttributesThatAncestorsHaveForSomePointsOnly) {
    Octree octree = layeredTree();
    PointCloud& root = *octree.node(1).pc;
    root.colors().resize(1);
    root.scalars().resize(1);
    root.normals().resize(1);
    octree.node(15).pc->fields().addField<float>("weight").first->resize(200);
    PointCloud out;
    octree.extractUpperPointCloud(120, out);
    ASSERT_GT(out.size(), 0u);
    EXPECT_EQ(out.scalars().size(), out.size());
    EXPECT_EQ(out.normals().size(), out.size());
    EXPECT_EQ(out.fields().get("weight")->size(), out.size());
}

TEST(OctreeExtract, BoxesWhatIsHeldAndTheCubesOfReleasedLeaves) {
    Octree octree;
    EXPECT_EQ(octree.pc_origin(), Vector3f(0, 0, 0));
    EXPECT_EQ(octree.pc_extend(), Vector3f(0, 0, 0));
    octree.setOriginTop(Vector3f(0, 0, 0), Vector3f(EDGE, EDGE, EDGE));
    octree.set_hierarchy({1, 8, 15}, {0, 0, 0});
    octree.node(8).pc = std::make_shared<PointCloud>();
    const float inf = std::numeric_limits<float>::infinity();
    octree.node(8).pc->positions() = {{1, 2, 3}, {4, inf, 1}, {-inf, 5, 2}};
    EXPECT_EQ(octree.pc_origin(), Vector3f(1, 2, 1));
    EXPECT_EQ(octree.pc_top(), Vector3f(4, 5, 3));
    octree.node(15).size = 5;
    EXPECT_EQ(octree.pc_top(), Vector3f(EDGE, EDGE, EDGE));
    octree.node(8).flags = 8;
    octree.node(15).size = 0;
    octree.node(8).key = 15;  // read as relative to the corner of cell 15
    EXPECT_EQ(octree.pc_origin(), Vector3f(9, 10, 9));
}

}  // namespace
