#include <gtest/gtest.h>

#include <bit>
#include <cstdio>
#include <random>

#include "mesh_support.h"
#include "tests/support/streams.h"

namespace ombrix::mesh::test {
namespace {

using ombrix::test::printedBy;

std::string writePlain(const TriMesh& mesh, const TempPath& file) {
    EXPECT_EQ(printedBy([&] { mesh.writeOBJ(file.str()); }), " Write OBJ file " + file.str() + "\n");
    return file.content();
}

TEST(ObjWrite, WritesThePlainFormToTheByte) {
    TriMesh mesh;
    mesh.vertices = {{0, -0.0f, 1}, {1e-5f, 123456.7f, 1234567}, {0.1f, 100, 1e20f}};
    mesh.faces = {{{0, 1, 2}}, {{2, 1, 0}}};
    const std::string vertices = "v 0 -0 1\nv 1e-05 123457 1.23457e+06\nv 0.1 100 1e+20\n";
    const TempPath file;
    EXPECT_EQ(writePlain(mesh, file), vertices + "f 1 2 3\nf 3 2 1\n");
    mesh.normals = {{0, 0, 1}, {0.6f, 0, -0.8f}};
    EXPECT_EQ(writePlain(mesh, file),
              vertices + "n 0 0 1\nn 0.6 0 -0.8\nf 1//1 2//2 3//3\nf 3//3 2//2 1//1\n");

    TriMesh back;
    back.readOBJ(file.str());
    EXPECT_EQ(facesOf(back), facesOf(mesh));
    EXPECT_EQ(back.vertices.size(), 3u);
    EXPECT_TRUE(back.normals.empty());
    EXPECT_EQ(writePlain(TriMesh{}, file), "");
}

TEST(ObjWrite, FormatsEveryNumberAsTheCLibraryDoes) {
    std::mt19937_64 random(3);
    std::vector<float> numbers = {
        0.0001f,    0.00009999999f, 999999.5f,    999999.44f,      0.5f, 2.5f, 1000000,  99999.95f,
        9.9999995f, 1e9f,           999999999.0f, 0.000999999975f, NAN,  -NAN, INFINITY, -INFINITY};
    for (int i = 0; i < 20000; ++i) {
        numbers.push_back(std::bit_cast<float>(static_cast<std::uint32_t>(random())));
        numbers.push_back(
            static_cast<float>(std::ldexp(static_cast<double>(random()), -static_cast<int>(random() % 90))));
        numbers.push_back(static_cast<float>(random() % 4096) /
                          static_cast<float>(1 << (random() % 16)));  // ties
    }
    TriMesh mesh;
    for (const float number : numbers) {
        mesh.vertices.emplace_back(number, 0, 0);
    }
    const TempPath file;
    for (int digits = 1; digits <= 9; ++digits) {
        std::string expected;
        for (const float number : numbers) {
            char line[64];
            std::snprintf(line, sizeof line, "v %.*g 0 0\n", digits, static_cast<double>(number));
            expected += line;
        }
        ASSERT_TRUE(mesh.writeOBJ(file.str(), {.significantDigits = digits}).ok());
        EXPECT_EQ(file.content() == expected, true) << digits;
        if (digits == 6) {
            EXPECT_EQ(writePlain(mesh, file) == expected, true);
        }
    }
}

TEST(ObjWriteWithOptions, IsReadBackExactly) {
    TriMesh mesh = randomTriangles(5, 3000, 100, 3, {1e6f, 0, -5});
    mesh.vertices.emplace_back(1e-30f, -3e38f, 1.1754944e-38f);
    mesh.evaluateVertexNormals();
    const TempPath file;
    const ObjWriteResult written = mesh.writeOBJ(file.str(), ObjWriteOptions{});
    EXPECT_TRUE(written.ok());
    EXPECT_EQ(written.bytes, file.content().size());
    TriMesh back;
    const ObjReadResult read = back.readOBJ(file.str(), ObjReadOptions{});
    EXPECT_EQ(read.malformedLines + read.skippedFaces + read.droppedTriangles + read.otherLines, 0u);
    EXPECT_EQ(back.vertices, mesh.vertices);
    EXPECT_EQ(back.normals, mesh.normals);
    EXPECT_EQ(facesOf(back), facesOf(mesh));

    ASSERT_TRUE(mesh.writeOBJ(file.str(), {.normals = false}).ok());
    back.clear();
    ASSERT_TRUE(back.readOBJ(file.str(), ObjReadOptions{}).ok());
    EXPECT_TRUE(back.normals.empty());
}

TEST(ObjWriteWithOptions, ReportsWhatFailed) {
    const TriMesh mesh = sphereMesh(1, 8);
    for (const std::string& path : {std::string("/nowhere/out.obj"), std::string("/dev/full")}) {
        if (path == "/dev/full" && !std::filesystem::exists(path)) {
            continue;
        }
        const ObjWriteResult result = mesh.writeOBJ(path, ObjWriteOptions{});
        EXPECT_FALSE(result.ok()) << path;
        EXPECT_NE(result.error.find(path), std::string::npos) << result.error;
        EXPECT_EQ(printedBy([&] { mesh.writeOBJ(path); }), " Write OBJ file " + path + "\n");
    }
}

}  // namespace
}  // namespace ombrix::mesh::test
