#include <cmath>
#include <numbers>

#include <gtest/gtest.h>

#include <ombrix/core/analysis/curvature_density.h>
#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/points/point_cloud.h>

#include <tests/support/sample_clouds.h>
#include <tests/support/streams.h>

namespace ombrix::test {
namespace {

using namespace ombrix::core;

TEST(Density, CountsOverDiscAndBallRoundedOnce) {
    const float r = 0.17f;
    const double radius = static_cast<double>(r);
    const auto area = static_cast<float>(std::numbers::pi * radius * radius);
    const auto volume = static_cast<float>(4.0 / 3.0 * std::numbers::pi * radius * radius * radius);
    for (const Points& points : {uniformPoints(900, 1.0f), brokenPoints(200), equalPoints(30), Points()}) {
        const KDTree tree(points);
        Density surface;
        Density parallel;
        Density ball;
        surface.surfaceDensity(points, tree, r);
        parallel.surfaceDensity_omp(points, tree, r);
        ball.volumeDensity(points, tree, r);
        ASSERT_EQ(surface.values().size(), points.size());
        EXPECT_EQ(parallel.values(), surface.values());
        for (std::size_t i = 0; i < points.size(); ++i) {
            auto near = bruteForce(points, points[i]);
            std::erase_if(near, [&](const auto& pair) { return pair.second >= r * r; });
            const auto count = static_cast<float>(near.size());
            EXPECT_FLOAT_EQ(surface.values()[i], count / area);
            EXPECT_FLOAT_EQ(ball.values()[i], count / volume);
        }
    }

    const Points alone(1, Vector3f::Zero());
    Density density;
    density.surfaceDensity(alone, KDTree(alone), 2.0f);
    EXPECT_EQ(density.values().front(), 1.0f / static_cast<float>(4.0 * std::numbers::pi));
}

TEST(Density, NearestOtherPoint) {
    for (const Points& points : {uniformPoints(500, 1.0f), latticePoints(200, 3), brokenPoints(100)}) {
        Density density;
        density.approximateDensity(points, KDTree(points));
        for (std::size_t i = 0; i < points.size(); ++i) {
            const auto sorted = bruteForce(points, points[i]);
            EXPECT_FLOAT_EQ(density.values()[i], sorted.empty() ? 0.0f : std::sqrt(sorted[1].second));
        }
    }
    const Points alone(1, Vector3f::Ones());
    Density density;
    density.approximateDensity(alone, KDTree(alone));
    EXPECT_EQ(density.values(), std::vector<float>{0.0f});
    EXPECT_EQ(Density::dist({1.0f, 2.0f, 3.0f}, {3.0f, 5.0f, 9.0f}), 7.0f);
}

TEST(Density, ColoursByHueAndSaysTheRange) {
    Density density;
    density.values() = {2.0f, 0.5f, 1234567.0f};
    PointCloud cloud;
    EXPECT_EQ(printedBy([&] { density.setColor(cloud); }), "min density 0.5\nmax density 1.23457e+06\n");
    ASSERT_EQ(cloud.colors().size(), 3u) << "colours grow to the values";
    EXPECT_EQ(cloud.colors()[1], ColorHSV(0.0f, 70.0f, 70.0f).HSVToRGB());
    EXPECT_EQ(cloud.colors()[2], ColorHSV(120.0f, 70.0f, 70.0f).HSVToRGB());
    EXPECT_EQ(density.min(), 0.5f);
    EXPECT_EQ(density.max(), 1234567.0f);

    density.values() = {-4.0f, -2.0f};
    std::vector<ColorRGB> colors(3, ColorRGB(9, 9, 9));
    EXPECT_EQ(printedBy([&] { density.setColor(colors); }), "min density -4\nmax density 0\n");
    EXPECT_EQ(colors[1], ColorHSV(60.0f, 70.0f, 70.0f).HSVToRGB()) << "halfway to 0, not the maximum";
    EXPECT_EQ(colors[2], ColorRGB(9, 9, 9));
}

TEST(Curvature, ColoursFromBlackToRedAndSaysTheRange) {
    Curvature curvature;
    curvature.values() = {0.25f, 1e-5f, 0.125f, 0.25f};
    std::vector<ColorRGB> colors(5, ColorRGB(1, 2, 3));
    EXPECT_EQ(printedBy([&] { curvature.setColor(colors); }), "min curv 1e-05\nmax curv 0.25\n");
    EXPECT_EQ(colors[0], ColorRGB(255, 0, 0));
    EXPECT_EQ(colors[1], ColorRGB(0, 0, 0));
    EXPECT_EQ(colors[2], ColorRGB(127, 0, 0)) << "truncated";
    EXPECT_EQ(colors[4], ColorRGB(1, 2, 3));

    curvature.values() = {0.3f, 0.3f};
    EXPECT_EQ(printedBy([&] { curvature.setColor(colors); }), "min curv 0.3\nmax curv 0.3\n");
    EXPECT_EQ(colors[0], ColorRGB(0, 0, 0)) << "no scale, no colour";
}

}  // namespace
}  // namespace ombrix::test
