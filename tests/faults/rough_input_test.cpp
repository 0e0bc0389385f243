// Clouds that no scanner should make but some file holds, through every builder and every analysis: each
// ends in a time that grows with the number of points, and loses none.

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <numbers>
#include <set>

#include <gtest/gtest.h>

#include <ombrix/core.h>

#include "tests/support/clouds.h"
#include "tests/support/octree_checks.h"
#include "tests/support/streams.h"

namespace {

using namespace ombrix::core;
using ombrix::test::NamedCloud;

constexpr float NAN_ = std::numeric_limits<float>::quiet_NaN();
constexpr float INF = std::numeric_limits<float>::infinity();

std::vector<Vector3f> mixedPoints(std::size_t n) {
    std::vector<Vector3f> points = ombrix::test::uniformPoints(n, 1.0f, 7);
    for (std::size_t i = 0; i < n; ++i) {
        switch (i % 10) {
            case 0:
                points[i].x() = NAN_;
                break;
            case 1:
                points[i].y() = INF;
                break;
            case 2:
                points[i].z() = -INF;
                break;
            case 3:
                points[i] *= 1e30f;
                break;
            case 4:
                points[i] *= 1e-40f;
                break;
            case 5:
                points[i].setConstant(NAN_);
                break;
            case 6:
                points[i].setConstant(0.5f);
                break;
            default:
                break;
        }
    }
    return points;
}

std::vector<NamedCloud> roughClouds() {
    constexpr std::size_t MILLION = 1000000;
    constexpr std::size_t MANY = 20000;
    std::vector<Vector3f> line(MANY);
    for (std::size_t i = 0; i < line.size(); ++i) {
        line[i] = Vector3f(static_cast<float>(i) * 1e-3f, 2.0f, -1.0f);
    }
    const auto scaled = [](float factor) {
        std::vector<Vector3f> points = ombrix::test::uniformPoints(MANY, 2.0f, 8);
        for (Vector3f& p : points) {
            p = (p - Vector3f::Ones()) * factor;
        }
        return points;
    };
    using ombrix::test::withAttributes;
    return {{"equal", withAttributes(std::vector<Vector3f>(MILLION, Vector3f(1.5f, -2.5f, 3.5f)))},
            {"line", withAttributes(std::move(line))},
            {"huge", withAttributes(scaled(1e30f))},
            {"largest", withAttributes(scaled(3.4e38f))},
            {"denormal", withAttributes(scaled(1e-40f))},
            {"not a number", withAttributes(std::vector<Vector3f>(MANY, Vector3f::Constant(NAN_)))},
            {"mixed", withAttributes(mixedPoints(MANY))}};
}

/// Looks along +z at the middle of a cube from outside, with all of it in sight.
ViewFrustum cameraBefore(const Octree& octree) {
    const float edge = octree.extend();
    ViewFrustum camera;
    camera.setIntrinsics(90.0f, 1.0f);
    camera.setPixelSize(1000, 1000);
    camera.setClipPlane(edge * 0.01f, edge * 10.0f);
    ViewFrustum::Pose pose = ViewFrustum::Pose::Identity();
    pose.translation() = Vector3f(edge * 0.5f, edge * 0.5f, edge * -2.0f);
    camera.setPosition(pose);
    return camera;
}

/// Selects everything in sight, then a few nodes, and checks what was selected against the tree.
/// @return  the points in sight.
std::uint64_t expectSelections(Octree& octree) {
    const ViewFrustum camera = cameraBefore(octree);
    Visibility visibility(octree);
    const std::uint64_t all = visibility.update(camera, octree.size() + 1, 0.0f);
    for (const std::uint64_t budget : {octree.size() + 1, octree.size() / 3}) {
        const std::uint64_t selected = visibility.update(camera, budget, 0.0f);
        std::uint64_t points = 0;
        std::set<std::uint64_t> seen;
        for (const std::uint64_t key : visibility.getVisibleNodeKeys()) {
            EXPECT_LT(points, budget) << "the budget ends the selection";
            EXPECT_TRUE(key == 1 || seen.count(parent_key(key)) == 1) << "a node before its parent";
            EXPECT_TRUE(seen.insert(key).second) << "a node twice";
            points += octree.node_pc(key)->size();
        }
        EXPECT_EQ(points, selected);
        visibility.buildHierarchy(true);
        EXPECT_EQ(visibility.getHierarchy().size(), seen.size());
    }
    ViewFrustum nowhere = camera;
    ViewFrustum::Pose pose = ViewFrustum::Pose::Identity();
    pose.translation().setConstant(NAN_);
    nowhere.setPosition(pose);
    EXPECT_LE(visibility.update(nowhere, octree.size(), 0.0f), octree.size());
    return all;
}

class RoughInput : public ::testing::Test {
protected:
    /// Made once for all tests.
    static const std::vector<NamedCloud>& clouds() {
        static const std::vector<NamedCloud> all = roughClouds();
        return all;
    }
};

TEST_F(RoughInput, OfTheBuilders) {
    for (const auto& [name, cloud] : clouds()) {
        SCOPED_TRACE(name);
        // The box that `Octree::pc_origin` tells: over finite coordinates
        Octree box;
        box.add_node(1).pc = std::make_shared<PointCloud>(cloud);
        const Vector3f origin = box.pc_origin();
        const Vector3f top = box.pc_top();

        FullOctreeFactory fullFactory(origin, top, 100);
        fullFactory.add(cloud);
        Octree full;
        fullFactory(full);
        EXPECT_EQ(full.size(), cloud.size());
        ombrix::test::expectMasksAgree(full);

        NestedOctreeFactory nestedFactory(origin, top);
        nestedFactory.add(cloud);
        Octree nested;
        nestedFactory(nested);
        EXPECT_EQ(nested.size(), cloud.size());
        ombrix::test::expectMasksAgree(nested);
        OctreeConverter::nestedOctree2FullOctree(nested, -1, 100, full, false);
        EXPECT_EQ(full.size(), cloud.size());
        EXPECT_TRUE(nested.pc_extend().allFinite() || name == "largest");

        DynamicOctreeFactory dynamicFactory(100);
        dynamicFactory.add(cloud);
        EXPECT_EQ(dynamicFactory.size(), cloud.size()) << "the first cloud goes in whole";
        dynamicFactory.add(cloud, Vector3d(1, 2, 3));
        EXPECT_EQ(dynamicFactory.size() + dynamicFactory.droppedPoints(), 2 * cloud.size());
        ombrix::test::expectMasksAgree(*dynamicFactory.octree(), 20);

        std::vector<Point> found;
        kNNSearch(full).search(Vector3f::Zero(), -1, 8, found);
        EXPECT_EQ(found.empty(), name == "not a number");
        const PointCloudMorton morton(cloud, origin, (top - origin).maxCoeff());
        EXPECT_EQ(morton.range(1).second, cloud.size());
        Merge merge(0.5f);
        merge.setAveraging(true);
        merge.add(cloud, Vector3d::Zero());
        PointCloud merged;
        merge.result(merged);
        EXPECT_GT(merged.size(), 0u);
        EXPECT_LE(merged.size(), cloud.size());
    }
}

TEST_F(RoughInput, OfTheSelection) {
    for (const auto& [name, cloud] : clouds()) {
        SCOPED_TRACE(name);
        Octree box;
        box.add_node(1).pc = std::make_shared<PointCloud>(cloud);
        FullOctreeFactory fullFactory(box.pc_origin(), box.pc_top(), 100);
        fullFactory.add(cloud);
        NestedOctreeFactory nestedFactory(box.pc_origin(), box.pc_top());
        nestedFactory.add(cloud);
        for (OctreeFactory* factory : std::initializer_list<OctreeFactory*>{&fullFactory, &nestedFactory}) {
            Octree octree;
            (*factory)(octree);
            const std::uint64_t seen = expectSelections(octree);
            EXPECT_TRUE(seen == cloud.size() || name != "line") << seen << " points in sight";
        }
    }
}

TEST_F(RoughInput, OfTheAnalyses) {
    for (const auto& [name, source] : clouds()) {
        SCOPED_TRACE(name);
        PointCloud cloud;
        cloud.copyFrom(source, true);
        const std::vector<Vector3f>& points = cloud.positions();
        const auto isFinite = [&](std::size_t i) { return points[i].allFinite(); };

        NormalEstimator::compute(cloud, 8);
        NormalOrientation::alongSpanningTree(cloud, 6);
        ASSERT_EQ(cloud.normals().size(), points.size());
        for (std::size_t i = 0; i < points.size(); i += 97) {
            const float length = cloud.normals()[i].norm();
            ASSERT_TRUE(isFinite(i) ? std::abs(length - 1.0f) < 1e-3f : length == 0.0f)
                << "point " << i << " has a normal of length " << length;
        }

        const auto [mean, variance] = ResolutionEstimator::statistical_mean_dist(points, 8);
        EXPECT_TRUE(std::isfinite(mean) && mean >= 0.0f && variance >= 0.0f);
        const auto [nearest, spread] = ResolutionEstimator::mean_dist(points);
        EXPECT_TRUE(std::isfinite(nearest) && spread >= 0.0f);
        EXPECT_LE(nearest, mean) << "the nearest is no farther than the eight nearest";
        EXPECT_LE(StatisticalOutliers::find(points, 8, 1.0f).size(), points.size());

        const KDTree tree(points);
        Density density;
        density.approximateDensity(points, tree);
        EXPECT_EQ(density.values().size(), points.size());
        density.surfaceDensity_omp(points, tree, 1e-6f);
        for (std::size_t i = 0; i < points.size(); i += 97) {
            ASSERT_GE(density.values()[i], 0.0f);
            ASSERT_TRUE(!isFinite(i) || density.values()[i] > 0.0f) << "a point counts itself";
        }
        EXPECT_NE(ombrix::test::printedBy([&] { density.setColor(cloud); }), "");

        constexpr float RADIUS = 0.0505f;
        constexpr double BALL = 4.0 / 3.0 * std::numbers::pi * RADIUS * RADIUS * RADIUS;
        density.volumeDensity(points, tree, RADIUS);
        for (std::size_t i = 0; i < points.size(); i += points.size() / 4) {
            const auto near = std::count_if(points.begin(), points.end(), [&](const Vector3f& p) {
                return (p - points[i]).squaredNorm() < RADIUS * RADIUS;
            });
            EXPECT_NEAR(density.values()[i] * BALL, static_cast<double>(near),
                        1e-5 * static_cast<double>(near))
                << "around point " << i;
        }

        Curvature curvature;
        curvature.values().resize(points.size());
        std::vector<std::size_t> nearest8;
        std::vector<float> sqDists;
        for (std::size_t i = 0; i < points.size(); i += points.size() / 500) {
            PCA axes;
            const std::size_t found = tree.knnSearch(points[i], 8, nearest8, sqDists);
            nearest8.resize(found);
            sqDists.resize(found);
            axes.compute(points, nearest8);
            const float variation = axes.curvature();
            const bool squaresFit =
                name != "huge" && name != "largest" && !sqDists.empty() && sqDists.back() < 1e30f;
            EXPECT_TRUE(std::isnan(variation) || !squaresFit || (variation > -1e-6f && variation < 0.3334f))
                << variation << " at point " << i;
            curvature.values()[i] = variation;
        }
        EXPECT_NE(ombrix::test::printedBy([&] { curvature.setColor(cloud); }), "");
        EXPECT_TRUE(std::all_of(cloud.colors().begin(), cloud.colors().end(),
                                [](const ColorRGB& color) { return color.g == 0 && color.b == 0; }));

        const QuasiMLS surface(points, tree);
        for (std::size_t i = 0; i < points.size(); i += points.size() / 20) {
            EXPECT_TRUE(surface.projection(points[i], 10).allFinite() || !isFinite(i) || name == "largest");
        }
        PCA axes;
        axes.compute(points);
        axes.sort();
        Noise::addGaussianNoise(cloud, 1.0f, 1);
    }
}

}  // namespace
