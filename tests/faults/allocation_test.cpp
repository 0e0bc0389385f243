// Memory that runs out at any point of any operation: no leak, no crash, and what is left can be used.

#include <sstream>

#include <ombrix/core.h>

#include "tests/faults/allocation_fixture.h"
#include "tests/support/octree_checks.h"

namespace {

using namespace ombrix;
using namespace ombrix::core;
using ombrix::test::Allocation;
using ombrix::test::expectEven;
using ombrix::test::expectEveryAllocationMayFail;
using ombrix::test::NOTHING;
using ombrix::test::smallCloud;

Octree smallTree() {
    return ombrix::test::fullTree(smallCloud(), 1.0f, 8);
}

/// Small, but of several levels, which buckets of 65536 points would not give.
Octree smallNestedTree() {
    NestedOctreeFactory factory(Vector3f::Zero(), 1.0f);
    for (const std::uint64_t key : {1, 8, 15, 64}) {
        Octree::Node node;
        node.key = key;
        node.children = key == 1 ? 0x81 : 1;
        factory.add_node(node);
    }
    factory.add(smallCloud(200));
    Octree octree;
    factory(octree);
    return octree;
}

TEST_F(Allocation, OfPointClouds) {
    struct Clouds {
        PointCloud target = smallCloud(5, 2);
        PointCloud source = smallCloud(40);
    };
    const auto make = [] { return Clouds(); };
    const std::vector<std::uint64_t> indices = {7, 3, 39};
    const auto usable = [&](Clouds& clouds) {
        expectEven(clouds.source, 40);
        clouds.target.clear();
        clouds.target.push_back(clouds.source, false);
        expectEven(clouds.target, 40);
        EXPECT_EQ(clouds.target.normals(), clouds.source.normals());
    };
    const auto expectFor = [&](const char* name, const auto& run) {
        expectEveryAllocationMayFail(name, make, run, usable);
    };
    expectFor("push_back", [](Clouds& c) { c.target.push_back(c.source, false); });
    expectFor("push_back range", [](Clouds& c) { c.target.push_back(c.source, 3, 30, false); });
    expectFor("push_back indices", [&](Clouds& c) { c.target.push_back(c.source, indices, false); });
    expectFor("push_back shifted", [](Clouds& c) { c.target.push_back(c.source, Vector3d(1, 2, 3), false); });
    expectFor("push_back point", [](Clouds& c) { c.target.push_back(c.source.point(3), false); });
    expectFor("reserve", [](Clouds& c) { c.target.reserve(100); });
    expectFor("resize", [](Clouds& c) { c.target.resize(100); });
    expectFor("copyFrom", [](Clouds& c) { c.target.copyFrom(c.source, false); });
    expectFor("copyFrom indices", [&](Clouds& c) { c.target.copyFrom(c.source, indices, false); });
    expectFor("copy", [](Clouds& c) { PointCloud copy(c.source); });
    expectFor("assign", [](Clouds& c) { c.target = c.source; });
    expectEveryAllocationMayFail(
        "new field", make,
        [](Clouds& c) {
            c.target.fields().addField<Vector3d>("another").first->resize(5);
            c.target.fields().detach(FIELD_NORMAL);
        },
        NOTHING);
    expectFor("transform", [](Clouds& c) {
        c.target.transform(Eigen::Transform<double, 3, Eigen::Affine>::Identity());
        c.target.reserve(100);
    });
}

TEST_F(Allocation, OfTheFullBuilder) {
    expectEveryAllocationMayFail(
        "add", [] { return FullOctreeFactory(Vector3f::Zero(), 1.0f, 8); },
        [](FullOctreeFactory& factory) {
            factory.add(smallCloud());
            factory.add(smallCloud(30, 2), Vector3d(0.1, 0, 0));
        },
        [](FullOctreeFactory& factory) {
            Octree octree;
            factory(octree);
            ombrix::test::expectMasksAgree(octree);
        });
    expectEveryAllocationMayFail(
        "build",
        [] {
            FullOctreeFactory factory(Vector3f::Zero(), 1.0f, 8);
            factory.add(smallCloud());
            return factory;
        },
        [](FullOctreeFactory& factory) {
            Octree octree;
            factory(octree);
        },
        [](FullOctreeFactory& factory) {
            Octree octree;
            factory(octree);
            EXPECT_EQ(octree.size(), 60u);
        });
}

TEST_F(Allocation, OfTheNestedBuilder) {
    const auto make = [] {
        NestedOctreeFactory factory(Vector3f::Zero(), 1.0f);
        Octree::Node node;
        node.key = 1;
        node.children = 1;
        factory.add_node(node);
        return factory;
    };
    const auto usable = [](NestedOctreeFactory& factory) {
        const std::uint64_t held = factory.size();
        factory.add(smallCloud(3));
        EXPECT_EQ(factory.size(), held + 3);
        Octree octree;
        factory(octree);
        EXPECT_EQ(octree.size(), held + 3);
        ombrix::test::expectMasksAgree(octree);
    };
    expectEveryAllocationMayFail(
        "add", make, [](NestedOctreeFactory& factory) { factory.add(smallCloud(20)); }, usable);
    expectEveryAllocationMayFail(
        "add points", make,
        [](NestedOctreeFactory& factory) {
            const PointCloud cloud = smallCloud(20);
            for (std::uint64_t i = 0; i < cloud.size(); ++i) {
                factory.add(cloud.point(i));
            }
        },
        usable);
    expectEveryAllocationMayFail(
        "load", make, [](NestedOctreeFactory& factory) { factory.add_node_pc(8 * 8 + 3, smallCloud(20)); },
        usable);
    expectEveryAllocationMayFail(
        "build", make,
        [](NestedOctreeFactory& factory) {
            factory.add(smallCloud(20));
            Octree octree;
            factory(octree);
        },
        usable);
}

TEST_F(Allocation, OfTheDynamicBuilder) {
    struct Builder : DynamicOctreeFactory {
        Builder() : DynamicOctreeFactory(8) {}
    };
    const auto grow = [](auto& factory) {
        factory.add(smallCloud(40));
        factory.add(smallCloud(40, 2), Vector3d(3, 0, 0));
        factory.add(smallCloud(20, 3), Vector3d(-70, 20, 0));
    };
    const auto usable = [](auto& factory) {
        // The tree holds whole points, and takes a cloud that fits
        factory.clear();
        factory.add(smallCloud(40));
        EXPECT_EQ(factory.size(), 40u);
        ombrix::test::expectMasksAgree(*factory.octree(), 20);
        ombrix::test::expectPointsInBoxes(*factory.octree(), 1e-6f);
    };
    const auto make = [] { return DynamicOctreeFactory(8); };
    expectEveryAllocationMayFail("add", make, grow, usable);
    expectEveryAllocationMayFail(
        "convert",
        [&] {
            DynamicOctreeFactory factory(8);
            factory.add(smallCloud(40));
            return factory;
        },
        [](DynamicOctreeFactory& factory) { static_cast<void>(factory.convert()); }, usable);
}

TEST_F(Allocation, OfTreesAndConversions) {
    const auto stillThere = [](Octree& octree) { EXPECT_EQ(octree.size(), 200u); };
    const auto expectFor = [&](const char* name, const auto& run) {
        expectEveryAllocationMayFail(name, smallNestedTree, run, stillThere);
    };
    expectFor("nested to full", [](Octree& nested) {
        Octree full;
        OctreeConverter::nestedOctree2FullOctree(nested, -1, 8, full, false);
    });
    expectFor("partial", [](Octree& nested) {
        Octree full;
        full.copyBox(nested);
        Octree partial;
        OctreeConverter::nestedOctreeNode2PartialFullOctree(nested, 8, full, 8, partial, false);
        OctreeConverter::updateFullOctree(partial, 8, full);
    });
    expectFor("merge front", [](Octree& nested) {
        PointCloud out;
        OctreeConverter::mergeFrontNodeWithAncestors(nested, 8, out, false);
        nested.extractPointCloud(8, 3, out);
        nested.extractUpperPointCloud(64, out);
    });
    expectFor("copy and walk", [](Octree& nested) {
        Octree copy = nested;
        copy.set_hierarchy(nested.keys(), {1, 2, 3});
        static_cast<void>(copy.front(-1));
        static_cast<void>(copy.remove_branch(8));
    });
    expectFor("search", [](Octree& nested) {
        std::vector<Point> found;
        std::vector<std::uint64_t> keys;
        kNNSearch(nested).search(Vector3f(0.5f, 0.5f, 0.5f), -1, 5, found, keys);
    });
    expectFor("select", [](Octree& nested) {
        ViewFrustum frustum(60.0f, 60.0f);
        frustum.setIntrinsics(60.0f, 1.0f);
        frustum.setPixelSize(500, 500);
        frustum.setClipPlane(0.01f, 100.0f);
        ViewFrustum::Pose pose = ViewFrustum::Pose::Identity();
        pose.translation() = Vector3f(0.5f, 0.5f, -2.0f);
        frustum.setPosition(pose);
        Visibility visibility(nested);
        EXPECT_GT(visibility.update(frustum, 1000000, 0.0f), 0u);
        visibility.buildHierarchy(false);
    });
    expectFor("normals of a tree", [](Octree& nested) { NormalEstimator::compute(nested, 5, 21); });
    expectEveryAllocationMayFail(
        "full to nested", smallTree,
        [](Octree& full) {
            Octree nested;
            OctreeConverter::fullOctreeToNestedOctree(full, nested);
        },
        [](Octree& full) { EXPECT_EQ(full.size(), 60u); });
}

TEST_F(Allocation, OfAnalyses) {
    const auto stillThere = [](PointCloud& cloud) { expectEven(cloud, 60); };
    const auto expectFor = [&](const char* name, const auto& run) {
        expectEveryAllocationMayFail(
            name, [] { return smallCloud(); }, run, stillThere);
    };
    expectFor("tree", [](PointCloud& cloud) {
        KDTree tree(cloud);
        const KDTree copy = tree;
        std::vector<std::size_t> indices;
        std::vector<float> distances;
        copy.knnSearch(Vector3f::Zero(), 5, indices, distances);
        static_cast<void>(copy.radiusSearch(Vector3f::Zero(), 1.0f));
    });
    expectFor("normals", [](PointCloud& cloud) { NormalEstimator::compute(cloud, 5); });
    expectFor("orientation", [](PointCloud& cloud) { NormalOrientation::alongSpanningTree(cloud, 5); });
    expectFor("density", [](PointCloud& cloud) {
        const KDTree tree(cloud);
        Density density;
        density.approximateDensity(cloud.positions(), tree);
        density.surfaceDensity_omp(cloud.positions(), tree, 0.2f);
        density.volumeDensity(cloud.positions(), tree, 0.2f);
    });
    expectFor("statistics", [](PointCloud& cloud) {
        static_cast<void>(ResolutionEstimator::statistical_mean_dist(cloud.positions(), 4));
        static_cast<void>(StatisticalOutliers::find(cloud.positions(), 4, 1.0f));
    });
    expectFor("projection", [](PointCloud& cloud) {
        const KDTree tree(cloud);
        static_cast<void>(QuasiMLS(cloud.positions(), tree).projection(Vector3f(0.5f, 0.5f, 0.5f), 8));
    });
    expectFor("merge", [](PointCloud& cloud) {
        for (const bool averaging : {false, true}) {
            Merge merge(0.25f);
            merge.setAveraging(averaging);
            merge.add(cloud, Vector3d::Zero());
            merge.add(cloud, Vector3d(0.1, 0, 0));
            PointCloud out;
            std::vector<Merge::Source> sources;
            merge.result(out, sources);
        }
    });
    expectEveryAllocationMayFail(
        "adding to a merge",
        [] {
            Merge merge(0.0f);
            merge.add(smallCloud(), Vector3d::Zero());
            return merge;
        },
        [](Merge& merge) { merge.add(smallCloud(), Vector3d(0.1, 0, 0)); },
        [](Merge& merge) {
            PointCloud out;
            merge.result(out);
            EXPECT_TRUE(out.size() == 60 || out.size() == 120);
            expectEven(out, out.size());
        });
    expectFor("linear octree", [](PointCloud& cloud) {
        const PointCloudMorton morton(cloud, Vector3f::Zero(), 1.0f);
        static_cast<void>(morton.keys(4));
        static_cast<void>(morton.pairs());
    });
}

TEST_F(Allocation, OfColorMaps) {
    expectEveryAllocationMayFail(
        "colours",
        [] {
            return ColorMap(0.0f, 1.0f, {0, 0, 0}, {1, 1, 1});
        },
        [](ColorMap& map) {
            map.insert({0.5f, {1, 0, 0}}, true);
            map.set_colors(VIRIDIS);
        },
        [](ColorMap& map) {
            map.set_colors(GRAY);
            EXPECT_EQ(map.color(1023).r, 1.0f);
        });
}

}  // namespace
