#include <random>

#include "files.h"

namespace ombrix::io::test {

namespace {

using BrokenFiles = IoTest;

const std::string PLY_VERTICES =
    "element vertex 3\nproperty float x\nproperty float y\nproperty double z\nproperty uchar red\n"
    "property uchar green\nproperty uchar blue\nproperty list uchar short tags\n";
const std::string PLY_FACES = "element face 1\nproperty list uchar int vertex_indices\n";

std::string plyStart(const std::string& format, const std::string& elements = PLY_VERTICES + PLY_FACES) {
    return "ply\nformat " + format + " 1.0\n" + elements + "end_header\n";
}

std::string binaryPly(bool big) {
    Bytes bytes(big);
    for (int i = 1; i <= 3; ++i) {
        bytes.add(1.5f * static_cast<float>(i)).add(2.0f).add(3.0 * i);
        bytes.add<std::uint8_t>(1).add<std::uint8_t>(2).add<std::uint8_t>(3);
        bytes.add<std::uint8_t>(1).add<std::int16_t>(9);
    }
    bytes.add<std::uint8_t>(3).add(0).add(1).add(2);
    return plyStart(big ? "binary_big_endian" : "binary_little_endian") + bytes.text;
}

std::string smallLas(const std::filesystem::path& path) {
    core::PointCloud cloud;
    cloud.positions() = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};
    writeLas(path, cloud);
    return contentOf(path);
}

}  // namespace

TEST_F(BrokenFiles, BinaryFilesCutAtAnyByteAreErrors) {
    for (const std::string& whole : {binaryPly(false), binaryPly(true), smallLas(path("a.las"))}) {
        ASSERT_EQ(errorOf("a.bin", whole), "");
        for (std::size_t length = 0; length < whole.size(); ++length) {
            EXPECT_NE(errorOf("a.bin", whole.substr(0, length)), "") << length;
        }
    }
}

// Text can end after any digit and look complete: a cut gives an error, or what the shorter text says.
TEST_F(BrokenFiles, TextFilesCutAtAnyByteAreErrorsOrShorter) {
    const std::string ascii =
        plyStart("ascii") + "1.5 2 3 10 20 30 1 9\n4.5 5 6 40 50 60 0\n7.5 8 9 70 80 90 0\n3 0 1 2\n";
    const std::string csv = "x,y,z,red,green,blue\n1.5,2,3,10,20,30\n4.5,5,6,40,50,60\n7.5,8,9,70,80,90\n";
    const std::string obj = "v 1.5 2 3\nv 4.5 5 6\nv 7.5 8 9\nf 1 2 3\n";
    for (const auto& [name, whole] :
         {std::pair<std::string, std::string>{"a.ply", ascii}, {"a.csv", csv}, {"a.obj", obj}}) {
        const std::size_t points = read(name, whole).cloud.size();
        EXPECT_EQ(points, 3u);
        for (std::size_t length = 0; length < whole.size(); ++length) {
            const std::string cut = whole.substr(0, length);
            try {
                const PointFile file = read(name, cut);
                EXPECT_LE(file.cloud.size(), points);
                EXPECT_EQ(file.cloud.positions()[0].x(), cut.ends_with("1.") ? 1.0f : 1.5f) << cut;
                EXPECT_TRUE(name != "a.ply" || length + 1 >= whole.size()) << cut;
            } catch (const Error& error) {
                EXPECT_NE(std::string(error.what()).find(name + ": "), std::string::npos) << error.what();
            }
        }
    }
}

