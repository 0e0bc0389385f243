#include <limits>

#include <gtest/gtest.h>

#include <ombrix/core/points/point_cloud.h>

#include "tests/support/clouds.h"

namespace {

using namespace ombrix::core;
using ombrix::test::uniformPoints;
using ombrix::test::withAttributes;

constexpr float LARGEST = std::numeric_limits<float>::max();

TEST(PointCloudEmpty, HasTheExtremeBoxAndNoBytes) {
    PointCloud cloud;
    EXPECT_EQ(cloud.size(), 0u);
    EXPECT_EQ(cloud.raw_size(), 0u);
    EXPECT_EQ(cloud.aabb_min(), Vector3f::Constant(LARGEST));
    EXPECT_EQ(cloud.aabb_max(), Vector3f::Constant(-LARGEST));
    EXPECT_EQ(cloud.scalarfield_min(), LARGEST);
    EXPECT_EQ(cloud.scalarfield_max(), -LARGEST);
    cloud.transform(Eigen::Transform<double, 3, Eigen::Affine>::Identity());
    EXPECT_FALSE(cloud.hasNormals());
}

TEST(PointCloudSizes, CountEachArrayByItsOwnLength) {
    PointCloud cloud;
    cloud.positions().resize(10);
    cloud.colors().resize(10);
    EXPECT_EQ(cloud.raw_size(), 150u);
    cloud.scalars().resize(3);
    EXPECT_EQ(cloud.raw_size(), 162u);
    EXPECT_THROW(cloud.reserve(0x1555555555555556), std::length_error);
    EXPECT_THROW(cloud.resize(0x1555555555555556), std::length_error);
    EXPECT_EQ(cloud.size(), 10u);
}

TEST(PointCloudSizes, ClearAndFreeKeepTheFieldsRegistered) {
    PointCloud cloud = withAttributes(uniformPoints(100, 1.0f));
    cloud.reserve(500);
    cloud.clear();
    EXPECT_TRUE(cloud.hasNormals());
    EXPECT_TRUE(cloud.normals().empty());
    EXPECT_GE(cloud.positions().capacity(), 500u);
    EXPECT_GE(cloud.normals().capacity(), 500u);
    cloud.resize(3);
    EXPECT_EQ(cloud.colors()[2], ColorRGB());
    EXPECT_EQ(cloud.scalars()[2], 0.0f);
    EXPECT_EQ(cloud.normals()[2], Vector3f(0, 0, 0));
    cloud.free();
    EXPECT_TRUE(cloud.hasNormals());
    EXPECT_EQ(cloud.positions().capacity() + cloud.colors().capacity() + cloud.scalars().capacity() +
                  cloud.normals().capacity(),
              0u);
}

TEST(PointCloudCopies, ShareFieldsAndOwnArrays) {
    PointCloud cloud = withAttributes(uniformPoints(5, 1.0f));
    PointCloud copy = cloud;
    copy.positions()[0] = Vector3f(9, 9, 9);
    copy.normals()[0] = Vector3f(8, 8, 8);
    EXPECT_NE(cloud.positions()[0], Vector3f(9, 9, 9));
    EXPECT_EQ(cloud.normals()[0], Vector3f(8, 8, 8));
    const PointCloud moved = std::move(copy);
    EXPECT_EQ(moved.size(), 5u);
    EXPECT_EQ(copy.size(), 0u);  // NOLINT(bugprone-use-after-move): moving empties the source
    EXPECT_EQ(copy.fields().size(), 0u);
}

TEST(PointCloudPoint, CarriesTheFieldsThatHoldValues) {
    PointCloud cloud = withAttributes(uniformPoints(300, 1.0f));
    Point p = cloud.point(258);
    EXPECT_EQ(p.index, 258u);
    EXPECT_EQ(p.position, cloud.positions()[258]);
    EXPECT_EQ(p.color, ColorRGB(2, 1, 7));
    EXPECT_EQ(p.scalar, 258.0f);
    EXPECT_EQ(p.normal, p.position);
    EXPECT_EQ(p.flags, Point::HAS_NORMAL);
    cloud.fields().addField<float>(FIELD_DISTANCE);
    cloud.fields().addField<Vector3f>(FIELD_AMBIENT).first->resize(300);
    EXPECT_EQ(cloud.point(0).flags, Point::HAS_NORMAL)
        << "an empty field and one of another type do not count";
    cloud.fields().get<float>(FIELD_DISTANCE)->data().assign(300, 2.5f);
    const Pointd d = cloud.pointd(1);
    EXPECT_EQ(d.flags, Pointd::HAS_NORMAL | Pointd::HAS_DISTANCE);
    EXPECT_EQ(d.color, ColorRGB_16(std::uint16_t{257}, std::uint16_t{0}, std::uint16_t{1799}));
    EXPECT_EQ(d.position, cloud.positions()[1].cast<double>());
    EXPECT_EQ(d.distance, 2.5);
    EXPECT_EQ(d.ambient, 0.0);
    cloud.fields() = FieldContainer();
    EXPECT_EQ(cloud.point(0).flags, 0);
    EXPECT_EQ(cloud.point(0).normal, Vector3f(0, 0, 0));
}

TEST(PointCloudNormals, AreAddedOnFirstUse) {
    const PointCloud cloud;
    EXPECT_TRUE(cloud.normals().empty());
    EXPECT_TRUE(cloud.hasNormals());
}

TEST(PointCloudBox, IgnoresNanAndKeepsInfinity) {
    PointCloud cloud;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    cloud.positions() = {{nan, 1, 2}, {3, nan, -4}, {-1, 5, -inf}};
    EXPECT_EQ(cloud.aabb_min(), Vector3f(-1, 1, -inf));
    EXPECT_EQ(cloud.aabb_max(), Vector3f(3, 5, 2));
}

TEST(PointCloudInvertYZ, TwiceRestoresPositionsAndNormals) {
    PointCloud cloud = withAttributes(uniformPoints(50, 1.0f));
    const auto positions = cloud.positions();
    cloud.invertYZ();
    EXPECT_EQ(cloud.positions()[7], Vector3f(positions[7].x(), positions[7].z(), positions[7].y()));
    EXPECT_EQ(cloud.normals()[7], cloud.positions()[7]);
    cloud.invertYZ();
    EXPECT_EQ(cloud.positions(), positions);
    EXPECT_EQ(cloud.normals(), positions);
}

TEST(PointCloudInvertYZ, LeavesAFieldThatOnlyIsNamedNormalAlone) {
    PointCloud cloud;
    cloud.positions() = {{1, 2, 3}, {4, 5, 6}};
    cloud.fields().addField<float>("normal");
    cloud.fields().get<float>("normal")->data() = {7, 8};
    cloud.invertYZ();
    cloud.transform(Eigen::Transform<double, 3, Eigen::Affine>(Eigen::Translation3d(1, 0, 0)));
    EXPECT_EQ(cloud.positions()[1], Vector3f(5, 6, 5));
    EXPECT_EQ(cloud.fields().get<float>("normal")->data(), (std::vector{7.0f, 8.0f}));
}

TEST(PointCloudTransform, MapsPointsAffinelyAndNormalsLinearlyOnAnyNumberOfThreads) {
    Eigen::Transform<double, 3, Eigen::Affine> map(
        Eigen::AngleAxisd(0.7, Vector3d(1, 2, 3).normalized()).toRotationMatrix() * 3.0);
    map.translation() = Vector3d(1e6, 2, 3);
    const PointCloud source = withAttributes(uniformPoints(20000, 10.0f));
    std::vector<PointCloud> results;
    ombrix::test::withOneAndFourWorkers([&] {
        PointCloud cloud;
        cloud.copyFrom(source, false);
        cloud.transform(map);
        results.push_back(cloud);
    });
    EXPECT_EQ(results[0].positions(), results[1].positions());
    EXPECT_EQ(results[0].normals(), results[1].normals());
    for (std::size_t i = 0; i < source.size(); i += 997) {
        const Eigen::Vector4d h = map.matrix() * source.positions()[i].cast<double>().homogeneous();
        EXPECT_EQ(results[0].positions()[i], h.head<3>().cast<float>().eval());
        EXPECT_NEAR(results[0].normals()[i].norm(), 3.0f * source.normals()[i].norm(), 1e-3f)
            << "normals are scaled with the transform";
    }
}

}  // namespace
