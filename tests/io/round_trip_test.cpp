#include <cmath>
#include <limits>
#include <random>

#include "files.h"

namespace ombrix::io::test {

namespace {

using core::ColorRGB;
using core::PointCloud;
using core::Vector3d;
using core::Vector3f;
using RoundTrip = IoTest;

template <class Vector>
Vector randomVector(std::mt19937& random, double size) {
    std::uniform_real_distribution<double> uniform(-size, size);
    const double x = uniform(random);
    const double y = uniform(random);
    return Vector3d(x, y, uniform(random)).cast<typename Vector::Scalar>();
}

PointCloud richCloud(std::size_t points, float size) {
    std::mt19937 random(7);
    PointCloud cloud;
    auto& ambient = cloud.fields().addField<float>(core::FIELD_AMBIENT).first->data();
    auto& odd = cloud.fields().addField<float>("red").first->data();
    auto& blank = cloud.fields().addField<float>("two words").first->data();
    auto& flow = cloud.fields().addField<Vector3f>("flow").first->data();
    auto& exact = cloud.fields().addField<Vector3d>("exact").first->data();
    cloud.fields().addField<float>("empty");
    auto& normals = cloud.normals();
    for (std::size_t i = 0; i < points; ++i) {
        cloud.positions().push_back(randomVector<Vector3f>(random, static_cast<double>(size)));
        const auto channel = [&] { return static_cast<unsigned char>(random() & 255); };
        cloud.colors().push_back({channel(), channel(), channel()});
        cloud.scalars().push_back(static_cast<float>(random() % 65536));
        ambient.push_back(randomVector<Vector3f>(random, 1e30).x());
        odd.push_back(static_cast<float>(i));
        blank.push_back(-static_cast<float>(i));
        flow.push_back(randomVector<Vector3f>(random, 9.0));
        exact.push_back(randomVector<Vector3d>(random, 1e9));
        normals.push_back(randomVector<Vector3f>(random, 1.0));
    }
    return cloud;
}

template <class T>
void expectSameField(const PointCloud& a, const PointCloud& b, const std::string& name) {
    ASSERT_TRUE(b.fields().contains(name)) << name;
    const auto read = b.fields().get<T>(name);
    ASSERT_TRUE(read) << name;
    EXPECT_EQ(a.fields().get<T>(name)->data(), read->data()) << name;
}

void expectError(const std::string& ending, auto&& write) {
    try {
        write();
        ADD_FAILURE() << "no error: " << ending;
    } catch (const Error& error) {
        EXPECT_TRUE(std::string(error.what()).ends_with(ending)) << error.what();
    }
}

}  // namespace

TEST_F(RoundTrip, PlyKeepsEverything) {
    const PointCloud cloud = richCloud(10'000, 500.0f);
    writePly(path("a.ply"), cloud);
    const PointFile file = readPoints(path("a.ply"));
    EXPECT_EQ(file.shift, Vector3d(0, 0, 0));
    EXPECT_EQ(file.cloud.positions(), cloud.positions());
    EXPECT_EQ(file.cloud.colors(), cloud.colors());
    EXPECT_EQ(file.cloud.scalars(), cloud.scalars());
    EXPECT_EQ(file.cloud.fields().size(), cloud.fields().size() - 1);  // an empty field is not written
    for (const char* name : {"ambient", "red", "two words"}) {
        expectSameField<float>(cloud, file.cloud, name);
    }
    expectSameField<Vector3f>(cloud, file.cloud, "flow");
    expectSameField<Vector3f>(cloud, file.cloud, "normal");
    expectSameField<Vector3d>(cloud, file.cloud, "exact");
    EXPECT_EQ(file.box.min, cloud.aabb_min().cast<double>());
    EXPECT_EQ(file.box.max, cloud.aabb_max().cast<double>());
}

TEST_F(RoundTrip, CoordinatesInTheMillionsKeepTheirPrecision) {
    const Vector3d shift(515368.25, 4918340.5, -12345678.0);
    const PointCloud cloud = richCloud(10'000, 40.0f);
    ReadOptions same;
    same.shift = shift;
    writePly(path("a.ply"), cloud, shift);
    const PointFile again = readPoints(path("a.ply"), same);
    EXPECT_EQ(again.shift, shift);
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        // All that the doubles of coordinates in the ten millions can lose.
        ASSERT_LE((again.cloud.positions()[i] - cloud.positions()[i]).cwiseAbs().maxCoeff(), 4e-9f);
    }
    writeLas(path("a.las"), cloud, shift);

    for (const auto& [name, step] : {std::pair<std::string, double>{"a.ply", 0.0}, {"a.las", 1e-6}}) {
        const PointFile file = readPoints(path(name));
        ASSERT_EQ(file.cloud.size(), cloud.size());
        const double spacing = std::ldexp(1.0, -17);  // of floats between 64 and 128
        for (std::size_t i = 0; i < cloud.size(); ++i) {
            const Vector3d expected = cloud.positions()[i].cast<double>() + shift;
            ASSERT_LE((world(file, i) - expected).cwiseAbs().maxCoeff(), spacing / 2 + step) << name << i;
            ASSERT_LT(file.cloud.positions()[i].cwiseAbs().maxCoeff(), 128.0f);
        }
        EXPECT_EQ(file.cloud.colors(), cloud.colors());
        EXPECT_EQ(file.cloud.scalars(), cloud.scalars());
    }
}

TEST_F(RoundTrip, LasStepsFitTheCloud) {
    const auto stepOf = [&](float farthest, double scale = 0.0) {
        PointCloud cloud;
        cloud.positions() = {{0.3f * farthest, 0, 0}, {-farthest, 0, 0}};
        writeLas(path("a.las"), cloud, Vector3d::Zero(), scale);
        double step = 0.0;
        std::memcpy(&step, contentOf(path("a.las")).data() + 131, sizeof step);
        const Vector3d expected = cloud.positions()[0].cast<double>();
        EXPECT_LE((world(readPoints(path("a.las")), 0) - expected).norm(), step);
        return step;
    };
    EXPECT_EQ(stepOf(0.0f), 0.001);
    EXPECT_EQ(stepOf(1e6f), 0.001);
    EXPECT_EQ(stepOf(1e7f), 0.01);    // more than 32 bits of 0.001
    EXPECT_EQ(stepOf(100.0f), 1e-6);  // floats are 7.6e-6 apart there
    EXPECT_EQ(stepOf(600.0f), 1e-5);
    EXPECT_EQ(stepOf(1e-3f), 1e-10);
    EXPECT_GT(stepOf(std::numeric_limits<float>::max()), 1e28);
    EXPECT_EQ(stepOf(600.0f, 0.25), 0.25);
}

TEST_F(RoundTrip, LasKeepsItsAttributesAndClampsOthers) {
    PointCloud cloud;
    cloud.positions() = {{1, 2, 3}, {4, 5, 6}};
    cloud.scalars() = {-5.0f, 1e9f};
    const std::vector<std::pair<std::string, float>> attributes = {
        {"return_number", 3},       {"number_of_returns", 5}, {"scan_direction", 1},
        {"edge_of_flight_line", 1}, {"classification", 6},    {"classification_flags", 4},
        {"scan_angle", -90},        {"user_data", 250},       {"point_source_id", 60000}};
    for (const auto& [name, value] : attributes) {
        cloud.fields().addField<float>(name).first->data() = {value};  // the second point goes without
    }
    writeLas(path("a.las"), cloud);
    const PointFile file = readPoints(path("a.las"));
    EXPECT_EQ(file.cloud.positions(), cloud.positions());
    EXPECT_EQ(file.cloud.scalars(), (std::vector{0.0f, 65535.0f}));
    EXPECT_EQ(file.cloud.colors(), (std::vector{ColorRGB(), ColorRGB()}));
    for (const auto& [name, value] : attributes) {
        EXPECT_EQ(field(file, name), (std::vector{value, 0.0f})) << name;
    }
}

TEST_F(RoundTrip, EmptyCloudsAndShortArrays) {
    PointCloud cloud;
    writePly(path("a.ply"), cloud);
    writeLas(path("a.las"), cloud);
    for (const char* name : {"a.ply", "a.las"}) {
        const PointFile file = readPoints(path(name));
        EXPECT_EQ(file.cloud.size(), 0u);
        EXPECT_GT(file.box.min.x(), file.box.max.x());
    }
    cloud.fields().addField<float>("quality");
    cloud.fields().addField<Vector3f>("normal");
    writePly(path("a.ply"), cloud);
    const PointFile fields = readPoints(path("a.ply"));
    EXPECT_TRUE(fields.hasNormals);
    EXPECT_EQ(fields.fields, (std::vector<std::string>{"quality"}));
    cloud.fields().clear();
    cloud.positions() = {{1, 2, 3}, {4, 5, 6}};
    cloud.colors() = {{7, 8, 9}};
    cloud.fields().addField<float>("short").first->data() = {5.0f};
    writePly(path("a.ply"), cloud);
    const PointFile file = readPoints(path("a.ply"));
    EXPECT_EQ(file.cloud.colors(), (std::vector{ColorRGB(7, 8, 9), ColorRGB()}));
    EXPECT_EQ(field(file, "short"), (std::vector{5.0f, 0.0f}));
    EXPECT_FALSE(file.hasScalars);
}

TEST_F(RoundTrip, WhatCannotBeWrittenIsAnError) {
    const PointCloud cloud = richCloud(20'000, 1.0f);
    expectError("opening: No such file or directory", [&] { writePly(path("no/a.ply"), cloud); });
    expectError("opening: Is a directory", [&] { writeLas(path(""), cloud); });
    if (std::filesystem::exists("/dev/full")) {
        expectError("/dev/full: writing: No space left on device", [&] { writePly("/dev/full", cloud); });
        expectError("/dev/full: writing: No space left on device", [&] { writeLas("/dev/full", cloud); });
        expectError("/dev/full: writing: No space left on device", [&] { writeLas("/dev/full", {}); });
        EXPECT_TRUE(std::filesystem::exists("/dev/full"));
    }
    PointCloud broken;
    broken.positions() = {{1, 2, 3}, {4, std::numeric_limits<float>::quiet_NaN(), 6}};
    const auto kept = file("kept.las", "older content");
    expectError("writing: the position of point 1 is not finite", [&] { writeLas(kept, broken); });
    expectError("writing: the positions do not fit into 32 bits at this scale",
                [&] { writeLas(kept, cloud, Vector3d::Zero(), 1e-12); });
    expectError("writing: the scale is not above 0", [&] { writeLas(kept, cloud, Vector3d::Zero(), -1.0); });
    EXPECT_EQ(contentOf(kept), "older content");
}

}  // namespace ombrix::io::test
