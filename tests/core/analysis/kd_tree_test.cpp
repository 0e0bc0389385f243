#include <stdexcept>

#include <gtest/gtest.h>

#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/points/point_cloud.h>

#include <tests/support/sample_clouds.h>

namespace ombrix::test {
namespace {

using namespace ombrix::core;

/// Every finite point and some places between and outside as queries.
Points queriesFor(const Points& points) {
    Points queries = uniformPoints(20, 12.0f, 9);
    for (std::size_t i = 0; i < points.size(); i += 3) {
        if (points[i].allFinite()) {
            queries.push_back(points[i]);
        }
    }
    return queries;
}

std::vector<Points> clouds() {
    return {uniformPoints(300, 1.0f), planePoints(200), clusteredPoints(200), latticePoints(300, 4),
            equalPoints(300),         equalPoints(1),   brokenPoints(200),    crowdedPoints(800)};
}

TEST(KDTree, KnnAgreesWithBruteForceTiesInIndexOrder) {
    for (const Points& points : clouds()) {
        const KDTree tree(points);
        std::vector<std::size_t> indices;
        std::vector<float> sqDists;
        for (const Vector3f& q : queriesFor(points)) {
            const auto expected = bruteForce(points, q);
            for (const std::size_t k : {std::size_t{1}, std::size_t{8}, points.size() + 3}) {
                const std::size_t found = tree.knnSearch(q, k, indices, sqDists);
                ASSERT_EQ(found, std::min(k, expected.size()));
                ASSERT_EQ(indices.size(), k);
                ASSERT_EQ(sqDists.size(), k);
                for (std::size_t j = 0; j < found; ++j) {
                    ASSERT_EQ(indices[j], expected[j].first) << "neighbour " << j << " of " << k;
                    ASSERT_EQ(sqDists[j], expected[j].second);
                }
            }
        }
    }
}

TEST(KDTree, LargeTreesAgreeWithBruteForceBeforeAndAfterUpdates) {
    Points ascending(60000, Vector3f::Zero());
    for (std::size_t i = 0; i < ascending.size(); ++i) {
        ascending[i].x() = static_cast<float>(i) * 1e-3f;
    }
    for (Points points :
         {uniformPoints(60000, 10.0f, 4), latticePoints(60000, 40), planePoints(60000), ascending}) {
        KDTree tree(points);
        for (const std::size_t size : {points.size(), std::size_t{40000}}) {
            points.resize(size);
            tree.update();
            for (const Vector3f& q : uniformPoints(10, 12.0f, 5)) {
                auto expected = bruteForce(points, q);
                std::erase_if(expected, [](const auto& pair) { return !(pair.second < 4.0f); });
                ASSERT_EQ(tree.radiusSearch(q, 2.0f), expected);
            }
        }
    }
}

TEST(KDTree, CoordinatesWhoseSumOverflowsMakeNoDeepTree) {
    Points points(200000, Vector3f::Zero());
    for (std::size_t i = 0; i < points.size(); ++i) {
        points[i].x() = 2e38f + static_cast<float>(i) * 5e32f;
    }
    const KDTree tree(points);  // with a level for every point the stack would not do
    std::vector<std::size_t> indices;
    std::vector<float> sqDists;
    for (std::size_t i = 0; i < points.size(); i += 9973) {
        ASSERT_EQ(tree.knnSearch(points[i], 2, indices, sqDists), 1u) << "all others are too far away";
        ASSERT_EQ(indices[0], i);
        ASSERT_EQ(sqDists[0], 0.0f);
    }
}

TEST(KDTree, RadiusAgreesWithBruteForce) {
    for (const Points& points : clouds()) {
        const KDTree tree(points);
        std::vector<std::pair<std::size_t, float>> unsorted;
        for (const Vector3f& q : queriesFor(points)) {
            for (const float radius : {0.0f, 0.004f, 0.3f, 1.0f, 2.0f, 5000.0f}) {
                auto expected = bruteForce(points, q);
                std::erase_if(expected, [&](const auto& pair) { return !(pair.second < radius * radius); });
                ASSERT_EQ(tree.radiusSearch(q, radius), expected) << "radius " << radius;
                ASSERT_EQ(tree.radiusCount(q, radius), expected.size());
                tree.radiusSearch(q, radius, unsorted, false);
                std::sort(unsorted.begin(), unsorted.end());
                std::sort(expected.begin(), expected.end());
                ASSERT_EQ(unsorted, expected);
            }
        }
    }
}

TEST(KDTree, UpdateFindsWhatWasAdded) {
    PointCloud cloud;
    cloud.positions() = uniformPoints(100, 1.0f);
    KDTree tree(cloud);
    const Vector3f far(50.0f, 0.0f, 0.0f);
    cloud.positions().push_back(far);
    EXPECT_TRUE(tree.radiusSearch(far, 1.0f).empty());
    tree.update();
    EXPECT_EQ(tree.radiusSearch(far, 1.0f), (std::vector<std::pair<std::size_t, float>>{{100, 0.0f}}));

    const KDTree copy(tree);
    const KDTree moved(std::move(tree));
    EXPECT_EQ(copy.radiusCount(far, 1000.0f), 101u);
    EXPECT_EQ(moved.radiusCount(far, 1000.0f), 101u);
}

TEST(KDTree, NothingToFindAndNoIndex) {
    std::vector<std::size_t> indices;
    std::vector<float> sqDists;
    Points none;
    KDTree empty(none);
    EXPECT_EQ(empty.knnSearch(Vector3f::Zero(), 3, indices, sqDists), 0u);
    EXPECT_EQ(indices.size(), 3u);
    EXPECT_TRUE(empty.radiusSearch(Vector3f::Zero(), 1.0f).empty());

    const Points one(1, Vector3f::Zero());
    KDTree tree(one);
    EXPECT_EQ(tree.knnSearch(Vector3f::Zero(), 0, indices, sqDists), 0u);
    const Vector3f nowhere = Vector3f::Constant(std::numeric_limits<float>::quiet_NaN());
    EXPECT_EQ(tree.knnSearch(nowhere, 1, indices, sqDists), 0u);

    const KDTree taken(std::move(tree));
    try {
        (void)tree.knnSearch(Vector3f::Zero(), 1, indices, sqDists);
        FAIL() << "a tree without an index answered";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "[nanoflann] findNeighbors() called before building the index.");
    }
}

TEST(KDTree, DatasetReadsBrokenCoordinatesAsZeroButMeasuresThem) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const Points points = {{1.0f, 2.0f, 3.0f}, {nan, 5.0f, 6.0f}};
    const KDTree tree(points);
    EXPECT_EQ(tree.kdtree_get_point_count(), 2u);
    EXPECT_EQ(tree.kdtree_get_pt(0, 1), 2.0f);
    EXPECT_EQ(tree.kdtree_get_pt(0, 7), 3.0f);
    EXPECT_EQ(tree.kdtree_get_pt(1, 0), 0.0f);
    const float q[] = {0.0f, 0.0f, 0.0f};
    EXPECT_EQ(tree.kdtree_distance(q, 0, 1), 14.0f);
    EXPECT_TRUE(std::isnan(tree.kdtree_distance(q, 1, 3)));
}

}  // namespace
}  // namespace ombrix::test
