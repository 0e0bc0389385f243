#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <set>

#include <ombrix/mesh/sparse_grid.h>

#include "mesh_support.h"
#include "tests/support/streams.h"

namespace ombrix::mesh::test {
namespace {

using core::Vector3d;

/// Whether triangle and box overlap, by cutting the triangle with the box's six half spaces
/// (Sutherland-Hodgman): something is left exactly when they do.
bool clippedOverlap(std::vector<Vector3d> polygon, const Vector3d& center, double half) {
    for (int side = 0; side < 6 && !polygon.empty(); ++side) {
        const int axis = side / 2;
        const double sign = side % 2 == 0 ? 1 : -1;
        const auto inside = [&](const Vector3d& p) { return half - sign * (p[axis] - center[axis]); };
        std::vector<Vector3d> kept;
        for (std::size_t i = 0; i < polygon.size(); ++i) {
            const Vector3d &p = polygon[i], &q = polygon[(i + 1) % polygon.size()];
            const double a = inside(p), b = inside(q);
            if (a >= 0) {
                kept.push_back(p);
            }
            if ((a > 0 && b < 0) || (a < 0 && b > 0)) {
                kept.push_back(p + (q - p) * (a / (a - b)));
            }
        }
        polygon = kept;
    }
    return !polygon.empty();
}

std::vector<Vector3d> cornersOf(const Triangle& triangle) {
    return {triangle.vertices[0].cast<double>(), triangle.vertices[1].cast<double>(),
            triangle.vertices[2].cast<double>()};
}

TEST(SparseGrid, HoldsEveryTriangleInExactlyTheVoxelsItTouches) {
    for (const Vector3f& center : {Vector3f(0, 0, 0), Vector3f(1000, -500, 20)}) {
        const TriMesh mesh = randomTriangles(9, 40, 6, 3, center);
        SparseGrid grid;
        grid.build(mesh, 0.75f);
        Vector3f min, max;
        mesh.getMinMax(min, max);
        EXPECT_EQ(grid.origin, min);
        std::size_t stored = 0;
        for (const auto& [key, node] : grid.nodes) {
            stored += node.triangles.size();
            for (const Triangle& triangle : node.triangles) {
                ASSERT_TRUE(
                    clippedOverlap(cornersOf(triangle), grid.node_center(key).cast<double>(), 0.3755));
            }
        }
        std::size_t surely = 0, possibly = 0;
        const Eigen::Vector3i cells = ((max - min) / 0.75f).cast<int>();
        for (const Face& face : mesh.faces) {
            const auto corners = cornersOf(mesh.make_triangle(face));
            for (int i = 0; i <= cells.x(); ++i) {
                for (int j = 0; j <= cells.y(); ++j) {
                    for (int k = 0; k <= cells.z(); ++k) {
                        const Vector3d c = min.cast<double>() + Vector3d(i + 0.5, j + 0.5, k + 0.5) * 0.75;
                        surely += clippedOverlap(corners, c, 0.375 - 1e-7);
                        possibly += clippedOverlap(corners, c, 0.375 + 3e-7);
                    }
                }
            }
        }
        EXPECT_GE(stored, surely);
        EXPECT_LE(stored, possibly);
        for (const Vector3f& vertex : mesh.vertices) {
            const Vector3f apart = grid.node_center(grid.key(vertex)) - vertex;
            ASSERT_LE(apart.cwiseAbs().maxCoeff(), 0.375f + 1e-3f);
        }
    }
}

TEST(SparseGrid, KeysInterleaveWithXHighest) {
    SparseGrid grid;
    grid.voxel = 1;
    EXPECT_EQ(grid.key({1.5f, 0, 0}), 4u);
    EXPECT_EQ(grid.key({0, 1.5f, 0}), 2u);
    EXPECT_EQ(grid.key({0, 0, 1.5f}), 1u);
    EXPECT_EQ(grid.key({255, 255, 255}), 0xffffffu);
    EXPECT_EQ(grid.key({256, 0, 0}), std::uint64_t{1} << 26);
    EXPECT_EQ(grid.key({2097151, 2097151, 2097151}), 0x7fffffffffffffffu);
    EXPECT_EQ(grid.node_center(grid.key({3, 70000, 9})), Vector3f(3.5f, 70000.5f, 9.5f));
    EXPECT_FALSE(grid.count(4));
    EXPECT_THROW((void)grid.node(4), std::out_of_range);
}

TEST(SparseGrid, CountsTrianglesOnVoxelFacesForBothSides) {
    for (const float origin : {0.0f, 0.3f, -2.5f, 100.1f}) {
        for (const float voxel : {1.0f, 0.1f, 0.7f, 5.0f, 10.0f, 1000.0f}) {
            const float x = origin + voxel;
            TriMesh mesh;  // an anchor at the origin and a triangle within the plane
            mesh.vertices = {Vector3f::Constant(origin),
                             {x, origin + 0.2f * voxel, origin + 0.2f * voxel},
                             {x, origin + 0.6f * voxel, origin + 0.2f * voxel},
                             {x, origin + 0.2f * voxel, origin + 0.6f * voxel}};
            mesh.faces = {{{1, 2, 3}}};
            SparseGrid grid;
            grid.build(mesh, voxel);
            EXPECT_EQ(grid.nodes.size(), 2u) << origin << ' ' << voxel;
            EXPECT_TRUE(grid.count(0) && grid.count(4));

            mesh.vertices[1].x() = mesh.vertices[2].x() = mesh.vertices[3].x() = origin + 0.5f * voxel;
            grid.clear();
            grid.build(mesh, voxel);
            ASSERT_EQ(grid.nodes.size(), 1u);
            EXPECT_EQ(grid.node(0).triangles.size(), 1u);
        }
    }
}

TEST(SparseGrid, HoldsATriangleInsideAVoxelOnceHoweverFarFromZero) {
    const auto voxels = [](float corner, float size, float voxel) {
        TriMesh mesh;
        const Vector3f b = Vector3f::Constant(corner);
        mesh.vertices = {b, b + Vector3f(size, size, 0), b + Vector3f(size, 0, size)};
        mesh.faces = {{{0, 1, 2}}};
        SparseGrid grid;
        grid.build(mesh, voxel);
        return grid.nodes.size();
    };
    EXPECT_EQ(voxels(1048576, 0.875f, 1), 1u);
    EXPECT_EQ(voxels(4194304, 0.5f, 1), 1u);
    EXPECT_EQ(voxels(128, 0.0078125f - 0x1p-15f, 0.0078125f), 1u);
    EXPECT_GT(voxels(1048576, 1, 1), 1u);
}

TEST(SparseGrid, LeavesOutWhatHasNoPlace) {
    TriMesh mesh = sphereMesh(1, 8);
    SparseGrid expected;
    expected.build(mesh, 0.5f);
    const auto end = static_cast<std::uint32_t>(mesh.vertices.size());
    mesh.vertices.emplace_back(-INFINITY, 0, NAN);
    mesh.faces.push_back({{0, 1, end}});
    mesh.faces.push_back({{0, 1, 0xffffffff}});
    SparseGrid grid;
    grid.build(mesh, 0.5f);
    EXPECT_EQ(grid.origin, expected.origin);
    EXPECT_EQ(grid.nodes.size(), expected.nodes.size());
    TriMesh endless;
    endless.vertices = {{0, 0, 0}, {1e30f, 0, 0}, {0, 1e30f, 0}, {0.1f, 0.1f, 0.2f}, {0.2f, 0.1f, 0.2f}};
    endless.faces = {{{0, 1, 2}}, {{0, 3, 4}}};
    SparseGrid finite;
    finite.build(endless, 1.0f);
    EXPECT_EQ(finite.nodes.size(), 1u);
    for (const float voxel : {0.0f, -1.0f, NAN, INFINITY}) {
        SparseGrid none;
        none.build(mesh, voxel);
        EXPECT_TRUE(none.nodes.empty());
    }
}

TEST(SparseGridKDTree, FindsTheCentresWithinTwoRadiiOfTheNearest) {
    SparseGrid grid;
    grid.build(sphereMesh(3, 24, {10, 0, 0}), 0.4f);
    const SparseGridKDTree tree(grid);
    EXPECT_FLOAT_EQ(tree.node_radius(), std::sqrt(3.0f) * 0.1f);
    EXPECT_EQ(tree.kdtree_get_point_count(), grid.nodes.size());
    const TriMesh probes = randomTriangles(4, 60, 12, 1, {9, 0, 0});
    std::vector<std::pair<std::uint64_t, float>> hits, squared;
    for (const Vector3f& p : probes.vertices) {
        float nearest = INFINITY;
        for (const auto& entry : grid.nodes) {
            nearest = std::min(nearest, (grid.node_center(entry.first) - p).norm());
        }
        std::set<std::uint64_t> within, atMost;
        for (const auto& entry : grid.nodes) {
            const float dist = (grid.node_center(entry.first) - p).norm() - nearest - 2 * tree.node_radius();
            if (dist < -1e-4f) {
                within.insert(entry.first);
            }
            if (dist < 1e-4f) {
                atMost.insert(entry.first);
            }
        }
        tree.closest_nodes_dist(p, hits);
        tree.closest_nodes_dist_sq(p, squared);
        ASSERT_EQ(hits.size(), squared.size());
        EXPECT_NEAR(hits.front().second, nearest, 1e-5f);
        for (std::size_t i = 0; i < hits.size(); ++i) {
            EXPECT_TRUE(atMost.count(hits[i].first) == 1);
            within.erase(hits[i].first);
            EXPECT_EQ(hits[i].second, std::sqrt(squared[i].second));
            EXPECT_TRUE(i == 0 || hits[i - 1].second <= hits[i].second);
        }
        EXPECT_TRUE(within.empty());
    }
    tree.closest_nodes_dist({1e9f, 0, 0}, hits);
    EXPECT_FALSE(hits.empty());
    tree.closest_nodes_dist({NAN, 0, 0}, hits);
    EXPECT_TRUE(hits.empty());
    SparseGrid empty;
    SparseGridKDTree(empty).closest_nodes_dist({0, 0, 0}, hits);
    EXPECT_TRUE(hits.empty());
}

TEST(SparseGrid, DebugWritesVoxelsAndEachTriangleOnce) {
    const TempPath folder;
    std::filesystem::create_directory(folder.str());
    const std::string prefix = folder.str() + "/a_";
    const TriMesh mesh = sphereMesh(1, 6);
    SparseGrid grid;
    grid.debug(prefix);
    EXPECT_EQ(std::filesystem::file_size(prefix + "sparse_grid_voxels.obj"), 0u);
    grid.build(mesh, 0.3f);
    grid.debug(prefix);
    TriMesh voxels, triangles;
    voxels.readOBJ(prefix + "sparse_grid_voxels.obj");
    triangles.readOBJ(prefix + "sparse_grid_triangles.obj");
    EXPECT_EQ(voxels.vertices.size(), 8 * grid.nodes.size());
    EXPECT_EQ(voxels.faces.size(), 12 * grid.nodes.size());
    double volume = 0;  // positive only when all faces are wound outwards
    for (const Face& face : voxels.faces) {
        const auto c = cornersOf(voxels.make_triangle(face));
        volume += c[0].dot(c[1].cross(c[2])) / 6;
    }
    EXPECT_NEAR(volume, 0.027 * static_cast<double>(grid.nodes.size()), 1e-3);
    EXPECT_EQ(triangles.faces.size(), mesh.faces.size());

    EXPECT_EQ(
        ombrix::test::printedBy([&] { grid.debug("/nowhere/"); }).rfind("ERROR in SparseGrid::debug", 0), 0u);
}

}  // namespace
}  // namespace ombrix::mesh::test
