#include <memory>
#include <sstream>

#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/spdlog.h>

#include <ombrix/core/octree/nested_octree_factory.h>

#include "tests/core/octree/dynamic_checks.h"
#include "tests/support/clouds.h"

namespace {

using namespace ombrix::core;
using namespace ombrix::test;

TEST(DynamicOctreeFactory, SplitsLeavesAboveMaxPoints) {
    EXPECT_EQ(DynamicOctreeFactory().maxPoints(), 65536u);
    DynamicOctreeFactory factory(100);
    World world;
    for (unsigned int slice = 0; slice < 10; ++slice) {
        const PointCloud cloud = numberedCloud(7000, 0.0f, 50.0f, slice, 10000 * slice);
        factory.add(cloud);
        addToWorld(cloud, Vector3d::Zero(), world);
    }
    EXPECT_EQ(factory.droppedPoints(), 0u);
    expectDynamicInvariants(factory);
    expectHolds(factory, world);
    EXPECT_EQ(factory.scalarfieldMax(), 96999.0f);
    EXPECT_EQ(factory.octree()->scalarfieldMax(), 96999.0f);

    // Every inner node had to be split: more points lie below it than a leaf may hold.
    const std::shared_ptr<Octree> octree = factory.octree();
    for (const auto& [key, node] : octree->nodes()) {
        if (node.children != 0) {
            std::uint64_t below = 0;
            for (const std::uint64_t k : octree->branch(key)) {
                below += octree->node(k).size;
            }
            EXPECT_GT(below, 100u);
        }
    }
    factory.clear();
    EXPECT_EQ(factory.size(), 0u);
    EXPECT_EQ(octree->size(), 70000u) << "the tree handed out stays";
}

TEST(DynamicOctreeFactory, KeepsTheLowestIndexOfEqualCodesOfLaterClouds) {
    PointCloud cloud;
    for (int i = 0; i < 60; ++i) {
        Point p;
        p.position = Vector3f::Constant(static_cast<float>(i % 3));
        p.scalar = static_cast<float>(i);
        cloud.push_back(p, false);
    }
    DynamicOctreeFactory factory(5);
    factory.add(cloud);
    EXPECT_EQ(factory.size(), 60u);
    EXPECT_EQ(factory.octree()->max_depth(), 20u);  // 20 equal points cannot be split
    factory.add(cloud);
    EXPECT_EQ(factory.size(), 63u);
    EXPECT_EQ(factory.droppedPoints(), 57u);
    std::multiset<float> scalars;
    for (const auto& [key, node] : factory.octree()->nodes()) {
        scalars.insert(node.pc->scalars().begin(), node.pc->scalars().end());
    }
    for (int i = 0; i < 60; ++i) {
        EXPECT_EQ(scalars.count(static_cast<float>(i)), i < 3 ? 2u : 1u);
    }
}

TEST(DynamicOctreeFactory, KeepsAllFieldsThroughSplitsAndMerges) {
    DynamicOctreeFactory factory(30);
    PointCloud plain = numberedCloud(500, 0.0f, 1.0f, 1, 0);
    PointCloud rich = numberedCloud(500, 0.0f, 1.0f, 2, 1000);
    addDistances(rich);
    auto& stamps = rich.fields().addField<Vector3d>("stamp").first->data();
    for (const float scalar : rich.scalars()) {
        stamps.push_back(Vector3d::Constant(scalar) * 1.0e6);
    }
    PointCloud uneven = numberedCloud(500, 0.0f, 2000.0f, 3, 2000);  // grows the root
    uneven.colors().clear();
    uneven.fields().addField<Vector3f>(FIELD_DISTANCE);  // another type, and no values
    factory.add(plain);
    factory.add(rich);
    factory.add(uneven);
    factory.add(plain, Vector3d(0.5, 0.5, 0.5));
    EXPECT_EQ(factory.size(), 2000u);
    expectDynamicInvariants(factory);
    std::size_t stamped = 0;
    for (const auto& [key, node] : factory.octree()->nodes()) {
        for (std::size_t i = 0; i < node.pc->size(); ++i) {
            const float scalar = node.pc->scalars()[i];
            const bool isRich = scalar >= 1000.0f && scalar < 2000.0f;
            EXPECT_EQ(node.pc->point(i).distance, isRich ? scalar : 0.0f);
            if (node.pc->fields().contains("stamp")) {
                const Vector3d stamp = node.pc->fields().get<Vector3d>("stamp")->data()[i];
                EXPECT_EQ(stamp.x(), isRich ? scalar * 1.0e6 : 0.0);
                stamped += isRich ? 1 : 0;
            }
        }
    }
    EXPECT_EQ(stamped, 500u);
}

TEST(DynamicOctreeFactory, HandsTheTreeOverRelativeToItsOriginAndGoesOn) {
    const Vector3d shift(3.0e6, -2.0e6, 10.0);
    DynamicOctreeFactory factory(50);
    factory.add(numberedCloud(2000, 0.0f, 8.0f, 1), shift);
    Octree inside;
    factory(inside);
    EXPECT_EQ(inside.keyCount(), 0u);
    const std::vector<Row> before = rowsOf(*factory.octree());
    factory.factory();
    for (const auto& [key, node] : factory.octree()->nodes()) {
        EXPECT_EQ(node.flags & 8, 0);
    }
    const std::vector<Row> after = rowsOf(*factory.octree());
    ASSERT_EQ(after.size(), before.size());
    for (std::size_t i = 0; i < after.size(); ++i) {
        EXPECT_NEAR(after[i][0], before[i][0], 1e-5);
    }
    factory.add(numberedCloud(2000, -9.0f, 20.0f, 2, 5000), shift);
    EXPECT_EQ(factory.size(), 4000u);
    expectPointsInBoxes(*factory.octree(), 1e-4f);
    expectMasksAgree(*factory.octree(), 20);

    // On purpose, a second call moves the points once more.
    factory.factory();
    const auto leaf = factory.octree()->node(factory.octree()->branch(1).back());
    const Vector3f p = leaf.pc->positions().front();
    factory.factory();
    EXPECT_EQ(leaf.pc->positions().front(), p + factory.octree()->node_origin(leaf));

    // An inner node without points that gains a child is marked again, in a root that stays as it is
    DynamicOctreeFactory corner(10);
    corner.setOriginTop(Vector3f::Zero(), Vector3f::Constant(16.0f));
    corner.add(numberedCloud(100, 0.0f, 4.0f, 1));
    corner.factory();
    const std::uint8_t children = corner.octree()->node(1).children;
    corner.add(numberedCloud(100, 0.0f, 16.0f, 2, 100));
    EXPECT_NE(corner.octree()->node(1).children, children);
    EXPECT_EQ(corner.octree()->node(1).flags & 8, 8);
}

TEST(DynamicOctreeFactory, ConvertsToANestedFactoryAndKeepsCounts) {
    const Vector3d shift(3.0e6, -2.0e6, 10.0);
    const PointCloud cloud = numberedCloud(5000, 0.0f, 8.0f, 1);
    DynamicOctreeFactory factory(50);
    factory.add(cloud, shift);
    const auto keys = factory.octree()->keyCount();
    const auto nested = factory.convert();
    EXPECT_EQ(nested->size(), 5000u);
    EXPECT_EQ(factory.octree()->keyCount(), keys);
    EXPECT_EQ(factory.size(), 5000u);
    for (const auto& [key, node] : factory.octree()->nodes()) {
        EXPECT_FALSE(node.pc);
    }
    Octree octree;
    (*nested)(octree);
    World world;
    addToWorld(cloud, shift, world);
    for (const Row& row : rowsOf(octree, octree.origin().cast<double>())) {
        const Vector3d p = world.at(static_cast<float>(row[3]));
        EXPECT_LE((Vector3d(row[0], row[1], row[2]) - p).norm(), 1e-5);
    }
}

TEST(DynamicOctreeFactory, IsTheSameOnAnyNumberOfThreads) {
    std::vector<Octree> trees;
    withOneAndFourWorkers([&] {
        DynamicOctreeFactory factory(64);
        factory.add(numberedCloud(150000, 0.0f, 10.0f, 1));
        factory.add(numberedCloud(20000, -15.0f, 10.0f, 2));
        factory.add(numberedCloud(20000, 0.0f, 60.0f, 3));
        trees.push_back(*factory.octree());
    });
    expectSameNodes(trees[0], trees[1]);
}

/// Counts the trees that it is asked for, and follows the keys of growth.
class HookedFactory : public OpenDynamicFactory {
public:
    using OpenDynamicFactory::OpenDynamicFactory;
    int created = 0;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> keys;

protected:
    std::shared_ptr<Octree> create_octree() override {
        ++created;
        return OpenDynamicFactory::create_octree();
    }
    void update_octree(std::shared_ptr<Octree>& tree,
                       const std::vector<std::pair<std::uint64_t, std::uint64_t>>& changed) override {
        keys = changed;
        OpenDynamicFactory::update_octree(tree, changed);
    }
};

TEST(DynamicOctreeFactory, DerivedFactoriesSeeGrowth) {
    HookedFactory factory(10);
    factory.add(numberedCloud(200, 0.0f, 7.9f, 1));
    const std::shared_ptr<Octree> old = factory.octree();
    const std::vector<std::uint64_t> oldKeys = old->keys();
    factory.add(numberedCloud(20, -3.0f, 4.0f, 2));
    EXPECT_EQ(factory.created, 1);
    EXPECT_NE(factory.octree(), old);
    ASSERT_EQ(factory.keys.size(), oldKeys.size());
    for (const auto& [before, now] : factory.keys) {
        EXPECT_TRUE(old->hasKey(before));
        EXPECT_TRUE(factory.octree()->hasKey(now));
        EXPECT_EQ(node_depth(now), node_depth(before) + 1);
        EXPECT_EQ(now >> (3 * node_depth(before)), 15u);  // the old root is in the uppermost octant
    }
}

TEST(DynamicOctreeFactory, PushesAndSplitsSinglePointsAndReportsOddCodes) {
    std::ostringstream lines;
    const auto sink = std::make_shared<spdlog::sinks::ostream_sink_mt>(lines);
    OpenDynamicFactory factory(10);
    auto logger = std::make_shared<spdlog::logger>("test", sink);
    logger->set_pattern("%l %v");
    factory.setLogger(logger);
    factory.add(numberedCloud(200, 0.0f, 7.9f, 1));
    const std::shared_ptr<Octree> octree = factory.octree();

    Point p;
    p.position = Vector3f(1.0f, 2.0f, 3.0f);
    p.normal = Vector3f(0, 0, 1);
    p.flags = Point::HAS_NORMAL;
    p.index = factory.morton_keyd(p.position.cast<double>()).key;
    const std::uint64_t leaf = factory.push_to_leaf(p);
    EXPECT_EQ(node_key(p.index, node_depth(leaf)), leaf);
    EXPECT_EQ(octree->node(leaf).pc->normals().back(), p.normal);
    expectDynamicInvariants(factory);

    for (int i = 0; i < 30; ++i) {
        p.position.x() += 0.001f;
        factory.add(octree->node(leaf), p);  // nothing once the leaf is split
    }
    EXPECT_NE(octree->node(leaf).children, 0);
    EXPECT_LT(factory.size(), 231u);
    expectDynamicInvariants(factory);
    EXPECT_EQ(lines.str(), "");

    // One level at a time, whether the leaf is full or not
    const std::uint64_t last = octree->branch(1).back();
    const std::uint64_t held = octree->node(last).size;
    std::uint64_t moved = 0;
    for (const std::uint64_t key : factory.expand_node(octree->node(last))) {
        EXPECT_EQ(parent_key(key), last);
        moved += octree->node(key).size;
    }
    EXPECT_EQ(moved, held);
    EXPECT_TRUE(factory.expand_node(octree->node(last)).empty());
    expectDynamicInvariants(factory);

    p.index = std::uint64_t{1} << 63 | 5;
    const std::uint64_t size = factory.size();
    factory.push_to_leaf(p);
    EXPECT_EQ(factory.size(), size + 1);
    EXPECT_EQ(lines.str().substr(0, 41), "warning ERROR dynamic factory robustness\n");
    factory.setLogger(nullptr);
    factory.push_to_leaf(p);

    OpenDynamicFactory rootless(10);
    rootless.setOriginTop(Vector3f::Zero(), Vector3f::Constant(8.0f));
    EXPECT_EQ(rootless.push_to_leaf(p), 1u);
    OpenDynamicFactory other(10);
    other.setOriginExtend(Vector3f::Zero(), 8.0f);
    other.push_to_leaf(numberedCloud(200, 0.0f, 7.9f, 1), Vector3d::Zero());
    EXPECT_EQ(other.size(), 200u);
    expectDynamicInvariants(other);
}

}  // namespace
