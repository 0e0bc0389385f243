#include <cmath>
#include <functional>
#include <numeric>
#include <tuple>

#include <gtest/gtest.h>

#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/analysis/normal_estimator.h>
#include <ombrix/core/analysis/normal_orientation.h>
#include <ombrix/core/analysis/pca.h>
#include <ombrix/core/octree/knn_search.h>
#include <ombrix/core/octree/octree.h>

#include <tests/support/octree_checks.h>
#include <tests/support/sample_clouds.h>

namespace ombrix::test {
namespace {

using namespace ombrix::core;

PointCloud cloudOf(Points positions) {
    PointCloud cloud;
    cloud.positions() = std::move(positions);
    return cloud;
}

/// A disc of radius r, evenly filled, lifted to z(x, y) and turned by a fixed rotation.
Points patch(float r, const std::function<float(float, float)>& z, const Eigen::Matrix3f& rotation) {
    constexpr int COUNT = 4000;
    Points points;
    for (int i = 0; i < COUNT; ++i) {
        const float radius = r * std::sqrt((static_cast<float>(i) + 0.5f) / COUNT);
        const float angle = static_cast<float>(i) * 2.39996323f;  // golden angle: Vogel's spiral
        const float x = radius * std::cos(angle);
        const float y = radius * std::sin(angle);
        points.push_back(rotation * Vector3f(x, y, z(x, y)));
    }
    return points;
}

// Over an even disc of radius r a surface of principal curvatures a and b varies in height by
// r^4 ((a² + b²) / 64 - ab / 96) and along each tangent axis by r² / 4.
TEST(NormalEstimator, PatchesHaveTheNormalAndVariationOfTheirSurface) {
    constexpr float R = 0.2f;
    const std::tuple<const char*, double, double, std::function<float(float, float)>> cases[] = {
        {"plane", 0.0, 0.0, [](float, float) { return 0.0f; }},
        {"sphere", 1.0, 1.0, [](float x, float y) { return 1.0f - std::sqrt(1.0f - x * x - y * y); }},
        {"cylinder", 1.0, 0.0, [](float x, float) { return 1.0f - std::sqrt(1.0f - x * x); }},
        {"saddle", 1.0, -1.0, [](float x, float y) { return (x * x - y * y) / 2.0f; }}};
    const Eigen::Matrix3f rotation =
        Eigen::AngleAxisf(0.7f, Vector3f(1.0f, 2.0f, -0.5f).normalized()).toRotationMatrix();
    for (const auto& [name, a, b, z] : cases) {
        const Points points = patch(R, z, rotation);
        PCA pca;
        pca.compute(points);
        const double height = std::pow(R, 4) * ((a * a + b * b) / 64.0 - a * b / 96.0);
        const double expected = height / (height + R * R / 2.0);
        EXPECT_NEAR(pca.curvature(), expected, 0.03 * expected + 1e-6) << name;

        std::vector<std::size_t> indices(points.size());
        std::iota(indices.begin(), indices.end(), std::size_t{0});
        const Vector3f normal = NormalEstimator::compute(points, indices);
        EXPECT_GT(std::abs(normal.dot(rotation.col(2))), 0.9999f) << name;
        pca.sort();
        EXPECT_EQ(normal, -pca.eigenVector(0)) << name;
    }
}

TEST(NormalEstimator, CloudsFollowTheSphereAndTheirOrientationToo) {
    Points points = uniformPoints(20000, 2.0f, 7);
    for (Vector3f& p : points) {
        p = (p - Vector3f::Ones()).normalized();
    }
    PointCloud cloud = cloudOf(points);
    NormalEstimator::compute(cloud, 12);
    for (std::size_t i = 0; i < points.size(); ++i) {
        ASSERT_GT(std::abs(cloud.normals()[i].dot(points[i])), 0.99f);
    }

    NormalOrientation::alongSpanningTree(cloud, 8);
    for (std::size_t i = 0; i < points.size(); ++i) {
        ASSERT_GT(cloud.normals()[i].dot(points[i]), 0.0f) << "outwards, as at the top";
    }
    NormalOrientation::towardsViewpoint(cloud, Vector3f::Zero());
    for (std::size_t i = 0; i < points.size(); ++i) {
        ASSERT_LT(cloud.normals()[i].dot(points[i]), 0.0f) << "inwards";
    }
}

TEST(NormalOrientation, EachPartHasItsOwnTop) {
    // Two sheets too far apart to be neighbours, and normals of random side.
    Points points = planePoints(600);
    Points normals;
    for (std::size_t i = 0; i < points.size(); ++i) {
        points[i].z() = i % 2 == 0 ? 0.0f : 500.0f;
        normals.emplace_back(0.0f, 0.0f, i % 5 < 2 ? -1.0f : 1.0f);
    }
    NormalOrientation::alongSpanningTree(points, 6, normals);
    EXPECT_EQ(normals, Points(600, Vector3f::UnitZ()));
}

TEST(NormalEstimator, CloudEqualsThePlainDefinitionOnAnyNumberOfThreads) {
    for (const Points& points : {latticePoints(3000, 9), uniformPoints(3000, 1.0f), clusteredPoints(500),
                                 brokenPoints(700), equalPoints(20), equalPoints(1), Points()}) {
        const KDTree tree(points);
        std::vector<std::size_t> indices;
        std::vector<float> sqDists;
        Points expected;
        for (const Vector3f& p : points) {
            indices.resize(tree.knnSearch(p, 9, indices, sqDists));
            expected.push_back(NormalEstimator::compute(points, indices));
        }
        withOneAndFourWorkers([&] {
            PointCloud cloud = cloudOf(points);
            NormalEstimator::compute(cloud, 9);
            EXPECT_EQ(cloud.normals(), expected) << points.size() << " points";
        });
    }
}

TEST(NormalEstimator, CoincidentPointsAndNoPoints) {
    EXPECT_EQ(NormalEstimator::compute(std::vector<Point>(3)), Vector3f(-1.0f, 0.0f, 0.0f));
    EXPECT_EQ(NormalEstimator::compute(std::vector<Point>()), Vector3f::Zero());
    PointCloud cloud = cloudOf(uniformPoints(5, 1.0f));
    NormalEstimator::compute(cloud, 0);
    EXPECT_EQ(cloud.normals(), Points(5, Vector3f::Zero()));
}

TEST(NormalEstimator, OctreeNormalsAreThoseOfTheWholeCloud) {
    Octree octree = fullTree(cloudOf(uniformPoints(1500, 10.0f, 11)), 10.0f, 32);

    // One leaf relative to its corner, another that shares its field with a copy, a third not loaded
    const std::vector<std::uint64_t> leaves = octree.leaves();
    Octree::Node& shifted = octree.node(leaves[0]);
    const Vector3f corner = octree.node_origin(shifted);
    shifted.flags |= 8;
    for (Vector3f& p : shifted.pc->positions()) {
        p -= corner;
    }
    PointCloud& sharing = *octree.node(leaves[1]).pc;
    sharing.normals().assign(sharing.size(), Vector3f::UnitY());
    const PointCloud copy = sharing;
    octree.node(leaves[2]).pc.reset();

    PointCloud whole;
    for (const std::uint64_t key : octree.keys()) {
        const Octree::Node& node = octree.node(key);
        if (node.pc) {
            const Vector3d offset = key == leaves[0] ? corner.cast<double>() : Vector3d(0.0, 0.0, 0.0);
            whole.push_back(*node.pc, offset, true);
        }
    }
    NormalEstimator::compute(whole, 10);
    NormalEstimator::compute(octree, 0, Octree::MAX_DEPTH);
    EXPECT_EQ(sharing.normals(), copy.normals()) << "k = 0 changes nothing";
    NormalEstimator::compute(octree, 10, Octree::MAX_DEPTH);

    std::size_t next = 0;
    kNNSearch search(octree);
    for (const std::uint64_t key : octree.keys()) {
        const Octree::Node& node = octree.node(key);
        for (std::size_t i = 0; node.pc && i < node.pc->size(); ++i, ++next) {
            const Vector3f& normal = node.pc->normals()[i];
            ASSERT_GT(std::abs(normal.dot(whole.normals()[next])), 0.9999f) << "point " << next;
            Vector3f single;
            NormalEstimator::compute(search, whole.positions()[next], -1, single, 10);
            ASSERT_GT(std::abs(normal.dot(single)), 0.9999f);
        }
    }
    EXPECT_EQ(next, whole.size());
    EXPECT_EQ(copy.normals(), Points(copy.size(), Vector3f::UnitY())) << "the copy keeps its normals";

    Vector3f none = Vector3f::Ones();
    NormalEstimator::compute(search, Vector3f::Zero(), -1, none, 0);
    EXPECT_EQ(none, Vector3f::Zero());
}

}  // namespace
}  // namespace ombrix::test
