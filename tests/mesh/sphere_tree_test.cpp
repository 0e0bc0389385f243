#include <gtest/gtest.h>

#include <limits>

#include <ombrix/mesh/sphere_tree.h>

#include "mesh_support.h"

namespace ombrix::mesh::test {
namespace {

using core::Vector3d;

/// Distance from p to a triangle: to its plane where p projects inside, else to the nearest edge.
double bruteDistance(const Triangle& triangle, const Vector3f& point) {
    const Vector3d p = point.cast<double>();
    Vector3d c[3];
    for (int i = 0; i < 3; ++i) {
        c[i] = triangle.vertices[i].cast<double>();
    }
    const Vector3d n = (c[1] - c[0]).cross(c[2] - c[0]);
    bool inside = n.squaredNorm() > 0;
    double best = std::numeric_limits<double>::infinity();
    for (int i = 0; i < 3; ++i) {
        const Vector3d &a = c[i], &b = c[(i + 1) % 3];
        inside = inside && n.dot((b - a).cross(p - a)) >= 0;
        const double length = (b - a).squaredNorm();
        const double t = length > 0 ? std::min(1.0, std::max(0.0, (p - a).dot(b - a) / length)) : 0;
        best = std::min(best, (a + t * (b - a) - p).norm());
    }
    return inside ? std::abs(n.normalized().dot(p - c[0])) : best;
}

std::vector<TriMesh> meshes() {
    TriMesh degenerate = randomTriangles(8, 150, 5, 2);
    for (std::size_t i = 0; i < degenerate.vertices.size(); i += 9) {
        degenerate.vertices[i + 2] =
            degenerate.vertices[i] + 2 * (degenerate.vertices[i + 1] - degenerate.vertices[i]);
        degenerate.vertices[(i + 4) % degenerate.vertices.size()] =
            degenerate.vertices[(i + 3) % degenerate.vertices.size()];
    }
    TriMesh same = randomTriangles(1, 1, 1, 1);
    same.faces.assign(30, same.faces[0]);
    return {sphereMesh(2, 20),
            randomTriangles(3, 400, 6, 0.5f),
            randomTriangles(6, 300, 4, 2, {1e4f, 0, 50}),
            degenerate,
            same,
            randomTriangles(5, 1, 1, 1)};
}

std::vector<Vector3f> probesFor(const TriMesh& mesh) {
    Vector3f min, max;
    mesh.getMinMax(min, max);
    return randomTriangles(77, 12, 2 * (max - min).maxCoeff(), 1, (min + max) / 2).vertices;
}

TEST(SphereTree, ClosestPointsAgreeWithBruteForce) {
    for (const TriMesh& mesh : meshes()) {
        for (const unsigned leaf : {0u, 8u, 50u}) {
            const SphereTree tree(mesh, leaf);
            for (const Vector3f& p : probesFor(mesh)) {
                double best = std::numeric_limits<double>::infinity();
                for (const Face& face : mesh.faces) {
                    best = std::min(best, bruteDistance(mesh.make_triangle(face), p));
                }
                const auto found = tree.closestPoint(p);
                ASSERT_TRUE(found);
                const double tolerance = 1e-6 * (best + static_cast<double>(p.norm()));
                ASSERT_NEAR(found->distance, best, tolerance);
                ASSERT_NEAR((found->point - p).norm(), best, 2 * tolerance);
                ASSERT_NEAR(bruteDistance(mesh.make_triangle(mesh.faces[found->face]), p), best, tolerance);
            }
        }
    }
}

TEST(SphereTree, OverlapsAgreeWithBruteForce) {
    std::vector<std::uint32_t> found;
    for (const TriMesh& mesh : meshes()) {
        const SphereTree tree(mesh);
        for (const Vector3f& p : probesFor(mesh)) {
            for (const float radius : {0.3f, 2.0f, 100.0f}) {
                tree.overlappingFaces(p, radius, found);
                std::vector<bool> listed(mesh.faces.size());
                for (const std::uint32_t face : found) {
                    listed[face] = true;
                }
                EXPECT_TRUE(std::is_sorted(found.begin(), found.end()));
                for (std::size_t i = 0; i < mesh.faces.size(); ++i) {
                    const double dist = bruteDistance(mesh.make_triangle(mesh.faces[i]), p);
                    if (std::abs(dist - static_cast<double>(radius)) > 1e-6) {
                        ASSERT_EQ(listed[i], dist < static_cast<double>(radius));
                    }
                }
            }
        }
    }
}

/// Moeller, Trumbore, "Fast, Minimum Storage Ray/Triangle Intersection", 1997; infinite without a hit.
double bruteHit(const Triangle& triangle, const Vector3f& origin, const Vector3f& direction) {
    const Vector3d v0 = triangle.vertices[0].cast<double>(), d = direction.cast<double>();
    const Vector3d e1 = triangle.vertices[1].cast<double>() - v0,
                   e2 = triangle.vertices[2].cast<double>() - v0;
    const Vector3d h = d.cross(e2), s = origin.cast<double>() - v0, q = s.cross(e1);
    const double det = e1.dot(h), u = s.dot(h) / det, v = d.dot(q) / det, t = e2.dot(q) / det;
    const bool hit = det != 0 && u >= 0 && v >= 0 && u + v <= 1 && t >= 0;
    return hit ? t : std::numeric_limits<double>::infinity();
}

TEST(SphereTree, VerticesTouchTheirFacesFarFromTheOrigin) {
    TriMesh mesh;  // a tilted plane of whole numbers, whose slabs are as thin as rounding
    constexpr std::uint32_t SIDE = 41;
    for (std::uint32_t i = 0; i < SIDE * SIDE; ++i) {
        const auto x = static_cast<float>(i % SIDE), y = static_cast<float>(i / SIDE);
        mesh.vertices.emplace_back(1e6f + x, 2e6f + y, 5e5f + x + 2 * y);
        if (i % SIDE + 1 < SIDE && i / SIDE + 1 < SIDE) {
            mesh.faces.push_back({{i, i + 1, i + SIDE}});
            mesh.faces.push_back({{i + 1, i + SIDE + 1, i + SIDE}});
        }
    }
    const SphereTree tree(mesh);
    for (std::uint32_t v = 0; v < mesh.vertices.size(); ++v) {
        std::vector<std::uint32_t> touched, expected;
        for (std::uint32_t f = 0; f < mesh.faces.size(); ++f) {
            if (std::ranges::count(mesh.faces[f].index, v) != 0) {
                expected.push_back(f);
            }
        }
        tree.overlappingFaces(mesh.vertices[v], 0, touched);
        ASSERT_EQ(touched, expected) << v;
    }
}

TEST(SphereTree, FirstHitsAgreeWithBruteForce) {
    int hits = 0;
    for (const TriMesh& mesh :
         {sphereMesh(2, 20), randomTriangles(3, 400, 6, 2), randomTriangles(6, 300, 4, 2, {1e4f, 0, 50})}) {
        const SphereTree tree(mesh);
        const auto from = probesFor(mesh);
        for (std::size_t i = 0; i < from.size(); ++i) {
            const Vector3f target = mesh.vertices[(i * 37) % mesh.vertices.size()] +
                                    0.3f * (from[i] - from[0]).normalized().cwiseMax(-1);
            const Vector3f direction =
                i % 5 == 0 ? Vector3f(from[i] - target) : Vector3f(3 * (target - from[i]));
            double best = std::numeric_limits<double>::infinity();
            for (const Face& face : mesh.faces) {
                best = std::min(best, bruteHit(mesh.make_triangle(face), from[i], direction));
            }
            const auto found = tree.firstHit(from[i], direction);
            ASSERT_EQ(found.has_value(), std::isfinite(best));
            if (found) {
                ++hits;
                EXPECT_NEAR(found->t, best, 1e-5 * (1 + best));
                const Triangle t = mesh.make_triangle(mesh.faces[found->face]);
                const Vector3f at = (1 - found->u - found->v) * t.vertices[0] + found->u * t.vertices[1] +
                                    found->v * t.vertices[2];
                EXPECT_LT((at - from[i] - found->t * direction).norm(), 1e-5f * (1 + from[i].norm()));
            }
        }
    }
    EXPECT_GT(hits, 20);
}

TEST(SphereTree, NoRayLeavesAClosedMeshThroughVerticesOrEdges) {
    const TriMesh mesh = sphereMesh(2, 16, {0.1f, 0.2f, 0.3f});
    const SphereTree tree(mesh);
    const Vector3f inside(0.35f, -0.1f, 0.2f);
    for (const Face& face : mesh.faces) {
        const Triangle t = mesh.make_triangle(face);
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(tree.firstHit(inside, t.vertices[i] - inside));
            EXPECT_TRUE(tree.firstHit(inside, (t.vertices[i] + t.vertices[(i + 1) % 3]) / 2 - inside));
        }
    }
}

TEST(SphereTree, RootHoldsAllCorners) {
    for (const TriMesh& mesh : meshes()) {
        for (const unsigned leaf : {1u, 8u, 50u}) {
            const SphereTree::Sphere root = SphereTree(mesh, leaf).root();
            Vector3f min, max;
            mesh.getMinMax(min, max);
            for (const Vector3f& vertex : mesh.vertices) {
                ASSERT_LE((vertex - root.center).cast<double>().norm(),
                          static_cast<double>(root.radius) * (1 + 1e-6));
            }
            // Never worse than the sphere around the box.
            EXPECT_LE(root.radius, (max - min).norm() / 2 * 1.0001f + 1e-3f);
        }
    }
    // A leaf's sphere is the smallest one: an equilateral triangle's is its circumcircle.
    TriMesh triangle;
    triangle.vertices = {{1, 0, 0}, {-0.5f, 0.8660254f, 0}, {-0.5f, -0.8660254f, 0}};
    triangle.faces = {{{0, 1, 2}}};
    EXPECT_NEAR(SphereTree(triangle).root().radius, 1, 1e-6);
    EXPECT_LT(SphereTree(triangle).root().center.norm(), 1e-6f);
}

TEST(SphereTree, AnswersNothingWhereThereIsNothing) {
    TriMesh mesh;
    mesh.vertices = {{0, 0, 0}, {NAN, 0, 0}};
    mesh.faces = {{{0, 0, 1}}, {{0, 0, 7}}};
    const SphereTree tree(mesh);
    std::vector<std::uint32_t> faces{1};
    EXPECT_EQ(tree.root().radius, 0);
    EXPECT_FALSE(tree.closestPoint({0, 0, 0}));
    EXPECT_FALSE(tree.firstHit({0, 0, -1}, {0, 0, 1}));
    tree.overlappingFaces({0, 0, 0}, 10, faces);
    EXPECT_TRUE(faces.empty());
    const TriMesh sphere = sphereMesh(1, 8);
    EXPECT_FALSE(SphereTree(sphere).closestPoint({NAN, 0, 0}));
    EXPECT_FALSE(SphereTree(sphere).firstHit({0, 0, 0}, {0, 0, 0}));
}

}  // namespace
}  // namespace ombrix::mesh::test
