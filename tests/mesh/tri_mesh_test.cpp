#include <gtest/gtest.h>

#include <cfloat>

#include "mesh_support.h"

namespace ombrix::mesh::test {
namespace {

TEST(TriMesh, AddShiftsFacesAndCompletesNormals) {
    TriMesh mesh, other;
    mesh.vertices.assign(5, Vector3f::Zero());
    other.vertices = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    other.faces = {{{0, 1, 2}}};
    mesh.add(other);
    EXPECT_EQ(facesOf(mesh), "5 6 7");
    EXPECT_TRUE(mesh.normals.empty() && other.normals.empty());

    mesh.normals.assign(8, Vector3f(1, 0, 0));
    mesh.add(other);
    EXPECT_EQ(facesOf(mesh), "5 6 7, 8 9 10");
    EXPECT_EQ(other.normals.size(), 3u);
    EXPECT_EQ(mesh.normals.back(), Vector3f(0, 0, 1));

    mesh.add(mesh);
    EXPECT_EQ(mesh.vertices.size(), 22u);
    EXPECT_EQ(mesh.normals.size(), 22u);
    EXPECT_EQ(facesOf(mesh), "5 6 7, 8 9 10, 16 17 18, 19 20 21");

    const TriMesh copy = mesh;
    mesh.clear();
    EXPECT_TRUE(mesh.vertices.empty() && mesh.normals.empty() && mesh.faces.empty());
    EXPECT_EQ(copy.faces.size(), 4u);
}

TEST(TriMesh, BoxTranslationAndMirror) {
    Vector3f min, max;
    TriMesh mesh;
    mesh.getMinMax(min, max);
    EXPECT_EQ(min, Vector3f::Constant(FLT_MAX));
    EXPECT_EQ(max, Vector3f::Constant(-FLT_MAX));

    mesh.vertices = {{1, 2, 3}, {-4, 5, 0}, {2, 2, 9}};
    mesh.normals.assign(3, Vector3f(1, 0, 0));
    mesh.faces = {{{0, 1, 2}}};
    mesh.translate({1, 1, -1});
    mesh.getMinMax(min, max);
    EXPECT_EQ(min, Vector3f(-3, 3, -1));
    EXPECT_EQ(max, Vector3f(3, 6, 8));
    EXPECT_EQ(mesh.normals[0], Vector3f(1, 0, 0));

    const Vector3f before =
        (mesh.vertices[1] - mesh.vertices[0]).cross(mesh.vertices[2] - mesh.vertices[0]).normalized();
    mesh.invertYZ();
    EXPECT_EQ(mesh.vertices[0], Vector3f(2, 2, 3));
    // Mirrored with the same winding: the swapped normal, pointing the other way.
    EXPECT_TRUE(mesh.normals[0].isApprox(-Vector3f(before.x(), before.z(), before.y()), 1e-5f));
}

TEST(VertexNormals, MatchTheSphereAtEverySize) {
    for (const float radius : {1e-6f, 1.0f, 1e6f}) {
        TriMesh mesh = sphereMesh(radius, 32);
        mesh.evaluateVertexNormals();
        for (std::size_t i = 64; i + 64 < mesh.vertices.size(); ++i) {  // without the poles' copies
            EXPECT_GT(mesh.normals[i].dot(mesh.vertices[i] / radius), 0.995f);
            EXPECT_NEAR(mesh.normals[i].norm(), 1, 1e-6);
        }
    }
}

TEST(VertexNormals, WeighBySquaredAreaAndAddToWhatIsThere) {
    TriMesh mesh;  // areas 0.5 and 1 in two perpendicular planes meet at vertex 0
    mesh.vertices = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 2, 0}, {0, 0, 1}, {9, 9, 9}, {2, 0, 0}};
    mesh.faces = {{{0, 1, 2}}, {{0, 3, 4}}, {{5, 5, 5}}, {{0, 1, 6}}};
    mesh.evaluateVertexNormals();
    EXPECT_TRUE(mesh.normals[0].isApprox(Vector3f(2 * 1, 0, 1 * 0.5f).normalized()));
    EXPECT_EQ(mesh.normals[2], Vector3f(0, 0, 1));
    EXPECT_EQ(mesh.normals[5], Vector3f(0, 0, 0));  // only degenerate faces
    EXPECT_EQ(mesh.normals[6], Vector3f(0, 0, 0));

    mesh.normals.assign(1, Vector3f(0, 0, -0.5f));  // cancels the small face
    mesh.evaluateVertexNormals();
    EXPECT_EQ(mesh.normals.size(), 7u);
    EXPECT_TRUE(mesh.normals[0].isApprox(Vector3f(1, 0, 0)));
}

TEST(TriMesh, MakeTriangleCopiesCorners) {
    TriMesh mesh;
    mesh.vertices = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    const Face face{{2, 0, 1}};
    EXPECT_EQ(mesh.make_triangle(face).vertices[0], Vector3f(0, 1, 0));
    EXPECT_EQ(mesh.make_triangle(face).normals[2], Vector3f(0, 0, 0));
    mesh.normals = {{1, 0, 0}, {0, 1, 0}};  // a file may bring fewer normals than vertices
    EXPECT_EQ(mesh.make_triangle(face).normals[2], Vector3f(0, 1, 0));
    EXPECT_EQ(mesh.make_triangle(face).normals[0], Vector3f(0, 0, 0));
}

}  // namespace
}  // namespace ombrix::mesh::test
