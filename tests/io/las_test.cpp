#include <cmath>

#include "files.h"

namespace ombrix::io::test {

namespace {

using core::ColorRGB;
using core::Vector3d;
using LasRead = IoTest;

constexpr std::uint16_t LENGTHS[] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};

struct LasFile {
    int minor = 2;
    int format = 0;
    std::uint32_t extraBytes = 0;       // behind each record
    std::uint32_t variableRecords = 0;  // of 10 bytes
    std::string beforePoints;           // not counted to the points' offset
    double firstTime = 3e8 + 1.0 / 1024;
    int points = 2;
    bool wideColors = true;
};

// A whole file, laid out from the tables of the format's published specification.
std::string make(const LasFile& las) {
    const std::uint16_t headerSize = las.minor == 4 ? 375 : las.minor == 3 ? 235 : 227;
    const std::uint32_t offset = headerSize + las.variableRecords * 64;
    const auto length = static_cast<std::uint16_t>(LENGTHS[las.format] + las.extraBytes);
    Bytes bytes;
    bytes.text = std::string(headerSize, '\0');
    bytes.text.replace(0, 4, "LASF");
    bytes.set<std::uint8_t>(24, 1).set(25, static_cast<std::uint8_t>(las.minor)).set(94, headerSize);
    bytes.set(96, offset).set(100, las.variableRecords).set(104, static_cast<std::uint8_t>(las.format));
    bytes.set(105, length);
    bytes.set(107, static_cast<std::uint32_t>(las.minor == 4 && las.format >= 6 ? 0 : las.points));
    for (std::size_t i = 0; i < 3; ++i) {
        bytes.set(131 + 8 * i, i == 2 ? 0.5 : 0.01).set(155 + 8 * i, i == 0 ? 600000.0 : 0.0);
    }
    if (las.minor == 4) {
        bytes.set(247, static_cast<std::uint64_t>(las.points));
    }
    for (std::uint32_t i = 0; i < las.variableRecords; ++i) {
        bytes.text += std::string(20, '\0');
        bytes.add<std::uint16_t>(10);
        bytes.text += std::string(42, 'v');
    }
    bytes.text += las.beforePoints;
    for (int i = 0; i < las.points; ++i) {
        Bytes point;
        point.add(i == 0 ? 1234 : -5)
            .add(250 - i)
            .add(i)
            .add<std::uint16_t>(static_cast<std::uint16_t>(40000 + i));
        if (las.format < 6) {
            point.add<std::uint8_t>(0b01'010'011).add<std::uint8_t>(0b010'00110);
            point.add<std::int8_t>(-12).add<std::uint8_t>(9);
        } else {
            point.add<std::uint8_t>(0b1010'0011).add<std::uint8_t>(0b0110'0010).add<std::uint8_t>(200);
            point.add<std::uint8_t>(9).add<std::int16_t>(-2000);
        }
        point.add<std::uint16_t>(77);
        if (las.format != 0 && las.format != 2) {
            point.add(las.firstTime + i);
        }
        if (las.format == 2 || las.format == 3 || las.format == 5 || las.format == 7 || las.format == 8 ||
            las.format == 10) {
            const int high = las.wideColors ? 256 : 1;
            for (const int c : {10, 20, 30}) {
                point.add(static_cast<std::uint16_t>((c + i) * high));
            }
        }
        if (las.format == 8 || las.format == 10) {
            point.add<std::uint16_t>(500);
        }
        EXPECT_LE(point.text.size(), length);
        point.text.resize(length, '\x7F');
        bytes.text += point.text;
    }
    return bytes.text;
}

}  // namespace

TEST_F(LasRead, ReadsEveryVersionAndPointFormat) {
    for (int minor = 0; minor <= 4; ++minor) {
        for (int format = 0; format <= 10; ++format) {
            SCOPED_TRACE("1." + std::to_string(minor) + ", format " + std::to_string(format));
            const PointFile file = read("a.las", make({.minor = minor,
                                                       .format = format,
                                                       .extraBytes = static_cast<std::uint32_t>(format % 3),
                                                       .variableRecords = static_cast<std::uint32_t>(minor),
                                                       .beforePoints = {}}));
            EXPECT_EQ(file.format, PointFormat::LAS);
            ASSERT_EQ(file.cloud.size(), 2u);
            EXPECT_LT((world(file, 0) - Vector3d(600012.34, 2.5, 0)).norm(), 1e-6);
            EXPECT_LT((world(file, 1) - Vector3d(599999.95, 2.49, 0.5)).norm(), 1e-6);
            EXPECT_EQ(file.shift, Vector3d(600000, 0, 0));
            EXPECT_LT((file.box.min - Vector3d(599999.95, 2.49, 0)).norm(), 1e-9);
            EXPECT_LT((file.box.max - Vector3d(600012.34, 2.5, 0.5)).norm(), 1e-9);
            EXPECT_EQ(file.cloud.scalars(), (std::vector{40000.0f, 40001.0f}));

            const bool extended = format >= 6;
            const auto value = [&](const char* name) {
                const std::vector<float> all = field(file, name);
                return all.empty() ? std::nanf("") : all[1];
            };
            EXPECT_EQ(value("return_number"), 3);
            EXPECT_EQ(value("number_of_returns"), extended ? 10 : 2);
            EXPECT_EQ(value("scan_direction"), 1);
            EXPECT_TRUE(std::isnan(value("edge_of_flight_line")));  // 0 everywhere
            EXPECT_EQ(value("classification"), extended ? 200 : 6);
            EXPECT_EQ(value("classification_flags"), 2);
            EXPECT_EQ(value("user_data"), 9);
            EXPECT_EQ(value("point_source_id"), 77);
            EXPECT_EQ(value("scan_angle"), -12);
            if (extended) {
                EXPECT_EQ(value("scanner_channel"), 2);
            }
            if (format == 8 || format == 10) {
                EXPECT_EQ(value("nir"), 500);
            }
            if (format != 0 && format != 2) {
                EXPECT_EQ(
                    static_cast<double>(value("gps_time")) + static_cast<double>(value("gps_time_rest")),
                    3e8 + 1.0 / 1024 + 1);
            }
            EXPECT_EQ(file.hasColors, format == 2 || format == 3 || format == 5 || format == 7 ||
                                          format == 8 || format == 10);
            if (file.hasColors) {
                EXPECT_EQ(file.cloud.colors(), (std::vector{ColorRGB(10, 20, 30), ColorRGB(11, 21, 31)}));
            }
        }
    }
}

TEST_F(LasRead, ColorsOfEightBitsAreRecognised) {
    const PointFile file =
        read("a.las", make({.format = 3, .beforePoints = {}, .points = 9000, .wideColors = false}));
    EXPECT_EQ(file.cloud.colors()[0], ColorRGB(0, 0, 0));  // 16 bits after all: late values are above 255
    EXPECT_EQ(file.cloud.colors()[8999], ColorRGB(9009 / 256, 9019 / 256, 9029 / 256));
    const PointFile narrow = read("b.las", make({.format = 3, .beforePoints = {}, .wideColors = false}));
    EXPECT_EQ(narrow.cloud.colors()[1], ColorRGB(11, 21, 31));
}

TEST_F(LasRead, TheMarkOfVersion10IsNoPartOfThePoints) {
    EXPECT_EQ(world(read("a.las", make({.minor = 0, .beforePoints = "\xDD\xCC"})), 0).y(), 2.5);
}

TEST_F(LasRead, CountsMustBeTheFilesOwn) {
    const std::string good = make({.minor = 4, .format = 6, .beforePoints = {}});
    const auto with = [&](auto&& change) {
        Bytes bytes;
        bytes.text = good;
        change(bytes);
        return errorOf("a.las", bytes.text);
    };
    EXPECT_EQ(with([](Bytes&) {}), "");
    EXPECT_EQ(with([](Bytes& b) { b.set<std::uint64_t>(247, 3); }),
              "byte 435: the points end here: the file holds 2, its header promises 3");
    EXPECT_EQ(with([](Bytes& b) { b.set<std::uint64_t>(247, std::uint64_t{1} << 63); }),
              "byte 435: the points end here: the file holds 2, its header promises 9223372036854775808");
    EXPECT_EQ(with([](Bytes& b) { b.set<std::uint64_t>(247, 1); }),
              "byte 405: more points follow: the file holds 2, its header promises 1");
    EXPECT_EQ(with([](Bytes& b) { b.set<std::uint32_t>(107, 3); }),
              "byte 247: the two counts of points differ: 3 and 2");
    // What extended records hold is not taken for points.
    EXPECT_EQ(with([](Bytes& b) { b.set<std::uint64_t>(235, 435).text += std::string(200, 'e'); }), "");
    EXPECT_EQ(with([](Bytes& b) { b.set<std::uint64_t>(235, 405).text += std::string(200, 'e'); }),
              "byte 405: the points end here: the file holds 1, its header promises 2");
    Bytes empty;
    empty.text = make({.minor = 4, .format = 6, .beforePoints = {}, .points = 0});
    empty.set<std::uint64_t>(235, empty.text.size()).text += std::string(200, 'e');
    EXPECT_EQ(errorOf("a.las", empty.text), "");
}

TEST_F(LasRead, HeadersThatCannotBeAreRefused) {
    const auto with = [&](std::size_t at, auto value) {
        Bytes bytes;
        bytes.text = make({.format = 2, .variableRecords = 1, .beforePoints = {}});
        return errorOf("a.las", bytes.set(at, value).text);
    };
    EXPECT_EQ(with(0, 'X'), "byte 0: no LAS file: it does not begin with 'LASF'");
    EXPECT_EQ(with(25, std::uint8_t{5}), "byte 24: no known LAS version: 1.5");
    EXPECT_EQ(with(94, std::uint16_t{226}), "byte 94: a header of 226 bytes is too short");
    EXPECT_TRUE(with(96, std::uint32_t{200}).starts_with("byte 96: the points' offset 200"));
    EXPECT_TRUE(with(96, std::uint32_t{1000000}).starts_with("byte 96: the points' offset 1000000"));
    EXPECT_EQ(with(104, std::uint8_t{11}), "byte 104: no known point format: 11");
    EXPECT_TRUE(with(104, std::uint8_t{0x82}).starts_with("byte 104: LAZ"));
    EXPECT_EQ(with(105, std::uint16_t{25}),
              "byte 105: point records of 25 bytes are too short for their format");
    EXPECT_TRUE(with(131, 0.0).starts_with("byte 131: no usable scale"));
    EXPECT_TRUE(with(147, std::nan("")).starts_with("byte 147: no usable scale"));

    Bytes laz;
    laz.text = make({.variableRecords = 1, .beforePoints = {}});
    laz.text.replace(229, 14, "laszip encoded");
    EXPECT_TRUE(errorOf("a.laz", laz.text).starts_with("byte 227: LAZ"));
}

}  // namespace ombrix::io::test
