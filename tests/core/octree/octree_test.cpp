#include <map>
#include <random>

#include <gtest/gtest.h>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/octree.h>

#include "tests/support/clouds.h"
#include "tests/support/expect_throw.h"

namespace {

using namespace ombrix::core;
using Keys = std::vector<std::uint64_t>;
using ombrix::test::expectMissingKey;

/// Keys of a random tree in which every node's parent exists, in shuffled order.
Keys randomHierarchy(unsigned int seed, std::size_t count, unsigned int maxDepth) {
    std::mt19937_64 random(seed);
    Keys keys = {1};
    while (keys.size() < count) {
        const std::uint64_t parent = keys[random() % keys.size()];
        const std::uint64_t child = child_key(parent, random() % 8);
        if (node_depth(parent) < maxDepth && std::find(keys.begin(), keys.end(), child) == keys.end()) {
            keys.push_back(child);
        }
    }
    std::shuffle(keys.begin(), keys.end(), random);
    return keys;
}

Octree treeOf(const Keys& keys) {
    Octree octree;
    octree.set_hierarchy(keys, Keys(keys.size(), 10));
    return octree;
}

/// The keys of a sub-tree by sorting: by depth, then by key, which is breadth first in octant order.
Keys sortedBranch(const Keys& keys, std::uint64_t root, unsigned int depth) {
    Keys result;
    for (const std::uint64_t key : keys) {
        const bool below =
            node_depth(key) >= node_depth(root) && key >> (3 * (node_depth(key) - node_depth(root))) == root;
        if (below && node_depth(key) <= depth) {
            result.push_back(key);
        }
    }
    std::sort(result.begin(), result.end());
    return result;
}

TEST(OctreeEmpty, HasNothingAndFailsOnLookups) {
    Octree octree;
    EXPECT_EQ(octree.size(), 0u);
    EXPECT_EQ(octree.max_depth(), 0u);
    EXPECT_EQ(octree.keyCount(), 0u);
    EXPECT_EQ(octree.rootKey(), 1u);
    EXPECT_EQ(octree.first_leaf(), 0u);
    EXPECT_EQ(octree.type(), Octree::NESTED);
    EXPECT_TRUE(octree.branch(1).empty());
    EXPECT_TRUE(octree.remove_branch(1).empty());
    octree.delete_node(5);
    expectMissingKey([&] { (void)octree.node(1); });
    expectMissingKey([&] { (void)std::as_const(octree).node(1); });
    expectMissingKey([&] { (void)octree.node_pc(1); });
    expectMissingKey([&] { octree.free_node(1); });
    expectMissingKey([&] { octree.clear_node(1); });
    expectMissingKey([&] { (void)octree.front(0); });
    expectMissingKey([&] { (void)octree.max_depth(0.1f); });
    EXPECT_EQ(octree.keyCount(), 0u) << "a lookup must not insert";
}

TEST(OctreeNodes, CountTheirCloudOrTheirSize) {
    Octree octree;
    Octree::Node& node = octree.add_node(9);
    EXPECT_EQ(node.key, 9u);
    node.pc = std::make_shared<PointCloud>();
    node.pc->resize(100);
    node.compressed = node.pc;
    node.size = 1;
    EXPECT_EQ(&octree.add_node(9), &node);
    EXPECT_EQ(octree.size(), 100u);
    EXPECT_FALSE(octree.visible_node_pc(9));
    node.flags = 2;
    EXPECT_TRUE(octree.visible_node_pc(9));
    octree.free_node(9);
    EXPECT_EQ(octree.size(), 100u);
    EXPECT_EQ(octree.node_pc(9), nullptr);
    EXPECT_EQ(node.compressed, nullptr);
    EXPECT_FALSE(octree.visible_node_pc(9));
    octree.free_node(9);
    EXPECT_EQ(octree.size(), 100u) << "freeing twice must not lose the count";
    octree.clear_node(9);
    EXPECT_EQ(octree.size(), 0u);
    EXPECT_EQ(node.flags, 2);
}

TEST(OctreeHierarchy, DerivesMasksFromTheKeysAlone) {
    for (const unsigned int seed : {1u, 2u, 3u}) {
        const Keys keys = randomHierarchy(seed, 300, 6);
        Octree octree = treeOf(keys);
        ASSERT_EQ(octree.keyCount(), keys.size());
        std::map<std::uint64_t, unsigned int> masks;
        for (const std::uint64_t key : keys) {
            masks[key >> 3] |= 1u << (key & 7);
        }
        for (const auto& [key, node] : octree.nodes()) {
            EXPECT_EQ(node.key, key);
            EXPECT_EQ(node.children, masks[key]);
            EXPECT_EQ(node.size, 10u);
        }
    }
    Octree detached = treeOf({9, 8 * 9 + 1, 8 * 77});
    EXPECT_TRUE(detached.hasKey(1)) << "the root is created";
    EXPECT_EQ(detached.node(1).children, 1u << 1);
    EXPECT_EQ(detached.node(9).children, 1u << 1);
    detached.set_hierarchy({64}, {});
    EXPECT_EQ(detached.keyCount(), 2u);
    EXPECT_EQ(detached.node(1).children, 0) << "nothing connects 64 to the root";
}

TEST(OctreeWalks, AgreeWithSortedKeys) {
    const Keys keys = randomHierarchy(4, 400, 7);
    Octree octree = treeOf(keys);
    EXPECT_EQ(octree.max_depth(), 7u);
    for (const std::uint64_t root : {keys[0], keys[7], std::uint64_t{1}}) {
        for (const unsigned int depth : {0u, 3u, 5u, 21u}) {
            EXPECT_EQ(octree.branch(root, depth), sortedBranch(keys, root, depth));
        }
        EXPECT_EQ(octree.branch(root), sortedBranch(keys, root, 21));
    }
    for (const int depth : {0, 2, 4, 21, -1}) {
        Keys expected;
        Keys above;
        for (const std::uint64_t key : sortedBranch(keys, 1, 21)) {
            const bool leaf = octree.node(key).children == 0;
            const auto level = static_cast<int>(node_depth(key));
            if (level == depth || (leaf && (depth < 0 || level < depth))) {
                expected.push_back(key);
            } else if (depth < 0 || level < depth) {
                above.push_back(key);
            }
        }
        const std::list<std::uint64_t> front = octree.front(depth);
        EXPECT_EQ(Keys(front.begin(), front.end()), expected) << depth;
        std::list<std::uint64_t> back = {77};
        std::list<std::uint64_t> appended = {78};
        octree.back_and_front(depth, back, appended);
        EXPECT_EQ(Keys(std::next(back.begin()), back.end()), above);
        EXPECT_EQ(Keys(std::next(appended.begin()), appended.end()), expected);
    }
    EXPECT_EQ(octree.size(2), 10 * sortedBranch(keys, 1, 2).size());
    EXPECT_EQ(octree.leaves().size(), octree.front(-1).size());
    EXPECT_EQ(octree.first_leaf(), octree.leaves().front());
}

TEST(OctreeWalks, EndAtTheFinestDepthWhateverTheMasksSay) {
    Octree octree;
    std::uint64_t key = 1;
    for (unsigned int depth = 0; depth <= 21; ++depth, key = child_key(key, 0)) {
        octree.add_node(key).children = 0xff;
    }
    EXPECT_EQ(octree.branch(1, 30).size(), 22u);
    EXPECT_EQ(octree.front(30).size(), 1u);
    octree.add_node(0).children = 0xff;
    EXPECT_EQ(octree.branch(0, 30), Keys{0});
    EXPECT_EQ(octree.remove_branch(1).size(), 22u);
    Octree listed;
    listed.set_hierarchy({std::uint64_t{1} << 63, 0, 2}, {});
    EXPECT_EQ(listed.node(1).children, 0);
}

TEST(OctreeRemoveBranch, ErasesTheSubTreeAndItsBit) {
    const Keys keys = randomHierarchy(5, 300, 6);
    for (const std::uint64_t root : {keys[3], keys[9], std::uint64_t{1}}) {
        Octree octree = treeOf(keys);
        const Keys expected = sortedBranch(keys, root, 21);
        EXPECT_EQ(octree.remove_branch(root), expected);
        EXPECT_EQ(octree.keyCount(), keys.size() - expected.size());
        if (root != 1) {
            EXPECT_EQ(octree.node(root >> 3).children >> (root & 7) & 1, 0);
            EXPECT_EQ(octree.branch(1).size(), octree.keyCount()) << "the rest stays connected";
        }
    }
    Octree orphan;
    orphan.add_node(64);
    EXPECT_EQ(orphan.remove_branch(64), Keys{64});
}

TEST(OctreeBoxes, AreCubesRelativeToTheOrigin) {
    Octree octree;
    octree.setOriginTop(Vector3f(100, 100, 100), Vector3f(108, 107, 106));
    EXPECT_EQ(octree.extend(), 8.0f);
    const auto box = [&](std::uint64_t key) { return octree.node_aabb(octree.add_node(key)); };
    EXPECT_EQ(box(1).center, Vector3f(4, 4, 4));
    EXPECT_EQ(box(1).radius, 4.0f);
    EXPECT_EQ(box(15).center, Vector3f(6, 6, 6));
    EXPECT_EQ(box(12).center, Vector3f(6, 2, 2));
    EXPECT_EQ(octree.node_origin(octree.node(12)), Vector3f(4, 0, 0));
    EXPECT_EQ(octree.node_top(octree.node(12)), Vector3f(8, 4, 4));
    octree.setTop(Vector3f(101, 103, 102));
    EXPECT_EQ(octree.extend(), 3.0f);
    octree.setOrigin(Vector3f(96, 103, 102));
    EXPECT_EQ(octree.extend(), 5.0f);
    for (const std::uint64_t key : randomHierarchy(6, 200, 9)) {
        if (key != 1) {
            const Octree::Aabb child = box(key);
            const Octree::Aabb parent = box(key >> 3);
            EXPECT_LE((child.center - parent.center).cwiseAbs().maxCoeff() + child.radius,
                      parent.radius * 1.000001f);
        }
    }
}

TEST(OctreeSpacing, PicksTheDepthWhoseSampleCellsAreFineEnough) {
    Octree octree = treeOf({1, 8, 64, 512});
    octree.setOriginTop(Vector3f(0, 0, 0), Vector3f(128, 128, 128));
    EXPECT_EQ(octree.max_depth(1.0f), 0u);
    EXPECT_EQ(octree.max_depth(0.99f), 1u);
    EXPECT_EQ(octree.max_depth(0.25f), 2u);
    EXPECT_EQ(octree.max_depth(1e-9f), 3u) << "no deeper than the deepest leaf";
}

TEST(OctreeWalk, EndsOnKeysWhoseChildrenWouldWrapAround) {
    Octree octree;
    const std::uint64_t wraps = std::uint64_t{1} << 61 | 1;  // eight times this is 8
    octree.add_node(wraps).children = 0xff;
    octree.add_node(8).children = 0xff;
    EXPECT_EQ(octree.branch(wraps, 21), std::vector<std::uint64_t>{wraps});
    EXPECT_EQ(octree.remove_branch(wraps).size(), 1u);
    EXPECT_TRUE(octree.hasKey(8));
}

}  // namespace
