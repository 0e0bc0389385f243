#include <tuple>

#include <ombrix/core/octree/knn_search.h>

#include "tests/support/octree_checks.h"

namespace {

using namespace ombrix::core;
using ombrix::test::fullTree;
using ombrix::test::numberedCloud;

/// (squared distance, node key, index) of the k nearest points, by looking at all of them.
using Hit = std::tuple<double, std::uint64_t, std::uint64_t>;

std::vector<Hit> bruteForce(const Octree& octree, const Vector3f& query, unsigned int deepest,
                            std::size_t k) {
    std::vector<Hit> hits;
    for (const auto& [key, node] : octree.nodes()) {
        if (!node.pc || node_depth(key) > deepest) {
            continue;
        }
        Vector3d corner = Vector3d::Zero();
        if ((node.flags & 8) != 0) {
            corner = octree.node_origin(node).cast<double>();
        }
        for (std::size_t i = 0; i < node.pc->size(); ++i) {
            const Vector3d p = node.pc->positions()[i].cast<double>() + corner;
            hits.emplace_back((p - query.cast<double>()).squaredNorm(), key, i);
        }
    }
    std::sort(hits.begin(), hits.end());
    hits.resize(std::min(k, hits.size()));
    return hits;
}

void expectSameAsBruteForce(Octree& octree, const Vector3f& query, int depth, unsigned int k) {
    std::vector<Point> points;
    std::vector<std::uint64_t> keys;
    EXPECT_EQ(kNNSearch(octree).search(query, depth, k, points, keys), 0u);
    const auto expected = bruteForce(octree, query, depth < 0 ? 21u : static_cast<unsigned int>(depth), k);
    ASSERT_EQ(points.size(), expected.size());
    ASSERT_EQ(keys.size(), expected.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
        const auto& [sqDist, key, index] = expected[i];
        EXPECT_EQ(keys[i], key);
        EXPECT_EQ(points[i].index, index);
        EXPECT_NEAR((points[i].position - query).squaredNorm(), sqDist, 1e-5 * (1.0 + sqDist));
        EXPECT_EQ(points[i].scalar, octree.node(key).pc->scalars()[index]);
    }
}

/// Spreads the points over the levels as a nested tree has them: every third goes up to a random ancestor.
void liftPoints(Octree& octree) {
    for (const std::uint64_t key : octree.leaves()) {
        PointCloud& leaf = *octree.node(key).pc;
        PointCloud& ancestor = *octree.node(std::max<std::uint64_t>(key >> (3 * (1 + key % 3)), 1)).pc;
        std::vector<std::uint64_t> kept;
        std::vector<std::uint64_t> lifted;
        for (std::uint64_t i = 0; i < leaf.size(); ++i) {
            (i % 3 == 0 && &ancestor != &leaf ? lifted : kept).push_back(i);
        }
        ancestor.push_back(leaf, lifted, false);
        leaf.copyFrom(leaf, kept, false);
    }
}

TEST(KnnSearch, AgreesWithBruteForce) {
    Octree full = fullTree(numberedCloud(3000, 0.0f, 10.0f, 1), 10.0f, 16);
    Octree lifted = fullTree(numberedCloud(3000, 0.0f, 10.0f, 2), 10.0f, 16);
    liftPoints(lifted);
    Octree nodeRelative = fullTree(numberedCloud(3000, 0.0f, 10.0f, 3), 10.0f, 16);
    for (auto& [key, node] : nodeRelative.nodes()) {
        for (Vector3f& p : node.pc->positions()) {
            p -= nodeRelative.node_origin(node);
        }
        node.flags = 8;
    }
    const PointCloud queries = numberedCloud(60, -4.0f, 14.0f, 4);
    for (Octree* octree : {&full, &lifted, &nodeRelative}) {
        for (const Vector3f& query : queries.positions()) {
            for (const int depth : {-1, 0, 2, 40}) {
                expectSameAsBruteForce(*octree, query, depth, 9);
            }
        }
        expectSameAsBruteForce(*octree, queries.positions()[0], -1, 5000);
    }
}

// Points of a small lattice have many equal distances; builders clamp points outside of the root box.
TEST(KnnSearch, BreaksTiesByKeyAndIndexAndFindsPointsOutsideTheBox) {
    PointCloud lattice;
    for (int i = 0; i < 2000; ++i) {
        Point p;
        const auto at = [](int v) { return static_cast<float>(v % 9 - 2); };  // the root box is [0, 4]^3
        p.position = Vector3f(at(i), at(i / 9), at(i / 81));
        p.scalar = static_cast<float>(i);
        lattice.push_back(p, false);
    }
    Octree octree = fullTree(lattice, 4.0f, 8);
    for (const float at : {-3.0f, -1.5f, 0.0f, 1.0f, 2.5f, 4.0f, 7.0f}) {
        for (const unsigned int k : {1u, 7u, 30u}) {
            expectSameAsBruteForce(octree, Vector3f(at, 1.0f, at), -1, k);
            expectSameAsBruteForce(octree, Vector3f(2.0f, at, 2.0f), -1, k);
        }
    }
}

TEST(KnnSearch, SkipsAndCountsNodesThatAreNotHeldAndPointsThatAreNotFinite) {
    PointCloud cloud = numberedCloud(1000, 0.0f, 8.0f, 5);
    cloud.positions()[3].x() = std::numeric_limits<float>::quiet_NaN();
    cloud.positions()[4].y() = std::numeric_limits<float>::infinity();
    Octree octree = fullTree(cloud, 8.0f, 16);
    std::vector<Point> points;
    EXPECT_EQ(kNNSearch(octree).search(Vector3f(1, 1, 1), -1, 2000, points), 0u);
    EXPECT_EQ(points.size(), 998u);

    const std::vector<std::uint64_t> leaves = octree.leaves();
    std::uint64_t gone = 0;
    for (std::size_t i = 0; i < 5; ++i) {
        gone += octree.node(leaves[i]).pc->size();
        octree.free_node(leaves[i]);
    }
    EXPECT_EQ(kNNSearch(octree).search(Vector3f(1, 1, 1), -1, 2000, points), 5u);
    EXPECT_GE(points.size() + gone, 998u);
    EXPECT_LE(points.size() + gone, 1000u);

    EXPECT_EQ(kNNSearch(octree).search(Vector3f(1, 1, 1), -1, 0, points), 0u);
    EXPECT_TRUE(points.empty());
    Octree empty;
    EXPECT_EQ(kNNSearch(empty).search(Vector3f(1, 1, 1), -1, 5, points), 0u);
    EXPECT_TRUE(points.empty());
}

}  // namespace
