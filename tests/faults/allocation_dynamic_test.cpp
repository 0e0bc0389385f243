// Memory that runs out while a growing tree takes a later cloud: it holds what it held, and takes the cloud
// the next time.

#include <algorithm>
#include <utility>

#include <ombrix/core.h>

#include "tests/core/octree/dynamic_checks.h"
#include "tests/faults/allocation_fixture.h"

namespace {

using namespace ombrix::core;
using ombrix::test::addToWorld;
using ombrix::test::Allocation;
using ombrix::test::numberedCloud;

/// A tree of two clouds, a dozen points of the first at one place, and the cloud to come.
struct Growing {
    DynamicOctreeFactory factory{8};
    ombrix::test::World world;
    PointCloud cloud;
    Vector3d shift;
    Aabb box;

    Growing(const Vector3d& place, PointCloud added, const Vector3d& addedShift)
        : cloud(std::move(added)), shift(place + addedShift) {
        PointCloud first = numberedCloud(52, 0.0f, 0.99f, 1);
        std::fill_n(first.positions().begin(), 12, Vector3f(0.3f, 0.3f, 0.3f));
        const PointCloud second = numberedCloud(40, 0.0f, 0.99f, 2, 52);
        for (const PointCloud* held : {&std::as_const(first), &second}) {
            factory.add(*held, place);
            addToWorld(*held, place, world);
        }
        ombrix::test::addDistances(cloud);
        box = factory.pc_aabb();
    }

    /// @param relative  whether the nodes are as `add` leaves them.
    void expectWhole(bool relative) {
        if (relative) {
            ombrix::test::expectDynamicInvariants(factory);
        } else {
            ombrix::test::expectMasksAgree(*factory.octree(), 20);
            ombrix::test::expectPointsInBoxes(*factory.octree(), 1e-6f);
        }
        ombrix::test::expectHolds(factory, world);
    }

    void expectAsBefore(bool relative) {
        expectWhole(relative);
        EXPECT_EQ(factory.pc_aabb().min, box.min);
        EXPECT_EQ(factory.pc_aabb().max, box.max);
        EXPECT_EQ(factory.scalarfieldMax(), 91.0f);
        EXPECT_EQ(factory.octree()->scalarfieldMax(), 91.0f);
        EXPECT_EQ(factory.octree()->extend(), factory.extend());
        EXPECT_EQ(factory.octree()->origin(), factory.origin());

        factory.add(cloud, shift);
        addToWorld(cloud, shift, world);
        expectWhole(relative);
    }
};

TEST_F(Allocation, OfLaterCloudsInTheDynamicBuilder) {
    const PointCloud inside = numberedCloud(60, 0.0f, 0.99f, 3, 92);
    const PointCloud around = numberedCloud(60, -2.0f, 1.5f, 4, 92);
    const Vector3d none = Vector3d::Zero();
    const Vector3d farAway(1e8 + 3.0, 1e8, -1e8);  // its grid cannot be continued: floats are 8 apart there
    struct Case {
        const char* name;
        Vector3d place;
        const PointCloud* cloud;
        Vector3d shift;
    };
    for (const Case& c : {Case{"inside", none, &inside, none}, Case{"around", none, &around, none},
                          Case{"beyond what keys tell", none, &inside, Vector3d(3e6, 0, 0)},
                          Case{"rebuilt", farAway, &around, Vector3d(-9, 0, 0)}}) {
        ombrix::test::expectEveryAllocationMayFail(
            c.name, [&] { return Growing(c.place, *c.cloud, c.shift); },
            [](Growing& tree) { tree.factory.add(tree.cloud, tree.shift); },
            [](Growing& tree) { tree.expectAsBefore(true); });
    }
    ombrix::test::expectEveryAllocationMayFail(
        "after factory()",
        [&] {
            Growing tree(none, inside, none);
            tree.factory.factory();
            return tree;
        },
        [](Growing& tree) { tree.factory.add(tree.cloud, tree.shift); },
        [](Growing& tree) { tree.expectAsBefore(false); });
}

TEST_F(Allocation, OfReleasedLeavesInTheDynamicBuilder) {
    const PointCloud held = ombrix::test::latticeCloud(60, 1);
    const PointCloud added = ombrix::test::latticeCloud(60, 2, 60);
    const std::vector<ombrix::test::Row> before = ombrix::test::rowsOf(held);
    ombrix::test::expectEveryAllocationMayFail(
        "released",
        [&] {
            ombrix::test::PagingFactory factory(8);
            factory.add(held);
            factory.tree().release();
            return factory;
        },
        [&](DynamicOctreeFactory& factory) { factory.add(added); },
        [&](ombrix::test::PagingFactory& factory) {
            factory.tree().bringBack();
            ombrix::test::expectDynamicInvariants(factory);
            const auto rows = ombrix::test::rowsOf(factory.tree(), factory.origin().cast<double>());
            EXPECT_EQ(rows.size(), factory.size());
            EXPECT_TRUE(std::includes(rows.begin(), rows.end(), before.begin(), before.end()));
        });
}

}  // namespace
