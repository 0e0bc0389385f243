#include <cmath>

#include "tests/core/octree/dynamic_checks.h"

namespace {

using namespace ombrix::core;
using namespace ombrix::test;

PointCloud corners(const Vector3f& low, const Vector3f& high) {
    PointCloud cloud;
    cloud.positions() = {low, high};
    cloud.colors().resize(2);
    cloud.scalars() = {0.0f, 1.0f};
    return cloud;
}

TEST(DynamicGrowth, FirstCloudSetsTheRootEdgeToThePowerOfTwoStrictlyAbove) {
    struct Case {
        float side;
        float leafSize;
        float edge;
    };
    constexpr float NONE = std::numeric_limits<float>::quiet_NaN();
    for (const Case& c : {Case{4.0f, 1.0f, 8.0f}, Case{3.9f, 1.0f, 4.0f}, Case{0.5f, 1.0f, 1.0f},
                          Case{0.0f, 1.0f, 1.0f}, Case{4.0f, 0.5f, 8.0f}, Case{5.0f, 2.5f, 10.0f},
                          Case{4.0f, 0.0f, 8.0f}, Case{4.0f, -3.0f, 8.0f}, Case{4.0f, NONE, 8.0f}}) {
        DynamicOctreeFactory factory;
        factory.setLeafSize(c.leafSize);
        EXPECT_GT(factory.pc_aabb().min.x(), factory.pc_aabb().max.x());
        factory.add(corners(Vector3f(1, 2, 3), Vector3f(1, 2 + c.side, 3)));
        EXPECT_EQ(factory.extend(), c.edge) << c.side << " " << c.leafSize;
        EXPECT_EQ(factory.octree()->extend(), c.edge);
        EXPECT_EQ(factory.octree()->origin(), Vector3f(1, 2, 3));
        EXPECT_EQ(factory.rootNode_aabb().max, Vector3d(1, 2, 3) + Vector3d::Constant(c.edge));
        EXPECT_EQ(factory.pc_aabb().min, Vector3d(1, 2, 3) - Vector3d::Constant(0x1p-23));
        EXPECT_EQ(factory.pc_aabb().max, Vector3d(1, 2 + c.side, 3) + Vector3d::Constant(0x1p-23));
        factory.reset_pc_aabb();
        EXPECT_GT(factory.pc_aabb().min.x(), factory.pc_aabb().max.x());
    }
}

// The old root is [0, 8]^3; the later cloud has one corner in it and one outside.
TEST(DynamicGrowth, GrowsInAllDirectionsAndBySeveralDoublings) {
    const PointCloud first = corners(Vector3f(0, 0, 0), Vector3f(4, 4, 4));
    for (int direction = 0; direction < 8; ++direction) {
        for (const auto& [reach, doublings] :
             {std::pair(4.0f, 1), std::pair(20.0f, 2), std::pair(1000.0f, 7)}) {
            Vector3f outside;
            for (int axis = 0; axis < 3; ++axis) {
                outside[axis] = (direction >> (2 - axis) & 1) != 0 ? 8.0f + reach : -reach;
            }
            DynamicOctreeFactory factory(1);
            factory.add(first);
            PointCloud later = corners(Vector3f(5, 5, 5), outside);
            later.scalars() = {2.0f, 3.0f};
            factory.add(later);
            const Aabb root = factory.rootNode_aabb();
            const double edge = 8.0 * (1 << doublings);
            EXPECT_EQ(root.max, root.min + Vector3d::Constant(edge));
            EXPECT_EQ(factory.extend(), factory.octree()->extend());
            EXPECT_EQ(factory.origin(), factory.octree()->origin());
            for (int axis = 0; axis < 3; ++axis) {
                EXPECT_EQ(std::fmod(root.min[axis], 8.0), 0.0);
                EXPECT_EQ(root.min[axis], outside[axis] < 0.0f ? 8.0 - edge : 0.0);
            }
            expectDynamicInvariants(factory);
            World world;
            addToWorld(first, Vector3d::Zero(), world);
            addToWorld(later, Vector3d::Zero(), world);
            expectHolds(factory, world);
        }
    }
}

TEST(DynamicGrowth, AFixedCubeStaysUntilACloudReachesOutside) {
    DynamicOctreeFactory factory(Vector3f(-8, -8, -8), Vector3f(8, 8, 8));
    factory.add(corners(Vector3f(1, 1, 1), Vector3f(2, 8, 2)));
    EXPECT_EQ(factory.octree()->origin(), Vector3f(-8, -8, -8));
    EXPECT_EQ(factory.octree()->extend(), 16.0f);
    factory.add(corners(Vector3f(-8, -8, -8), Vector3f(8, 8, 8)));  // faces belong to the cube
    EXPECT_EQ(factory.octree()->extend(), 16.0f);
    factory.add(corners(Vector3f(-8.5f, 0, 0), Vector3f(0, 0, 0)));
    EXPECT_EQ(factory.octree()->extend(), 32.0f);
    EXPECT_EQ(factory.size(), 6u);

    DynamicOctreeFactory byEdge(10);
    byEdge.setOriginExtend(Vector3f(-8, -8, -8), 16.0f);
    byEdge.add(numberedCloud(500, -8.0f, 8.0f, 1));
    byEdge.add(numberedCloud(500, -8.0f, 8.0f, 2, 500));
    EXPECT_EQ(byEdge.octree()->extend(), 16.0f);
    EXPECT_EQ(byEdge.size(), 1000u);
    expectDynamicInvariants(byEdge);

    DynamicOctreeFactory outside(Vector3f(-8, -8, -8), Vector3f(8, 8, 8));
    outside.add(corners(Vector3f(30, 0, 0), Vector3f(31, 1, 1)));
    EXPECT_EQ(outside.octree()->keyCount(), 1u);
    expectDynamicInvariants(outside);
}

// A dense cluster reaches depth 20; growth then pushes it far below and it has to be merged upwards.
TEST(DynamicGrowth, MergesWhatWouldLieTooDeep) {
    for (const float reach : {10.0f, 100.0f, 5000.0f, 3.0e6f, 1.0e9f, 1.0e20f}) {
        PointCloud cluster;
        for (int i = 0; i < 200; ++i) {
            Point p;
            p.position = Vector3f::Constant(static_cast<float>(i) * 0x1p-24f);
            p.scalar = static_cast<float>(i);
            cluster.push_back(p, false);
        }
        OpenDynamicFactory factory(3);
        factory.setLeafSize(0.5f);
        factory.add(cluster);
        EXPECT_EQ(factory.octree()->max_depth(), 20u);
        World world;
        addToWorld(cluster, Vector3d::Zero(), world);
        PointCloud far;
        far.positions() = {Vector3f(-reach, reach, 0)};
        far.scalars() = {1000.0f};
        const Vector3d corner(-reach, 0, 0);
        factory.expand_octree(Aabb(corner, Vector3d(0, reach, 0)));
        EXPECT_LE(factory.octree()->max_depth(), 19u);
        EXPECT_EQ(factory.size(), 200u);
        expectMasksAgree(*factory.octree(), 19);

        factory.add(far);
        addToWorld(far, Vector3d::Zero(), world);
        expectHolds(factory, world);
        factory.add(far, Vector3d(reach, 0, 0));
        EXPECT_EQ(factory.size() + factory.droppedPoints(), 202u);
        expectMasksAgree(*factory.octree(), 20);
    }
}

TEST(DynamicGrowth, HoldsItsInvariantsOverLongSequencesFarFromTheOrigin) {
    struct Case {
        float leafSize;
        Vector3d start;
        double stride;
    };
    for (const Case& c : {Case{1.0f, Vector3d(4512345.25, -8388607.75, 120.5), 40.0},
                          Case{0.1f, Vector3d(4512345.25, 6512345.6, -3.3), 4.0},
                          Case{0.25f, Vector3d(0.1, -0.7, 0.3), 300.0}}) {
        std::mt19937 random(31);
        std::uniform_real_distribution<double> uniform(-1.0, 1.0);
        DynamicOctreeFactory factory(40);
        factory.setLeafSize(c.leafSize);
        World world;
        float edge = 0.0f;
        for (unsigned int round = 0; round < 40; ++round) {
            const auto side = static_cast<float>(std::abs(uniform(random)) * 0.3 * c.stride);
            const PointCloud cloud = numberedCloud(random() % 400, -side, side, round, 1000 * round);
            const double reach = c.stride * (1.0 + round * 0.5);
            const Vector3d shift =
                c.start + Vector3d(uniform(random), uniform(random), uniform(random)) * reach;
            factory.add(cloud, shift);
            addToWorld(cloud, shift, world);
            EXPECT_GE(factory.extend(), edge);
            edge = factory.extend();
            factory.add(PointCloud(), shift * 7.0);  // nothing
        }
        EXPECT_LT(factory.droppedPoints(), 10u);
        expectDynamicInvariants(factory);
        expectHolds(factory, world);
        const Aabb root = factory.rootNode_aabb();
        for (const auto& [number, p] : world) {
            EXPECT_TRUE((p.array() >= root.min.array()).all() && (p.array() <= root.max.array()).all());
        }
    }
}

TEST(DynamicGrowth, TakesAnyCoordinates) {
    constexpr float INF = std::numeric_limits<float>::infinity();
    constexpr float NONE = std::numeric_limits<float>::quiet_NaN();
    const std::vector<PointCloud> clouds = {corners(Vector3f(0, 0, 0), Vector3f(0, 0, 0)),
                                            corners(Vector3f(NONE, 0, 0), Vector3f(1, NONE, NONE)),
                                            corners(Vector3f(-INF, 1, INF), Vector3f(0, 0, 0)),
                                            corners(Vector3f(1e30f, -1e30f, 0), Vector3f(1, 1, 1)),
                                            corners(Vector3f::Constant(3e38f), Vector3f::Constant(-3e38f)),
                                            corners(Vector3f::Constant(1e-40f), Vector3f::Constant(-1e-42f)),
                                            corners(Vector3f::Constant(NONE), Vector3f::Constant(NONE))};
    for (const float leafSize : {1.0f, 1e-38f, 3e38f, INF, -1.0f}) {
        for (std::size_t start = 0; start < clouds.size(); ++start) {
            DynamicOctreeFactory factory(std::uint64_t{0});
            factory.setLeafSize(leafSize);
            for (std::size_t i = 0; i < clouds.size(); ++i) {
                factory.add(clouds[(start + i) % clouds.size()]);
            }
            factory.add(clouds[0], Vector3d(1e300, -1e300, std::numeric_limits<double>::quiet_NaN()));
            EXPECT_EQ(factory.size() + factory.droppedPoints(), 2 * clouds.size() + 2);
            expectMasksAgree(*factory.octree(), 20);
            EXPECT_TRUE(std::isfinite(factory.extend()));
            EXPECT_TRUE(factory.origin().allFinite());
        }
    }
}

}  // namespace
