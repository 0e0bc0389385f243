#include <set>

#include <tbb/global_control.h>

#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/octree/octree_converter.h>

#include "tests/support/octree_checks.h"

namespace {

using namespace ombrix::core;
using namespace ombrix::test;

constexpr float EDGE = 16.0f;
constexpr unsigned int THRESHOLD = 50;

/// A cloud dense enough in one corner that the nested tree's root expands.
PointCloud denseCloud() {
    PointCloud cloud = numberedCloud(90000, 0.0f, 1.0f, 1);
    cloud.push_back(numberedCloud(5000, 0.0f, EDGE, 2, 100000), false);
    addDistances(cloud);
    return cloud;
}

Octree nestedTree(const PointCloud& cloud) {
    NestedOctreeFactory factory(Vector3f(-1, 2, 3), EDGE);
    factory.add(cloud, Vector3d(-1, 2, 3));
    Octree octree;
    factory(octree);
    return octree;
}

Octree fullTree(const PointCloud& cloud, unsigned int threshold) {
    return ombrix::test::fullTree(cloud, EDGE, threshold, Vector3f(-1, 2, 3));
}

std::multiset<float> numbersOf(const Octree::Node& node) {
    return {node.pc->scalars().begin(), node.pc->scalars().end()};
}

/// The same nodes with the same points, whatever their order in a leaf.
void expectSameTree(const Octree& a, const Octree& b) {
    ASSERT_EQ(a.keyCount(), b.keyCount());
    for (const auto& [key, node] : a.nodes()) {
        ASSERT_TRUE(b.hasKey(key));
        EXPECT_EQ(node.children, b.node(key).children);
        EXPECT_EQ(numbersOf(node), numbersOf(b.node(key)));
    }
    EXPECT_EQ(a.scalarfieldMin(), b.scalarfieldMin());
    EXPECT_EQ(a.scalarfieldMax(), b.scalarfieldMax());
    EXPECT_EQ(a.type(), b.type());
    EXPECT_EQ(a.origin(), b.origin());
    EXPECT_EQ(a.extend(), b.extend());
}

TEST(OctreeConverter, GoesFromFullToNestedAndBack) {
    const PointCloud cloud = denseCloud();
    Octree full = fullTree(cloud, THRESHOLD);
    Octree nested;
    OctreeConverter::fullOctreeToNestedOctree(full, nested);
    EXPECT_EQ(nested.type(), Octree::NESTED);
    EXPECT_GT(nested.max_depth(), 2u);
    EXPECT_EQ(rowsOf(nested), rowsOf(cloud));
    expectMasksAgree(nested);

    for (const std::size_t threads : {1u, 4u}) {
        const tbb::global_control control(tbb::global_control::max_allowed_parallelism, threads);
        Octree again = fullTree(numberedCloud(10, 0.0f, 1.0f, 9), 1);  // gets emptied
        OctreeConverter::nestedOctree2FullOctree(nested, -1, THRESHOLD, again, false);
        expectSameTree(again, full);
        for (const std::uint64_t leaf : again.leaves()) {
            const PointCloud& points = *again.node(leaf).pc;
            EXPECT_EQ(points.fields().get<float>(FIELD_DISTANCE)->data(), points.scalars());
        }
    }
    Octree same = nested;
    OctreeConverter::nestedOctree2FullOctree(same, -1, THRESHOLD, same, true);
    expectSameTree(same, full);
    EXPECT_EQ(same.node(same.first_leaf()).pc->fields().size(), 0u);
}

TEST(OctreeConverter, TakesBoxesOverToTheBit) {
    // At this origin, top - origin is not the edge any more.
    NestedOctreeFactory factory(Vector3f(515368.6f, 4918340.5f, 2322.9f), 40.3f);
    factory.add(numberedCloud(100, 0.0f, 40.0f, 3), factory.origin().cast<double>());
    Octree nested;
    factory(nested);
    ASSERT_NE(nested.extend(), (nested.top() - nested.origin()).maxCoeff());
    Octree full;
    Octree partial;
    OctreeConverter::nestedOctree2FullOctree(nested, -1, 10, full, false);
    OctreeConverter::nestedOctreeNode2PartialFullOctree(nested, 1, full, 10, partial, false);
    EXPECT_EQ(full.extend(), 40.3f);
    EXPECT_EQ(partial.extend(), 40.3f);
    EXPECT_EQ(partial.size(), 100u);
    Octree back;
    OctreeConverter::fullOctreeToNestedOctree(full, nested);
    OctreeConverter::nestedOctree2FullOctree(nested, -1, 10, back, false);
    EXPECT_EQ(nested.extend(), 40.3f);
    EXPECT_EQ(nested.top(), full.top());
    auto leaves = full.keys();
    auto leavesAgain = back.keys();
    std::sort(leaves.begin(), leaves.end());
    std::sort(leavesAgain.begin(), leavesAgain.end());
    EXPECT_EQ(leavesAgain, leaves);
}

TEST(OctreeConverter, TakesTheLevelsOfANestedTreeDownToADepth) {
    Octree nested = nestedTree(denseCloud());
    for (const unsigned int depth : {0u, 1u, 2u, 3u, 30u}) {
        Octree full;
        OctreeConverter::nestedOctree2FullOctree(nested, static_cast<int>(depth), THRESHOLD, full, false);
        EXPECT_EQ(full.size(), nested.size(depth));
        expectMasksAgree(full);
        expectPointsInBoxes(full, 1e-5f);
    }
    Octree empty;
    OctreeConverter::nestedOctree2FullOctree(empty, -1, THRESHOLD, nested, false);
    EXPECT_EQ(nested.keyCount(), 0u);
}

// The front at a depth and the cells without a child above it hold every point once.
TEST(OctreeConverter, FrontAndGapsHoldEveryPointOnce) {
    Octree nested = nestedTree(denseCloud());
    for (const int depth : {0, 1, 2, 4, -1}) {
        std::list<std::uint64_t> back;
        std::list<std::uint64_t> front;
        nested.back_and_front(depth, back, front);
        std::size_t gaps = 0;
        for (const std::uint64_t key : back) {
            for (unsigned int octant = 0; octant < 8; ++octant) {
                if ((nested.node(key).children >> octant & 1) == 0) {
                    front.push_back(child_key(key, octant));
                    ++gaps;
                }
            }
        }
        EXPECT_TRUE(depth == 0 || gaps > 0);
        PointCloud flat;
        for (const std::uint64_t key : front) {
            const std::uint64_t first = flat.size();
            OctreeConverter::mergeFrontNodeWithAncestors(nested, key, flat, false);
            for (std::uint64_t i = first; i < flat.size(); ++i) {
                const Vector3d p = flat.positions()[i].cast<double>();
                EXPECT_EQ(node_key(OctreeFactory::morton_keyd(p, EDGE).key, node_depth(key)), key);
            }
        }
        PointCloud expected;
        nested.extractPointCloud(1, depth < 0 ? 21u : static_cast<unsigned int>(depth), expected);
        EXPECT_EQ(rowsOf(flat), rowsOf(expected));
        EXPECT_EQ(flat.fields().get<float>(FIELD_DISTANCE)->data(), flat.scalars());
    }
}

TEST(OctreeConverter, BuildsAndReplacesPartsOfTheFullTree) {
    const PointCloud cloud = denseCloud();
    Octree nested = nestedTree(cloud);
    Octree full = fullTree(cloud, THRESHOLD);
    const std::vector<Row> all = rowsOf(full);
    std::vector<std::uint64_t> keys = nested.branch(1, 3);
    keys.resize(5);  // the root, and some of its children
    keys.insert(keys.end(), {nested.branch(1, 4).back(), nested.branch(1).back()});
    for (const std::uint64_t key : keys) {
        Octree partial = fullTree(numberedCloud(10, 0.0f, 1.0f, 9), 1);
        OctreeConverter::nestedOctreeNode2PartialFullOctree(nested, key, full, THRESHOLD, partial, false);
        expectMasksAgree(partial, 21, key);
        PointCloud points;
        nested.extractUpperPointCloud(key, points);
        nested.extractPointCloud(key, 21, points);
        EXPECT_EQ(rowsOf(partial), rowsOf(points));
        // A leaf of the full tree may lie above the cell; below, the trees agree.
        Octree updated = full;
        for (int time = 0; time < 2; ++time) {
            OctreeConverter::updateFullOctree(partial, key, updated);
            expectMasksAgree(updated);
            EXPECT_EQ(rowsOf(updated), all) << "key " << key;
            for (const std::uint64_t k : updated.branch(key, 21)) {
                EXPECT_EQ(updated.node(k).pc, partial.node(k).pc);
            }
        }
        if (full.hasKey(key)) {
            expectSameTree(updated, full);
        }
    }

    Octree partial = full;
    OctreeConverter::nestedOctreeNode2PartialFullOctree(nested, 8 * 511 + 3, full, THRESHOLD, partial, false);
    EXPECT_EQ(partial.keyCount(), 0u);
    EXPECT_EQ(partial.type(), Octree::FULL);
    EXPECT_EQ(partial.extend(), EDGE);
}

TEST(OctreeConverter, UpdateSplitsLeavesOnThePathAndRemovesBranches) {
    // One leaf, the root, in node-relative form; a later survey of one cell of depth 3
    Octree full = fullTree(numberedCloud(4000, 0.0f, EDGE, 5, 2000), 5000);
    full.node(1).flags = 8;
    Octree partial = fullTree(numberedCloud(300, 4.0f, 5.9f, 6, 8000), 20);
    const std::uint64_t key = node_key(OctreeFactory::morton_keyd(Vector3d(5, 5, 5), EDGE).key, 3);
    std::vector<Row> expected;
    for (const Row& row : rowsOf(full)) {
        const std::uint64_t code = OctreeFactory::morton_keyd(Vector3d(row[0], row[1], row[2]), EDGE).key;
        if (node_key(code, 3) != key) {
            expected.push_back(row);
        }
    }
    const std::size_t kept = expected.size();
    ASSERT_LT(kept, 4000u);
    PointCloud cell;
    partial.extractPointCloud(key, 21, cell);
    ASSERT_EQ(cell.size(), 300u);
    appendRows(cell, Vector3d::Zero(), expected);
    std::sort(expected.begin(), expected.end());
    for (int time = 0; time < 2; ++time) {
        OctreeConverter::updateFullOctree(partial, key, full);
        expectMasksAgree(full);
        expectPointsInBoxes(full, 1e-5f);
        EXPECT_EQ(rowsOf(full), expected);
        EXPECT_EQ(full.scalarfieldMax(), 8299.0f);
    }
    for (const auto& [k, node] : full.nodes()) {
        EXPECT_TRUE(node.children == 0 || node.pc->size() == 0);
    }
    OctreeConverter::updateFullOctree(Octree(), key, full);
    EXPECT_EQ(full.size(), kept);
    EXPECT_FALSE(full.hasKey(key));
    expectMasksAgree(full);

    Octree empty;
    empty.setOriginTop(partial.origin(), partial.top());
    OctreeConverter::updateFullOctree(partial, key, empty);
    expectMasksAgree(empty);
    EXPECT_EQ(empty.size(), 300u);
    EXPECT_EQ(empty.node(1).size, 1u);
    EXPECT_TRUE(empty.node(1).pc);
}

}  // namespace
