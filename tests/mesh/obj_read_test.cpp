#include <gtest/gtest.h>

#include <bit>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>

#include <ombrix/core/services/work_context.h>

#include "mesh_support.h"
#include "tests/support/streams.h"

namespace ombrix::mesh::test {
namespace {

using ombrix::test::printedBy;

const std::string FOUR = "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\n";

TEST(ObjRead, KeepsTheFirstTriangleOfEveryFaceForm) {
    struct Case {
        std::string lines, faces;
    };
    const std::string texture = "vt 0 0\n", normal = "vn 0 0 1\n", both = texture + normal;
    for (const Case& c : std::vector<Case>{
             {"f 1 2 3", "0 1 2"},
             {"f 1 2 3 4", "0 1 2"},
             {texture + "f 1/1 2/2 3/3 4/4", "0 1 2"},
             {normal + "f 1//1 2//2 3//3", "0 1 2"},
             {both + "f 4/1/1 3/2/2 2/3/3", "3 2 1"},
             {both + "f 1 / 1 / 1 2 /2/ 2 3/ 3 /3", "0 1 2"},
             {texture + "f 1/ 1 2/ 2 3/ 3", "0 1 2"},
             // Not announced, announced but missing, mixed, and with empty slots.
             {"f 1/1/1 2//2 3/3", "0 1 2"},
             {both + "f 1 2 3\nf 2/1 3 4//1", "0 1 2, 1 2 3"},
             {both + "f 1/ 2/ 3/\nf 1// 2// 3//", "0 1 2, 0 1 2"},
             // Fewer than three readable corners are no face.
             {"f 1 2\nf\nf 1\nf a b c\nf 1 2 x\nf 99999999999 1 2\nf 1 /2 3 4\nf 2 3 4", "1 2 3"},
             {"f +1 2.0 3x", "0 1 2"},
             // Indices are not checked.
             {"f 0 7 3", "4294967295 6 2"},
             {"f -1 1 2", "4294967294 0 1"},
         }) {
        const TriMesh mesh = readPlain(FOUR + c.lines + "\n");
        EXPECT_EQ(facesOf(mesh), c.faces) << c.lines;
        EXPECT_EQ(mesh.vertices.size(), 4u);
        EXPECT_EQ(mesh.normals.size(), c.lines.find("vn") != std::string::npos ? 1u : 0u) << c.lines;
    }
}

TEST(ObjRead, TakesWhatRealFilesHold) {
    const std::string text =
        "\xEF\xBB\xBFv 1 2 3\r\n\r\n# comment\r\n  \t v\t+4.5  -.5   1e2 255 0 0\r\ng group\nusemtl x\n"
        "v 1. +2.e1 -3.5E-1 1\nvp 1 2\nv1 2 3\nl 1 2\n\t\n" +
        std::string(5000, ' ') + "f  1\t2   3  \r\no last\nvn 0 0 1\nf 3 2 1";
    const TriMesh mesh = readPlain(text);
    ASSERT_EQ(mesh.vertices.size(), 3u);
    EXPECT_EQ(mesh.vertices[0], Vector3f(1, 2, 3));
    EXPECT_EQ(mesh.vertices[1], Vector3f(4.5f, -0.5f, 100));
    EXPECT_EQ(mesh.vertices[2], Vector3f(1, 20, -0.35f));
    EXPECT_EQ(facesOf(mesh), "0 1 2, 2 1 0");
    EXPECT_EQ(mesh.normals.size(), 1u);
}

TEST(ObjRead, KeepsRecordsWithMalformedNumbersSoThatIndicesStayRight) {
    const TriMesh mesh = readPlain(
        "v 1 x 3\nv\nv 1 2\nv 3.1+e2 4 5\nv nan -inf inf\nv 1.#INF -1.#INF 1.#IND\nv 1e99 -1e999 1e-999\n");
    ASSERT_EQ(mesh.vertices.size(), 7u);
    EXPECT_EQ(mesh.vertices[0], Vector3f(1, 0, 3));
    EXPECT_EQ(mesh.vertices[1], Vector3f(0, 0, 0));
    EXPECT_EQ(mesh.vertices[2], Vector3f(1, 2, 0));
    EXPECT_EQ(mesh.vertices[3], Vector3f(3.1f, 4, 5));
    constexpr float INF = std::numeric_limits<float>::infinity();
    EXPECT_TRUE(std::isnan(mesh.vertices[4].x()) && std::isnan(mesh.vertices[5].z()));
    EXPECT_EQ(mesh.vertices[4].tail<2>(), Eigen::Vector2f(-INF, INF));
    EXPECT_EQ(mesh.vertices[5].head<2>(), Eigen::Vector2f(INF, -INF));
    EXPECT_EQ(mesh.vertices[6], Vector3f(INF, -INF, 0));
}

TEST(ObjRead, RoundsEveryNumberAsTheCLibraryDoes) {
    std::mt19937_64 random(7);
    std::vector<std::string> texts = {"16777217",       "16777219",  "0.1",
                                      "1.17549435e-38", "1.4e-45",   "3.4028236e38",
                                      "8388608.5",      "8388609.5", "123456789012345678901234567890",
                                      "0.000",          "-0"};
    const char* formats[] = {"%.6g", "%.9g", "%.3f", "%.17g", "%.30f", "%.15g"};
    for (int i = 0; i < 6000; ++i) {
        char text[400];
        const auto value = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
        const double near = std::isfinite(value) && i % 2 == 0 ? value : std::ldexp(double(random()), -60);
        std::snprintf(text, sizeof text, formats[random() % std::size(formats)], near);
        texts.emplace_back(text);
        // Halfway between two floats, and just beside it.
        const auto even = static_cast<float>(random() % 16777216);
        const double halfway = (double(even) + double(std::nextafter(even, 2e7f))) / 2;
        std::snprintf(text, sizeof text, i % 3 == 0 ? "%.9f" : i % 3 == 1 ? "%.9f0001" : "%.7f", halfway);
        texts.emplace_back(text);
    }
    std::string file;
    for (const std::string& text : texts) {
        file += "v " + text + " 0 0\n";
    }
    const TriMesh mesh = readPlain(file);
    ASSERT_EQ(mesh.vertices.size(), texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i) {
        EXPECT_EQ(mesh.vertices[i].x(), std::strtof(texts[i].c_str(), nullptr)) << texts[i];
    }
}

TEST(ObjRead, AndWriteIgnoreTheLocale) {
    TriMesh mesh;
    mesh.vertices.assign(2000, Vector3f(0.5f, -1.25f, 1e-7f));
    mesh.faces = {{{0, 1, 1999}}};
    const TempPath plain, full;
    TriMesh back;
    {
        const ombrix::test::CommaLocale comma;
        printedBy([&] { mesh.writeOBJ(plain.str()); });
        EXPECT_TRUE(mesh.writeOBJ(full.str(), ObjWriteOptions{}).ok());
        back.readOBJ(plain.str());
    }
    EXPECT_EQ(plain.content().substr(0, 20), "v 0.5 -1.25 1e-07\nv ");
    EXPECT_EQ(full.content().substr(0, 28), "v 0.5 -1.25 1.00000001e-07\nv");
    EXPECT_EQ(back.vertices, mesh.vertices);
    EXPECT_EQ(facesOf(back), "0 1 1999");
}

TEST(ObjRead, ReportsOnlyAFileThatCannotBeOpened) {
    TriMesh mesh = sphereMesh(1, 4);
    const std::size_t vertices = mesh.vertices.size();
    for (const std::string& path : {std::string("/nowhere/missing.obj"), std::string("/tmp")}) {
        EXPECT_EQ(printedBy([&] { mesh.readOBJ(path); }), "ERROR in TriMesh::readOBJ :  file not found\n");
        EXPECT_EQ(mesh.vertices.size(), vertices);
        const ObjReadResult result = mesh.readOBJ(path, ObjReadOptions{});
        EXPECT_FALSE(result.ok());
        EXPECT_NE(result.error.find(path), std::string::npos) << result.error;
        EXPECT_EQ(mesh.vertices.size(), vertices);
    }
    EXPECT_EQ(printedBy([&] { mesh.readOBJ(TempPath(std::string("v 1 1 1\nf 1 2 3\n")).str()); }), "");
    EXPECT_EQ(mesh.vertices.size(), vertices + 1);
    EXPECT_EQ(mesh.faces.back().index[2], 2u);  // as the file has it
}

TEST(ObjReadWithOptions, TriangulatesResolvesAndCounts) {
    const TempPath file(
        "# fan\n" + FOUR +
        "vt 0 0\nf 1/1 2/1 3/1 4/1\n"
        "f -4 -3 -2\n"
        "v 2 2 2\nf -1 1 \\\r\n  2 \\\n3\n"
        "f 1 2 9\nf 0 1 2\nf 1 2 -99\nf 1 2\nf 1 2 3 x\nv 1 y 3\nl 1 2\nf 6 2 3 # trailing\n");
    TriMesh mesh;
    const ObjReadResult result = mesh.readOBJ(file.str(), ObjReadOptions{});
    EXPECT_TRUE(result.ok());
    EXPECT_EQ(facesOf(mesh), "0 1 2, 0 2 3, 0 1 2, 4 0 1, 4 1 2, 0 1 2, 5 1 2");
    EXPECT_EQ(result.lines, 20u);
    EXPECT_EQ(result.vertices, 6u);
    EXPECT_EQ(result.triangles, 7u);
    EXPECT_EQ(result.polygons, 2u);
    EXPECT_EQ(result.textureCoordinates, 1u);
    EXPECT_EQ(result.otherLines, 1u);
    EXPECT_EQ(result.malformedLines, 2u);
    EXPECT_EQ(result.skippedFaces, 1u);
    EXPECT_EQ(result.droppedTriangles, 3u);
    EXPECT_EQ(result.firstProblemLine, 16u);

    // Appending shifts the indices and keeps one normal per vertex.
    mesh.evaluateVertexNormals();
    ASSERT_TRUE(mesh.readOBJ(file.str(), {.triangulate = false}).ok());
    EXPECT_EQ(facesOf(mesh).substr(49), "6 7 8, 6 7 8, 10 6 7, 6 7 8, 11 7 8");
    EXPECT_EQ(mesh.normals.size(), mesh.vertices.size());
}

TEST(ObjReadWithOptions, BringsNormalsToTheVerticesThatNameThem) {
    const auto read = [](const std::string& text) {
        TriMesh mesh;
        EXPECT_TRUE(mesh.readOBJ(TempPath(text).str(), ObjReadOptions{}).ok());
        return mesh;
    };
    const std::string normals = "vn 0 0 1\nvn 0 2 0\n";
    const TriMesh mesh = read(FOUR + normals + "f 1//2 2//1 3//-1\nf 1//2 2//2 3//2 # two for vertex 2\n");
    ASSERT_EQ(mesh.normals.size(), 4u);
    EXPECT_EQ(mesh.normals[0], Vector3f(0, 2, 0));
    EXPECT_TRUE(mesh.normals[1].isApprox(Vector3f(0, 2, 1).normalized()));
    EXPECT_EQ(mesh.normals[2], Vector3f(0, 2, 0));
    EXPECT_EQ(mesh.normals[3], Vector3f(0, 0, 0));
    EXPECT_TRUE(read(FOUR + normals + "f 1 2 3\n").normals.empty());
    EXPECT_EQ(read(FOUR + normals + normals + "f 1 2 3\n").normals.size(), 4u);
    EXPECT_EQ(read(FOUR + "f 1//9 2//9 3//9\n").normals.size(), 4u);
}

TEST(ObjReadWithOptions, ReadsLinesLongerThanAnyBlock) {
    constexpr std::uint32_t CORNERS = 400'000;
    std::string text = FOUR + "f";
    for (std::uint32_t i = 0; i < CORNERS; ++i) {
        text += ' ' + std::to_string(i % 4 + 1);
    }
    TriMesh mesh;
    EXPECT_EQ(mesh.readOBJ(TempPath(text).str(), ObjReadOptions{}).triangles, CORNERS - 2);
    EXPECT_EQ(facesOf(readPlain(text + "\n" + text)), "0 1 2, 0 1 2");
}

TEST(ObjReadWithOptions, TellsAContextAndStopsForIt) {
    const TriMesh wanted = randomTriangles(3, 20000, 10.0f, 1.0f);
    const TempPath file;
    ASSERT_TRUE(wanted.writeOBJ(file.str(), ObjWriteOptions{}).ok());
    TriMesh mesh;
    std::vector<double> told;
    EXPECT_TRUE(
        mesh.readOBJ(file.str(), {}, {{}, [&](double fraction) { told.push_back(fraction); }, nullptr}).ok());
    EXPECT_EQ(mesh.vertices, wanted.vertices);
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
    EXPECT_GT(told.size(), 4u);
    EXPECT_EQ(told.back(), 1.0);
    for (const double at : {0.0, 0.5}) {
        std::stop_source source;
        const auto stopLater = [&](double fraction) { fraction >= at ? source.request_stop() : false; };
        const ObjReadResult result = mesh.readOBJ(file.str(), {}, {source.get_token(), stopLater, nullptr});
        EXPECT_TRUE(result.stopped);
        EXPECT_NE(result.error.find(file.str()), std::string::npos);
        EXPECT_EQ(mesh.vertices.size(), wanted.vertices.size()) << "the mesh is as it was";
    }
}

TEST(ObjRead, SurvivesRubbish) {
    std::mt19937 random(11);
    const std::string alphabet = "vvvfffntn  \t\r\n\n/\\-+.e0123456789#";
    for (int round = 0; round < 200; ++round) {
        std::string text;
        for (int i = 0; i < 400; ++i) {
            text += round % 4 == 0 ? static_cast<char>(random()) : alphabet[random() % alphabet.size()];
        }
        TriMesh mesh;
        const TempPath file(text);
        const ObjReadResult result = mesh.readOBJ(file.str(), ObjReadOptions{});
        ASSERT_TRUE(result.ok());
        for (const Face& face : mesh.faces) {
            ASSERT_LT(*std::max_element(face.index, face.index + 3), mesh.vertices.size());
        }
        ASSERT_EQ(result.vertices, mesh.vertices.size());
        readPlain(text);
    }
}

TEST(ObjRead, FilesCutAtAnyByteKeepTheWholeRecordsBefore) {
    const std::string text =
        "v 1 2 3\nvn 0 0 1\nv 4 5 6 \\\n\nv 7 8 9\nf 1//1 2//1 \\\n3//1\nf -1/2/1 -2 -3\n";
    TriMesh whole;
    ASSERT_TRUE(whole.readOBJ(TempPath(text).str(), {}).ok());
    ASSERT_EQ(whole.faces.size(), 2u);
    for (std::size_t length = 0; length < text.size(); ++length) {
        const TempPath file(text.substr(0, length));
        TriMesh mesh;
        ASSERT_TRUE(mesh.readOBJ(file.str(), {}).ok());
        ASSERT_LE(mesh.vertices.size(), 3u);
        ASSERT_LE(mesh.faces.size(), 2u);
        const std::size_t complete = static_cast<std::size_t>(length > 7) + (length > 30) + (length > 38);
        ASSERT_GE(mesh.vertices.size(), complete) << length;
        ASSERT_GE(readPlain(text.substr(0, length)).vertices.size(), complete) << length;
    }
}

}  // namespace
}  // namespace ombrix::mesh::test
