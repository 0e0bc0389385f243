#include <numeric>

#include <ombrix/core/octree/point_cloud_morton.h>

#include "tests/support/clouds.h"
#include "tests/support/octree_checks.h"

namespace {

using namespace ombrix::core;
using ombrix::test::addDistances;
using ombrix::test::numberedCloud;
using ombrix::test::rowsOf;

/// Points around `origin`, a few of them outside of the root box or not finite, many twice.
PointCloud testCloud(const Vector3f& origin) {
    PointCloud cloud = numberedCloud(4000, -0.5f, 8.5f, 11);
    for (std::size_t i = 0; i < 500; ++i) {
        cloud.positions()[i * 3] = cloud.positions()[i * 5];
    }
    for (Vector3f& p : cloud.positions()) {
        p += origin;
    }
    cloud.positions()[7].z() = std::numeric_limits<float>::quiet_NaN();
    addDistances(cloud);
    return cloud;
}

TEST(PointCloudMorton, IsAStableReorderingOfTheSource) {
    const Vector3f origin(100, -20, 3);
    const PointCloud source = testCloud(origin);
    const PointCloudMorton sorted(source, origin, 8.0f);
    ASSERT_EQ(sorted.size(), source.size());
    std::vector<std::uint64_t> order(source.size());
    std::iota(order.begin(), order.end(), 0);
    const auto code = [&](std::uint64_t i) {
        return OctreeFactory::morton_keyd((source.positions()[i] - origin).cast<double>(), 8.0).key;
    };
    std::stable_sort(order.begin(), order.end(), [&](auto a, auto b) { return code(a) < code(b); });
    EXPECT_EQ(sorted.permutation(), order);
    for (std::uint64_t i = 0; i < order.size(); ++i) {
        EXPECT_EQ(sorted.codes()[i], code(order[i]));
        EXPECT_EQ(sorted.cloud().point(i).scalar, source.scalars()[order[i]]);
        EXPECT_EQ(sorted.cloud().point(i).distance, source.scalars()[order[i]]);
        EXPECT_EQ(sorted.cloud().colors()[i].r, source.colors()[order[i]].r);
        if (order[i] != 7) {
            EXPECT_EQ(sorted.cloud().positions()[i], source.positions()[order[i]]);
        }
    }
}

TEST(PointCloudMorton, RangesPartitionTheCloudAtEveryDepth) {
    const PointCloud source = testCloud(Vector3f::Zero());
    const PointCloudMorton sorted(source, Vector3f::Zero(), 8.0f);
    using Range = std::pair<std::uint64_t, std::uint64_t>;
    EXPECT_EQ(sorted.range(1), Range(0, sorted.size()));
    for (const unsigned int depth : {0u, 1u, 3u, 8u, 21u}) {
        std::uint64_t end = 0;
        std::uint64_t before = 0;
        for (const std::uint64_t key : sorted.keys(depth)) {
            EXPECT_GT(key, before);
            for (std::uint64_t absent = std::max(before + 1, key - std::min<std::uint64_t>(key, 3));
                 absent < key && node_depth(absent) == depth; ++absent) {
                EXPECT_EQ(sorted.range(absent), Range(end, end));
            }
            const auto [first, last] = sorted.range(key);
            EXPECT_EQ(first, end);
            ASSERT_GT(last, first);
            for (std::uint64_t i = first; i < last; ++i) {
                EXPECT_EQ(node_key(sorted.codes()[i], depth), key);
            }
            end = last;
            before = key;
        }
        EXPECT_EQ(end, sorted.size());
    }
}

TEST(PointCloudMorton, FeedsTheRecursiveBuild) {
    const PointCloud source = testCloud(Vector3f::Zero());
    const Octree expected = ombrix::test::fullTree(source, 8.0f, 10);
    ombrix::test::withOneAndFourWorkers([&] {
        const PointCloudMorton sorted(source, Vector3f::Zero(), 8.0f);
        Octree octree;
        OctreeConverter::recursiveBuild(sorted.cloud(), sorted.pairs(), {0, sorted.size() - 1, 1, 0}, 10,
                                        false, octree);
        ASSERT_EQ(octree.keyCount(), expected.keyCount());
        for (const auto& [key, node] : expected.nodes()) {
            EXPECT_EQ(octree.node(key).children, node.children);
            EXPECT_EQ(octree.node(key).pc->scalars(), node.pc->scalars());
        }
    });
}

TEST(PointCloudMorton, TakesEmptyAndUnevenClouds) {
    const PointCloudMorton empty(PointCloud(), Vector3f::Zero(), 1.0f);
    EXPECT_EQ(empty.size(), 0u);
    EXPECT_EQ(empty.range(1), (std::pair<std::uint64_t, std::uint64_t>(0, 0)));
    EXPECT_TRUE(empty.keys(5).empty());

    PointCloud uneven = numberedCloud(50, 0.0f, 1.0f, 12);
    uneven.scalars().resize(20);
    uneven.colors().clear();
    uneven.fields().addField<float>(FIELD_AMBIENT);
    const PointCloudMorton sorted(uneven, Vector3f::Zero(), 1.0f);
    for (std::uint64_t i = 0; i < 50; ++i) {
        const std::uint64_t from = sorted.permutation()[i];
        EXPECT_EQ(sorted.cloud().scalars()[i], from < 20 ? static_cast<float>(from) : 0.0f);
    }
    EXPECT_EQ(sorted.cloud().fields().get(FIELD_AMBIENT)->size(), 50u);
}

}  // namespace