TEST_F(BrokenFiles, PlyHeadersAreNamedWithTheirLine) {
    const std::string xyz = "property float x\nproperty float y\nproperty float z\n";
    const auto errorIn = [&](const std::string& elements, const std::string& data = "") {
        return errorOf("a.ply", plyStart("binary_little_endian", elements) + data);
    };
    EXPECT_EQ(errorOf("a.ply", "play\n"), "byte 0: no PLY file: it does not begin with the line 'ply'");
    EXPECT_EQ(errorOf("a.ply", "ply\nformat ascii 2.0\n"), "line 2: no known PLY version: '2.0'");
    EXPECT_EQ(errorOf("a.ply", "ply\nformat text 1.0\n"), "line 2: no known PLY format: 'text'");
    EXPECT_EQ(errorOf("a.ply", "ply\nelement vertex 1\n" + xyz + "end_header\n"),
              "line 6: the header has no line 'format'");
    EXPECT_EQ(errorOf("a.ply", "ply\nformat ascii 1.0\nelement vertex 1\n"),
              "line 3: the header has no line 'end_header'");
    EXPECT_EQ(errorIn("element face 1\n"), "line 4: the header has no element 'vertex'");
    EXPECT_EQ(errorIn("element vertex 1\nproperty float x\nproperty float z\n"),
              "line 6: the element 'vertex' has no properties x, y and z");
    EXPECT_EQ(errorIn("element vertex -1\n" + xyz), "line 3: no count of elements: '-1'");
    EXPECT_EQ(errorIn("element vertex 1e3\n" + xyz), "line 3: no count of elements: '1e3'");
    EXPECT_EQ(errorIn("element vertex 99999999999999999999\n" + xyz),
              "line 3: no count of elements: '99999999999999999999'");
    EXPECT_EQ(errorIn("element vertex 1\n" + xyz + "element vertex 1\n"),
              "line 7: the element 'vertex' is there twice");
    EXPECT_EQ(errorIn("property float x\n"), "line 3: no header line: 'property'");
    EXPECT_EQ(errorIn("element vertex 1\nproperty half x\n"), "line 4: no scalar type: 'half'");
    EXPECT_EQ(errorIn("element vertex 1\nproperty float\n"), "line 4: a property without a name");
    EXPECT_EQ(errorIn("element vertex 1\nproperty list float int a\n"),
              "line 4: a list's count must be of an integer type");
    EXPECT_EQ(errorIn("element vertex 1\n" + xyz, std::string(12, 'a') + "b"),
              "byte 127: the file goes on behind the last element that the header promises");
    EXPECT_EQ(errorIn("element vertex 1\n" + xyz, std::string(12, 'a') + std::string("\0\n", 2)), "");
    // Counts that only a file of exabytes could hold must neither wrap nor allocate.
    for (const char* count : {"18446744073709551615", "1537228672809129302", "4611686018427387904"}) {
        for (const char* format : {"binary_little_endian", "ascii"}) {
            const std::string message = errorOf(
                "a.ply", plyStart(format, "element vertex " + std::string(count) + "\n" + xyz) + "1 2 3\n");
            EXPECT_NE(message.find("the file ends here, but the header promises " + std::string(count)),
                      std::string::npos)
                << message;
        }
    }
}

TEST_F(BrokenFiles, PlyDataIsNamedWithItsPlace) {
    const std::string elements =
        "element vertex 2\nproperty uchar x\nproperty short y\nproperty float z\n"
        "property list uchar int tags\n";
    const auto errorIn = [&](const std::string& rows) {
        return errorOf("a.ply", plyStart("ascii", elements) + rows);
    };
    EXPECT_EQ(errorIn("1 2 3 0\n255 -5 6 1 7\n"), "");
    EXPECT_EQ(errorIn("1 2 3 0\n4 5 6 2 7\n"), "line 10: fewer values than the element has properties");
    EXPECT_EQ(errorIn("1 2 3 0\n4 5 6 0 7\n"), "line 10: more values than the element has properties");
    EXPECT_EQ(errorIn("1 2 3 0\n4 5 nan 0\n"), "line 10: not a finite number: 'nan'");
    EXPECT_EQ(errorIn("1 2 3 0\n256 5 6 0\n"), "line 10: the value is out of its property's range");
    EXPECT_EQ(errorIn("1 2 3 0\n4 5 6 1.5 7\n"), "line 10: no count of a list");
    EXPECT_EQ(errorIn("1 2 3 0\n4 5 6 -1\n"), "line 10: the value is out of its property's range");
    EXPECT_EQ(errorIn("111111 2 3 0\n4 5 6 0\n"), "line 9: the value is out of its property's range");
    EXPECT_EQ(errorIn("1 2 3 0          \n"),
              "line 9: the file ends here, but 1 of 2 elements 'vertex' are missing");
    EXPECT_TRUE(
        errorIn("1 2 3 0\n4 5 6 0\n7 8 9 0\n").ends_with("behind the last element that the header promises"));

    const std::string list =
        "element a 1\nproperty list int int b\nelement vertex 0\nproperty float x\n"
        "property float y\nproperty float z\n";
    const auto withLength = [&](int length) {
        return errorOf("a.ply", plyStart("binary_little_endian", list) + Bytes().add(length).text);
    };
    EXPECT_EQ(withLength(0), "");
    EXPECT_EQ(withLength(-1), "byte 151: a list of negative length");
    EXPECT_TRUE(withLength(2147483647).starts_with("byte 155: the file ends here, but 8589934588 bytes"));
}

// Whatever single bytes become: points or an Error, never anything else.
TEST_F(BrokenFiles, AlteredBytesNeverCrash) {
    std::mt19937 random(11);
    const std::string text = "x y z r g b\n1.5 2 3 10 20 30\n4.5 5 6 40 50 60\n";
    for (const auto& [name, whole] : {std::pair<std::string, std::string>{"a.ply", binaryPly(false)},
                                      {"b.ply", binaryPly(true)},
                                      {"a.las", smallLas(path("a.las"))},
                                      {"a.csv", text},
                                      {"a.obj", "v 1 2 3 0 0 1\n" + text}}) {
        int errors = 0;
        for (int round = 0; round < 1500; ++round) {
            std::string altered = whole;
            for (std::size_t n = 1 + random() % 4; n > 0; --n) {
                altered[random() % altered.size()] = static_cast<char>(random() & 255);
            }
            errors += errorOf(name, altered).empty() ? 0 : 1;
        }
        EXPECT_GT(errors, 0) << name;
        EXPECT_LT(errors, 1500) << name;
    }
}

}  // namespace ombrix::io::test
