#include <bit>
#include <cstdint>
#include <limits>
#include <map>

#include <gtest/gtest.h>

#include <ombrix/core/octree/full_octree_factory.h>
#include <ombrix/core/octree/morton.h>

#include "tests/support/clouds.h"
#include "tests/support/octree_checks.h"

namespace {

using namespace ombrix::core;
using ombrix::test::NamedCloud;

constexpr float EDGE = 64.0f;
const Vector3f ORIGIN(-10.0f, 20.0f, 5.0f);

Octree build(const PointCloud& cloud, unsigned int capacity) {
    return ombrix::test::fullTree(cloud, EDGE, capacity, ORIGIN);
}

/// Leaf key -> indices of its points in order, by splitting lists of points from the root down.
std::map<std::uint64_t, std::vector<std::uint64_t>> leavesByBruteForce(const PointCloud& cloud,
                                                                       unsigned int capacity) {
    std::vector<std::pair<std::uint64_t, std::uint64_t>> codes;
    for (std::uint64_t i = 0; i < cloud.size(); ++i) {
        codes.emplace_back(OctreeFactory::morton_keyd(cloud.positions()[i].cast<double>(), EDGE).key, i);
    }
    std::sort(codes.begin(), codes.end());
    std::map<std::uint64_t, std::vector<std::uint64_t>> nodes = {{1, {}}};
    for (const auto& [code, index] : codes) {
        nodes[1].push_back(index);
    }
    for (auto node = nodes.begin(); node != nodes.end();) {
        if (node->second.size() <= capacity || node_depth(node->first) == 21) {
            ++node;
            continue;
        }
        for (const std::uint64_t index : node->second) {
            const std::uint64_t code =
                OctreeFactory::morton_keyd(cloud.positions()[index].cast<double>(), EDGE).key;
            nodes[node_key(code, node_depth(node->first) + 1)].push_back(index);
        }
        node = nodes.erase(node);
    }
    return nodes;
}

TEST(FullOctree, HasTheLeavesOfBruteForce) {
    for (const NamedCloud& named : ombrix::test::buildersClouds(3000, EDGE)) {
        for (const unsigned int capacity : {0u, 1u, 7u, 128u, 100000u}) {
            SCOPED_TRACE(named.name + " capacity " + std::to_string(capacity));
            Octree octree = build(named.cloud, capacity);
            const auto expected = leavesByBruteForce(named.cloud, capacity);
            ASSERT_EQ(octree.leaves().size(), expected.size());
            for (const auto& [key, indices] : expected) {
                PointCloud leaf;
                leaf.push_back(named.cloud, indices, false);
                const PointCloud& built = *octree.node(key).pc;
                ASSERT_EQ(built.positions(), leaf.positions());
                ASSERT_EQ(built.scalars(), leaf.scalars());
                ASSERT_EQ(built.colors(), leaf.colors());
                ASSERT_EQ(built.normals(), leaf.normals());
            }
            EXPECT_EQ(octree.size(), named.cloud.size());
        }
    }
}

TEST(FullOctree, KeepsNodeAndBoxRules) {
    const PointCloud cloud = ombrix::test::withAttributes(ombrix::test::clusteredPoints(4000, EDGE));
    const Octree octree = build(cloud, 20);
    EXPECT_EQ(octree.type(), Octree::FULL);
    EXPECT_EQ(octree.origin(), ORIGIN);
    EXPECT_EQ(octree.extend(), EDGE);
    EXPECT_EQ(octree.scalarfieldMin(), 0.0f);
    EXPECT_EQ(octree.scalarfieldMax(), 3999.0f);
    EXPECT_EQ(octree.branch(1).size(), octree.keyCount()) << "masks reach every node";
    for (const auto& [key, node] : octree.nodes()) {
        EXPECT_EQ(node.key, key);
        EXPECT_EQ(node.size, 1u) << "every built node, whatever its points";
        ASSERT_NE(node.pc, nullptr);
        EXPECT_EQ(node.pc->size() == 0, node.children != 0) << "points in leaves only";
        for (const Vector3f& p : node.pc->positions()) {
            const Octree::Aabb box = octree.node_aabb(node);
            EXPECT_LE((p - box.center).cwiseAbs().maxCoeff(), box.radius * 1.0001f);
        }
    }
}

TEST(FullOctree, IsTheSameOnOneAndSeveralThreads) {
    const PointCloud cloud = ombrix::test::withAttributes(ombrix::test::clusteredPoints(300000, EDGE));
    std::vector<Octree> trees;
    ombrix::test::withOneAndFourWorkers([&] { trees.push_back(build(cloud, 50)); });
    ombrix::test::expectSameNodes(trees[0], trees[1]);
}

TEST(FullOctree, OfNoPointsHasTheBoxAndNoNodes) {
    const Octree octree = build(PointCloud(), 10);
    EXPECT_EQ(octree.keyCount(), 0u);
    EXPECT_EQ(octree.type(), Octree::FULL);
    EXPECT_EQ(octree.extend(), EDGE);
}

TEST(FullOctree, AddsRelativeToItsOriginAndBuildsAgain) {
    FullOctreeFactory factory(ORIGIN, EDGE, 10);
    PointCloud cloud;
    cloud.resize(2);
    cloud.positions() = {ORIGIN, ORIGIN + Vector3f::Constant(EDGE)};
    const auto withPayload = std::bit_cast<float>(0xffc12345u);
    cloud.scalars() = {3.0f, withPayload};
    factory.add(cloud);
    factory.add(cloud, Vector3d(1, 0, 0));
    EXPECT_EQ(factory.size(), 0u);
    factory.clear();
    for (int build = 0; build < 2; ++build) {
        Octree octree;
        factory(octree);
        const std::vector<Vector3f> expected = {
            {0, 0, 0}, {1, 0, 0}, {EDGE, EDGE, EDGE}, {EDGE + 1, EDGE, EDGE}};
        EXPECT_EQ(octree.node(1).pc->positions(), expected);
        EXPECT_EQ(octree.scalarfieldMax(), 3.0f);
        const std::vector<float>& scalars = octree.node(1).pc->scalars();
        EXPECT_EQ(std::bit_cast<std::uint32_t>(scalars.at(3)), 0xffc12345u);
        EXPECT_EQ(scalars[0] + scalars[1], 6.0f);
    }
    FullOctreeFactory copy = factory;
    copy.add(cloud);
    Octree octree;
    copy(octree);
    EXPECT_EQ(octree.size(), 6u);
    factory(octree);
    EXPECT_EQ(octree.size(), 10u) << "a second build appends to the nodes that are there";
}

TEST(FullOctree, GivesEveryPointItsOwnAttributesWhereCloudsDiffer) {
    PointCloud rich = ombrix::test::withAttributes(ombrix::test::uniformPoints(300, EDGE, 1));
    PointCloud bare;
    bare.positions() = ombrix::test::uniformPoints(300, EDGE, 2);
    FullOctreeFactory factory(Vector3f::Zero(), EDGE, 8);
    for (const PointCloud* cloud : std::initializer_list<const PointCloud*>{&bare, &rich, &bare}) {
        factory.add(*cloud);
    }
    Octree octree;
    factory(octree);
    EXPECT_EQ(octree.size(), 900u);
    std::size_t found = 0;
    for (const auto& [key, node] : octree.nodes()) {
        ASSERT_EQ(node.pc->scalars().size(), node.pc->size());
        ASSERT_EQ(node.pc->colors().size(), node.pc->size());
        for (std::size_t i = 0; i < node.pc->size(); ++i) {
            if (node.pc->normals().at(i) != Vector3f(0, 0, 0)) {
                const auto from = static_cast<std::size_t>(node.pc->scalars()[i]);
                ASSERT_EQ(node.pc->positions()[i], rich.positions().at(from));
                ASSERT_EQ(node.pc->colors()[i], rich.colors()[from]);
                ++found;
            }
        }
    }
    EXPECT_EQ(found, 300u);
}

TEST(FullOctree, KeepsPointsThatAreNotFinite) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    PointCloud cloud;
    cloud.positions() = {{nan, 1, 1}, {inf, 1, 1}, {-inf, nan, 1}, {1, 1, 1}};
    for (const unsigned int capacity : {0u, 1u, 4u}) {
        Octree octree = build(cloud, capacity);
        EXPECT_EQ(octree.size(), 4u);
    }
}

}  // namespace
