// Leaves whose clouds are not simply there to append to.

#include <algorithm>

#include "tests/core/octree/dynamic_checks.h"

namespace {

using namespace ombrix::core;
using ombrix::test::latticeCloud;
using ombrix::test::Row;
using ombrix::test::rowsOf;

std::vector<Row> joined(std::vector<Row> a, const std::vector<Row>& b) {
    a.insert(a.end(), b.begin(), b.end());
    std::sort(a.begin(), a.end());
    return a;
}

TEST(DynamicLeaves, TakeACloudOfTheirOwnTree) {
    for (const bool handedOver : {false, true}) {
        DynamicOctreeFactory factory(20);
        factory.setOriginTop(Vector3f::Zero(), Vector3f::Constant(2.0f));
        PointCloud first = latticeCloud(300, 1);
        first.normals().assign(300, Vector3f::UnitZ());
        factory.add(first);
        if (handedOver) {
            factory.factory();
        }
        Octree& octree = *factory.octree();
        for (const std::uint64_t key : octree.leaves()) {
            const std::shared_ptr<PointCloud> cloud = octree.node(key).pc;
            const Vector3d shift(0.25 + 0x1p-11, 0.0, 0.0);  // to leaves around it, between the lattice
            const std::vector<Row> expected = joined(rowsOf(octree), rowsOf(*cloud, shift));
            if (key % 2 == 0) {
                factory.add(*cloud, shift);
            } else {
                const PointCloud copy = *cloud;  // which shares the normals
                factory.add(copy, shift);
                ASSERT_EQ(octree.node(key).pc->normals().size(), octree.node(key).pc->size());
            }
            ASSERT_EQ(rowsOf(octree), expected);
            ombrix::test::expectMasksAgree(octree, 20);
        }
        ASSERT_EQ(factory.octree().get(), &octree);
    }
}

TEST(DynamicLeaves, AreBroughtBackToTakePoints) {
    ombrix::test::PagingFactory factory(20);
    std::vector<Row> expected;
    for (unsigned int i = 0; i < 6; ++i) {
        const PointCloud cloud = latticeCloud(100, i, 100 * i);
        expected = joined(expected, rowsOf(cloud));
        factory.add(cloud);
        EXPECT_EQ(factory.size() + factory.droppedPoints(), expected.size());
        factory.tree().release();
        EXPECT_EQ(factory.size() + factory.droppedPoints(), expected.size());
    }
    factory.tree().bringBack();
    ombrix::test::expectDynamicInvariants(factory);
    EXPECT_EQ(rowsOf(factory.tree(), factory.origin().cast<double>()), expected);
}

}  // namespace
