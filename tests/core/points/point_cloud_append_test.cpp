#include <gtest/gtest.h>

#include <ombrix/core/points/point_cloud.h>

#include "tests/support/clouds.h"
#include "tests/support/expect_throw.h"

namespace {

using namespace ombrix::core;
using ombrix::test::uniformPoints;
using ombrix::test::withAttributes;
using Indices = std::vector<std::uint64_t>;

/// Expects point `at` of `cloud` to be point `from` of `source` with all attributes.
void expectSamePoint(const PointCloud& cloud, std::uint64_t at, const PointCloud& source,
                     std::uint64_t from) {
    const Point a = cloud.point(at);
    const Point b = source.point(from);
    EXPECT_EQ(a.position, b.position) << at;
    EXPECT_EQ(a.color, b.color) << at;
    EXPECT_EQ(a.scalar, b.scalar) << at;
    EXPECT_EQ(a.normal, b.normal) << at;
    EXPECT_EQ(a.flags, b.flags) << at;
}

TEST(PointCloudPushBackPoint, AppendsOnlyFlaggedValuesToExistingFields) {
    PointCloud cloud;
    Point p;
    p.position = {1, 2, 3};
    p.color = {4, 5, 6};
    p.scalar = 7;
    p.normal = {0, 0, 1};
    p.flags = Point::HAS_NORMAL;
    cloud.push_back(p, true);
    EXPECT_FALSE(cloud.hasNormals());
    ombrix::test::expectMissingKey([&] { cloud.push_back(p, false); });
    cloud.clear();
    cloud.normals();
    cloud.push_back(p, true);
    EXPECT_TRUE(cloud.normals().empty());
    cloud.push_back(p, false);
    p.flags = 0;
    cloud.push_back(p, false);
    EXPECT_EQ(cloud.size(), 3u);
    EXPECT_EQ(cloud.normals().size(), 1u) << "a clear flag leaves the field one element short";
    EXPECT_EQ(cloud.scalars()[2], 7.0f);
}

TEST(PointCloudPushBackCloud, TakesAllARangeOrAListInOrder) {
    const PointCloud source = withAttributes(uniformPoints(300, 1.0f));
    PointCloud cloud;
    cloud.push_back(source, false);
    cloud.push_back(source, 5, 7, false);
    cloud.push_back(source, 9, 9, false);
    cloud.push_back(source, Indices{299, 0, 0}, false);
    ASSERT_EQ(cloud.size(), 307u);
    const Indices origin = {5, 6, 7, 9, 299, 0, 0};
    expectSamePoint(cloud, 123, source, 123);
    for (std::size_t i = 0; i < origin.size(); ++i) {
        expectSamePoint(cloud, 300 + i, source, origin[i]);
    }
    cloud.push_back(source, Indices{3}, true);
    EXPECT_EQ(cloud.size(), 308u);
    EXPECT_EQ(cloud.normals().size(), 307u);
    cloud.push_back(source, Indices(), false);
    cloud.push_back(source, 3, 2, false);
    const PointCloud none;
    cloud.push_back(none, 0, none.size() - 1, false);
    EXPECT_EQ(cloud.size(), 308u);
}

TEST(PointCloudPushBackCloud, LeavesMissingColoursAndScalarsOut) {
    PointCloud source;
    source.positions() = uniformPoints(10, 1.0f);
    PointCloud cloud = withAttributes(uniformPoints(2, 1.0f));
    cloud.push_back(source, false);
    cloud.push_back(source, 0, 3, false);
    cloud.push_back(source, Indices{1, 2}, false);
    EXPECT_EQ(cloud.size(), 18u);
    EXPECT_EQ(cloud.colors().size(), 2u);
    EXPECT_EQ(cloud.scalars().size(), 2u);
    EXPECT_EQ(cloud.normals().size(), 2u);
}

TEST(PointCloudPushBackCloud, FormsShiftsInDouble) {
    PointCloud source;
    source.resize(1);
    source.positions()[0] = Vector3f(0.1f, 0.2f, 0.3f);
    PointCloud cloud;
    const Vector3d shift(4e6, -4e6, 1e-9);
    cloud.push_back(source, shift, false);
    EXPECT_EQ(cloud.positions()[0], (source.positions()[0].cast<double>() + shift).cast<float>());
    // A shift down from the millions: formed in float, the tenth would be lost.
    PointCloud far;
    far.resize(1);
    far.positions()[0] = Vector3f(4194304.5f, 0, 0);
    cloud.push_back(far, Vector3d(-4194304.4, 0, 0), false);
    EXPECT_NEAR(cloud.positions()[1].x(), 0.1f, 1e-7f);
    cloud.push_back(source, Indices{0}, Vector3f(1, 2, 3), false);
    EXPECT_EQ(cloud.positions()[2], (source.positions()[0] + Vector3f(1, 2, 3)).eval());
}

TEST(PointCloudPushBackCloud, DoublesItself) {
    PointCloud cloud = withAttributes(uniformPoints(100, 1.0f));
    const PointCloud before = [&] {
        PointCloud copy;
        copy.copyFrom(cloud, false);
        return copy;
    }();
    cloud.push_back(cloud, false);
    cloud.push_back(cloud, 10, 12, false);
    cloud.push_back(cloud, Indices{202, 1}, false);
    ASSERT_EQ(cloud.size(), 205u);
    ASSERT_EQ(cloud.normals().size(), 205u);
    expectSamePoint(cloud, 199, before, 99);
    expectSamePoint(cloud, 202, before, 12);
    expectSamePoint(cloud, 203, before, 12);
    cloud.push_back(cloud, Vector3d(1, 0, 0), false);
    EXPECT_EQ(cloud.size(), 410u);
    EXPECT_EQ(cloud.positions()[205], (before.positions()[0] + Vector3f(1, 0, 0)).eval());
}

TEST(PointCloudCopyFrom, GivesAnEmptyCloudFieldsOfItsOwn) {
    const PointCloud source = withAttributes(uniformPoints(20, 1.0f));
    PointCloud cloud = withAttributes(uniformPoints(3, 1.0f));
    cloud.fields().addField<float>("weight").first->data() = {1, 2, 3};
    cloud.copyFrom(source, false);
    ASSERT_EQ(cloud.size(), 20u);
    expectSamePoint(cloud, 19, source, 19);
    EXPECT_NE(cloud.fields().get(FIELD_NORMAL), source.fields().get(FIELD_NORMAL));
    EXPECT_TRUE(cloud.fields().get("weight")->empty()) << "emptied, but still registered";
    cloud.copyFrom(source, Indices{4, 2}, false);
    ASSERT_EQ(cloud.size(), 2u);
    expectSamePoint(cloud, 0, source, 4);
    cloud.copyFrom(source, true);
    EXPECT_EQ(cloud.size(), 20u);
    EXPECT_TRUE(cloud.normals().empty());
}

TEST(PointCloudCopyFrom, LosesNothingWhenFieldsAreSharedOrTheCloudIsTheSame) {
    PointCloud source = withAttributes(uniformPoints(20, 1.0f));
    PointCloud cloud = source;
    cloud.copyFrom(source, false);
    expectSamePoint(cloud, 19, source, 19);
    EXPECT_EQ(source.normals().size(), 20u);
    cloud.copyFrom(source, Indices{4, 2}, false);
    EXPECT_EQ(cloud.normals(), (std::vector<Vector3f>{source.positions()[4], source.positions()[2]}));
    EXPECT_EQ(source.normals().size(), 20u);
    source.copyFrom(source, false);
    EXPECT_EQ(source.size(), 20u);
    EXPECT_EQ(source.normals().size(), 20u);
    const Vector3f seventh = source.positions()[7];
    source.copyFrom(source, Indices{7}, false);
    EXPECT_EQ(source.positions(), std::vector<Vector3f>{seventh});
    EXPECT_EQ(source.normals(), std::vector<Vector3f>{seventh});
}

}  // namespace
