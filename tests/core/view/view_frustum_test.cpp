#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>

#include <gtest/gtest.h>

#include <ombrix/core/view/view_frustum.h>

namespace {

using namespace ombrix::core;

/// A camera at (1, 2, 3) that looks along -z of the world with y up.
ViewFrustum camera(float near = 1.0f, float far = 100.0f) {
    ViewFrustum frustum;
    frustum.setIntrinsics(60.0f, 1.5f);
    frustum.setPixelSize(600, 900);
    frustum.setClipPlane(near, far);
    ViewFrustum::Pose pose = ViewFrustum::Pose::Identity();
    pose.linear() = Eigen::AngleAxisf(3.14159265f, Vector3f::UnitY()).toRotationMatrix();
    pose.translation() = Vector3f(1, 2, 3);
    frustum.setPosition(pose);
    return frustum;
}

/// Signed distances of p from the planes of the perspective frustum, positive inside, in double.
std::vector<double> planeDistances(const Vector3f& p, double near, double far) {
    const double x = -(p.x() - 1.0);
    const double y = p.y() - 2.0;
    const double z = -(p.z() - 3.0);
    const double v = 30.0 * 3.14159265358979 / 180.0;
    const double h = std::atan(std::tan(v) * 1.5);
    return {z - near,
            far - z,
            z * std::sin(h) - x * std::cos(h),
            z * std::sin(h) + x * std::cos(h),
            z * std::sin(v) - y * std::cos(v),
            z * std::sin(v) + y * std::cos(v)};
}

TEST(ViewFrustumAngles, MultiplyTheVerticalAngleAndDeriveTheSlope) {
    const ViewFrustum plain(90.0f, 60.0f);
    EXPECT_FLOAT_EQ(plain.hFov(), 1.5707964f);
    ViewFrustum frustum;
    EXPECT_EQ(frustum.hFov(), 0.0f);
    frustum.setIntrinsics(60.0f, 1.5f);
    EXPECT_FLOAT_EQ(frustum.hFov(), 1.5707964f) << "angle times aspect";
    EXPECT_FLOAT_EQ(frustum.slope(), 0.57735026f);
    EXPECT_EQ(alignof(ViewFrustum), 64u);
}

TEST(ViewFrustumPerspective, AgreesWithPlaneDistances) {
    const ViewFrustum frustum = camera();
    std::mt19937 random(3);
    std::uniform_real_distribution<float> uniform(-120.0f, 120.0f);
    std::uniform_real_distribution<float> radius(0.0f, 20.0f);
    int counts[3] = {0, 0, 0};
    for (int i = 0; i < 20000; ++i) {
        const float x = uniform(random);
        const float y = uniform(random);
        const Vector3f p(x, y, uniform(random));
        const float r = i % 2 == 0 ? 0.0f : radius(random);
        const std::vector<double> distances = planeDistances(p, 1.0, 100.0);
        const double nearest = *std::min_element(distances.begin(), distances.end());
        if (std::abs(nearest + r) < 1e-3 || std::abs(nearest - r) < 1e-3) {
            continue;  // too close to call for float
        }
        const int expected = nearest < -r ? 0 : nearest < r ? 1 : 2;
        ASSERT_EQ(frustum.sphereInFrustum(p, r), expected) << p.transpose() << " r " << r;
        if (r == 0.0f) {
            ASSERT_EQ(frustum.pointInFrustum(p), expected);
        }
        ++counts[expected];
    }
    EXPECT_GT(std::min({counts[0], counts[1], counts[2]}), 100) << "all three answers must occur";
}

TEST(ViewFrustumPerspective, CountsItsBoundsAsInside) {
    ViewFrustum frustum;
    frustum.setIntrinsics(90.0f, 1.0f);
    frustum.setPosition(ViewFrustum::Pose::Identity());
    EXPECT_EQ(frustum.pointInFrustum(Vector3f(0, 0, 0)), 2) << "near = far = 0";
    EXPECT_EQ(frustum.pointInFrustum(Vector3f(0.1f, 0, 0)), 0);
    frustum.setClipPlane(1.0f, 8.0f);
    const float slope = frustum.slope();
    for (const float z : {1.0f, 8.0f}) {
        EXPECT_EQ(frustum.pointInFrustum(Vector3f(z * slope, -z * slope, z)), 2);
        EXPECT_EQ(frustum.sphereInFrustum(Vector3f(-z * slope, z * slope, z), 0.0f), 2);
        EXPECT_EQ(frustum.pointInFrustum(Vector3f(0, std::nextafter(z * slope, 99.0f), z)), 0);
    }
    EXPECT_EQ(frustum.pointInFrustum(Vector3f(0, 0, -2)), 0);
}

TEST(ViewFrustumOrthographic, IsABoxThatNeverAnswersOne) {
    ViewFrustum frustum;
    frustum.setIntrinsics(60.0f, 2.0f);
    frustum.setPosition(ViewFrustum::Pose::Identity());
    frustum.setClipPlane(0.0f, 10.0f);
    frustum.setOrthographic(true);
    EXPECT_EQ(frustum.pointInFrustum(Vector3f(2, -1, 10)), 2);
    EXPECT_EQ(frustum.pointInFrustum(Vector3f(2.01f, 0, 5)), 0);
    EXPECT_EQ(frustum.pointInFrustum(Vector3f(0, 1.01f, 5)), 0);
    EXPECT_EQ(frustum.sphereInFrustum(Vector3f(2.5f, 0, 5), 1.0f), 2) << "across the boundary";
    EXPECT_EQ(frustum.sphereInFrustum(Vector3f(0, 0, -0.5f), 1.0f), 2);
    EXPECT_EQ(frustum.sphereInFrustum(Vector3f(3.5f, 0, 5), 1.0f), 0);
    frustum.setOrthographicSize(2.0f);
    EXPECT_EQ(frustum.pointInFrustum(Vector3f(4, 2, 5)), 2);
}

TEST(ViewFrustumDebugObj, WritesAClosedMeshOfItsCorners) {
    ViewFrustum frustum = camera(1.0f, 3.0f);
    frustum.setOrthographic(true);
    const auto path = std::filesystem::path(::testing::TempDir()) / "ombrix_frustum.obj";
    frustum.debugOBJ(path.string());
    std::ifstream in(path);
    std::string keyword;
    std::vector<Vector3f> vertices;
    std::map<std::pair<int, int>, int> edges;
    for (std::string line; std::getline(in, line);) {
        std::istringstream items(line);
        items >> keyword;
        if (keyword == "v") {
            Vector3f v;
            items >> v.x() >> v.y() >> v.z();
            vertices.push_back(v);
            const auto distances = planeDistances(v, 1.0, 3.0);
            EXPECT_EQ(std::count_if(distances.begin(), distances.end(),
                                    [](double d) { return std::abs(d) < 1e-4; }),
                      3)
                << "a corner lies on three planes";
        } else {
            int f[3];
            items >> f[0] >> f[1] >> f[2];
            for (int i = 0; i < 3; ++i) {
                ++edges[{f[i], f[(i + 1) % 3]}];
            }
        }
    }
    std::filesystem::remove(path);
    EXPECT_EQ(vertices.size(), 8u);
    EXPECT_EQ(edges.size(), 36u);
    for (const auto& [edge, count] : edges) {
        EXPECT_EQ(count + edges.count({edge.second, edge.first}), 2u) << "closed, each edge once each way";
    }
    // The first corner is up and to the left of the camera, which looks along -z with x to the left.
    EXPECT_GT(vertices[0].y(), 2.0f);
    EXPECT_GT(vertices[0].x(), 1.0f);
}

}  // namespace
