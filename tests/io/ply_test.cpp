#include <cmath>
#include <limits>

#include "files.h"

namespace ombrix::io::test {

namespace {

using core::ColorRGB;
using core::Vector3d;
using core::Vector3f;
using PlyRead = IoTest;

std::string header(const std::string& format, const std::string& elements) {
    return "ply\r\nformat " + format + " 1.0\r\ncomment made by hand\nobj_info none\n" + elements +
           "end_header\n";
}

// Two faces before the vertices, a list within them, an edge behind them; columns in no usual order.
const std::string MIXED =
    "element face 2\nproperty uint8 flag\nproperty list uchar int vertex_indices\n"
    "element vertex 2\nproperty ushort quality\nproperty double z\nproperty list int32 short tags\n"
    "property uchar blue\nproperty uint8 green\nproperty uchar red\nproperty float64 x\nproperty float y\n"
    "property int8 level\nproperty uint intensity\n"
    "element edge 1\nproperty int vertex1\nproperty list uint16 double weights\n";

std::string mixedBinary(bool big) {
    Bytes bytes(big);
    bytes.add<std::uint8_t>(1).add<std::uint8_t>(3).add(0).add(1).add(2);
    bytes.add<std::uint8_t>(0).add<std::uint8_t>(0);
    bytes.add<std::uint16_t>(65535).add(3.25).add(2).add<std::int16_t>(7).add<std::int16_t>(8);
    bytes.add<std::uint8_t>(30).add<std::uint8_t>(20).add<std::uint8_t>(10);
    bytes.add(500000.5).add(2.5f).add<std::int8_t>(-5).add<std::uint32_t>(4000000000u);
    bytes.add<std::uint16_t>(4).add(-3.25).add(0);
    bytes.add<std::uint8_t>(60).add<std::uint8_t>(50).add<std::uint8_t>(40);
    bytes.add(500001.25).add(-2.5f).add<std::int8_t>(6).add<std::uint32_t>(17);
    bytes.add(5).add<std::uint16_t>(1).add(0.5);
    return bytes.text;
}

const std::string MIXED_ASCII =
    "1 3 0 1 2\n0 0\n"
    "65535 3.25 2 7 8 30 20 10 500000.5 2.5 -5 4000000000\r\n"
    "4\t-3.25 0  60 50 40 500001.25 -2.5 +6 1.7e1 \n\n"
    "5 1 .5\n";

}  // namespace

TEST_F(PlyRead, ReadsEveryFormatOfTheSameContent) {
    for (const auto& [format, data] : {std::pair<std::string, std::string>{"ascii", MIXED_ASCII},
                                       {"binary_little_endian", mixedBinary(false)},
                                       {"binary_big_endian", mixedBinary(true)}}) {
        SCOPED_TRACE(format);
        const PointFile file = read("a.ply", header(format, MIXED) + data);
        EXPECT_EQ(file.format, PointFormat::PLY);
        ASSERT_EQ(file.cloud.size(), 2u);
        EXPECT_EQ(world(file, 0), Vector3d(500000.5, 2.5, 3.25));
        EXPECT_EQ(world(file, 1), Vector3d(500001.25, -2.5, -3.25));
        EXPECT_EQ(file.shift, Vector3d(500000, 0, 0));
        EXPECT_EQ(file.box.min, Vector3d(500000.5, -2.5, -3.25));
        EXPECT_EQ(file.box.max, Vector3d(500001.25, 2.5, 3.25));
        EXPECT_EQ(file.cloud.colors(), (std::vector{ColorRGB(10, 20, 30), ColorRGB(40, 50, 60)}));
        EXPECT_EQ(file.cloud.scalars(), (std::vector{4e9f, 17.0f}));
        EXPECT_EQ(file.fields, (std::vector<std::string>{"quality", "level"}));
        EXPECT_EQ(field(file, "quality"), (std::vector{65535.0f, 4.0f}));
        EXPECT_EQ(field(file, "level"), (std::vector{-5.0f, 6.0f}));
        EXPECT_TRUE(file.hasColors && file.hasScalars && !file.hasNormals);
    }
}

TEST_F(PlyRead, CoordinatesThatAreNotFiniteAreKept) {
    constexpr float NAN_F = std::numeric_limits<float>::quiet_NaN();
    constexpr float INF_F = std::numeric_limits<float>::infinity();
    Bytes bytes;
    for (const float v : {NAN_F, 1.0f, INF_F, 100000.5f, -2.0f, 3.0f}) {
        bytes.add(v);
    }
    const std::string elements = "element vertex 2\nproperty float x\nproperty float y\nproperty float z\n";
    const PointFile file = read("a.ply", header("binary_little_endian", elements) + bytes.text);
    ASSERT_EQ(file.cloud.size(), 2u);
    EXPECT_TRUE(std::isnan(file.cloud.positions()[0].x()));
    EXPECT_EQ(file.cloud.positions()[0].z(), INF_F);
    EXPECT_EQ(file.cloud.positions()[1], Vector3f(100000.5f, -2, 3));  // floats stay as they are
    EXPECT_EQ(file.box.min, Vector3d(100000.5, -2, 3));
    EXPECT_EQ(file.box.max, Vector3d(100000.5, 1, 3));
}

TEST_F(PlyRead, TheWholeFileDecidesTheRangeOfItsColors) {
    // Enough points for the deciding one to come long after the first were converted.
    constexpr int COUNT = 5000;
    const auto colors = [&](const std::string& type, double usual, double last) {
        std::string text =
            header("ascii", "element vertex " + std::to_string(COUNT) +
                                "\nproperty float x\nproperty float y\nproperty float z\nproperty " + type +
                                " red\nproperty " + type + " green\nproperty " + type + " blue\n");
        for (int i = 0; i < COUNT; ++i) {
            text += "0 0 0 0 1 " + std::to_string(i + 1 < COUNT ? usual : last) + "\n";
        }
        const PointFile file = read("a.ply", text);
        return std::vector{file.cloud.colors().front(), file.cloud.colors().back()};
    };
    EXPECT_EQ(colors("ushort", 255, 200), (std::vector{ColorRGB(0, 1, 255), ColorRGB(0, 1, 200)}));
    EXPECT_EQ(colors("ushort", 255, 65280), (std::vector{ColorRGB(0, 0, 0), ColorRGB(0, 0, 255)}));
    EXPECT_EQ(colors("int", 255, 65535), (std::vector{ColorRGB(0, 0, 0), ColorRGB(0, 0, 255)}));
    EXPECT_EQ(colors("float", 0.2, 0.5), (std::vector{ColorRGB(0, 255, 51), ColorRGB(0, 255, 128)}));
    EXPECT_EQ(colors("float", 1, 255), (std::vector{ColorRGB(0, 1, 1), ColorRGB(0, 1, 255)}));
}

TEST_F(PlyRead, NormalsAreOneFieldAndNamesStayApart) {
    const std::string elements =
        "element vertex 1\nproperty float X\nproperty float Y\nproperty float Z\nproperty double nx\n"
        "property float ny\nproperty float nz\nproperty float normal\nproperty float x\nproperty float red\n"
        "property float a\nproperty float a\n";
    const PointFile file = read("a.ply", header("ascii", elements) + "1 2 3 0 0.6 -0.8 4 5 6 7 8\n");
    EXPECT_EQ(file.cloud.positions()[0], Vector3f(1, 2, 3));
    ASSERT_TRUE(file.hasNormals);
    EXPECT_EQ(file.cloud.normals()[0], Vector3f(0, 0.6f, -0.8f));
    EXPECT_FALSE(file.hasColors);
    EXPECT_EQ(file.fields, (std::vector<std::string>{"scalar_normal", "x", "red", "a", "a_2"}));
    EXPECT_EQ(field(file, "scalar_normal"), std::vector{4.0f});
    EXPECT_EQ(field(file, "x"), std::vector{5.0f});
    EXPECT_EQ(field(file, "a_2"), std::vector{8.0f});

    ReadOptions bare;
    bare.fields = false;
    EXPECT_EQ(readPoints(path("a.ply"), bare).cloud.fields().size(), 1u);
}

// In quadratic time, or with a buffer for each property, it would not come to an end.
TEST_F(PlyRead, HeadersMayNameOnePropertyManyTimes) {
    constexpr int COUNT = 100000;
    std::string elements = "element vertex 1\nproperty float x\nproperty float y\nproperty float z\n";
    std::string row = "1 2 3";
    for (int i = 0; i < COUNT; ++i) {
        elements += "property uchar a\n";
        row += i + 1 < COUNT ? " 0" : " 7";
    }
    const PointFile file = read("a.ply", header("ascii", elements) + row + "\n");
    ASSERT_EQ(file.fields.size(), static_cast<std::size_t>(COUNT));
    EXPECT_EQ(field(file, "a_" + std::to_string(COUNT)), std::vector{7.0f});
}

}  // namespace ombrix::io::test
