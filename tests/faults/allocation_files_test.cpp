// Memory that runs out in meshes, files and services.

#include <sstream>

#include <ombrix/io.h>
#include <ombrix/mesh.h>

#include "tests/faults/allocation_fixture.h"
#include "tests/support/temp_path.h"

namespace {

using namespace ombrix;
using namespace ombrix::core;
using ombrix::test::Allocation;
using ombrix::test::expectEven;
using ombrix::test::expectEveryAllocationMayFail;
using ombrix::test::NOTHING;
using ombrix::test::smallCloud;
using ombrix::test::TempPath;

TEST_F(Allocation, OfMeshes) {
    const std::string text =
        "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0.5\nvn 0 0 1\nf 1//1 2//1 3//1 4//1\nf 1 2 9\n";
    const TempPath file(text);
    const TempPath out;
    const auto empty = [] { return mesh::TriMesh(); };
    expectEveryAllocationMayFail(
        "plain reading", empty, [&](mesh::TriMesh& mesh) { mesh.readOBJ(file.str()); },
        [&](mesh::TriMesh& mesh) {
            mesh.clear();
            mesh.readOBJ(file.str());
            EXPECT_EQ(mesh.vertices.size(), 4u);
        });
    expectEveryAllocationMayFail(
        "reading", empty, [&](mesh::TriMesh& mesh) { static_cast<void>(mesh.readOBJ(file.str(), {})); },
        [](mesh::TriMesh& mesh) { EXPECT_TRUE(mesh.vertices.empty() && mesh.faces.empty()) << "unchanged"; });

    const auto full = [&] {
        mesh::TriMesh mesh;
        EXPECT_TRUE(mesh.readOBJ(file.str(), {}).ok());
        return mesh;
    };
    const auto whole = [](mesh::TriMesh& mesh) { EXPECT_EQ(mesh.faces.size(), 2u); };
    expectEveryAllocationMayFail(
        "writing", full, [&](mesh::TriMesh& mesh) { static_cast<void>(mesh.writeOBJ(out.str(), {})); },
        whole);
    expectEveryAllocationMayFail(
        "normals", full,
        [](mesh::TriMesh& mesh) {
            mesh.normals.clear();
            mesh.normals.shrink_to_fit();
            mesh.evaluateVertexNormals();
        },
        whole);
    expectEveryAllocationMayFail(
        "voxels", full,
        [](mesh::TriMesh& mesh) {
            mesh::SparseGrid grid;
            grid.build(mesh, 0.25f);
            const mesh::SparseGridKDTree tree(grid);
            std::vector<std::pair<std::uint64_t, float>> found;
            tree.closest_nodes_dist(Vector3f::Zero(), found);
        },
        whole);
    expectEveryAllocationMayFail(
        "spheres", full,
        [](mesh::TriMesh& mesh) {
            const mesh::SphereTree tree(mesh, 1);
            std::vector<std::uint32_t> faces;
            tree.overlappingFaces(Vector3f::Zero(), 10.0f, faces);
            EXPECT_TRUE(tree.closestPoint(Vector3f::Zero()).has_value());
        },
        whole);
}

TEST_F(Allocation, OfPointFiles) {
    const TempPath folder;
    std::filesystem::create_directories(folder.str());
    const auto path = [&](const char* name) { return std::filesystem::path(folder.str()) / name; };
    const auto cloud = [] { return smallCloud(10); };
    const auto whole = [](PointCloud& written) { expectEven(written, 10); };
    for (const char* name : {"a.ply", "a.las"}) {
        expectEveryAllocationMayFail(
            name, cloud,
            [&](PointCloud& written) {
                std::string(name) == "a.ply" ? io::writePly(path(name), written)
                                             : io::writeLas(path(name), written);
            },
            whole);
    }
    std::ofstream(path("a.csv")) << "x,y,z,red,green,blue,label\n1,2,3,4,5,6,7\n8,9,10,11,12,13,14\n";
    std::ofstream(path("a.obj")) << "v 1 2 3 0.5 0.5 1\nv 4 5 6 1 1 1\n";
    for (const char* name : {"a.ply", "a.las", "a.csv", "a.obj"}) {
        expectEveryAllocationMayFail(
            name, [] { return io::ReadOptions(); },
            [&](io::ReadOptions& options) {
                EXPECT_GT(io::readPoints(path(name), options).cloud.size(), 1u);
            },
            NOTHING);
    }
}

TEST_F(Allocation, OfMappedFilesAndProgress) {
    const TempPath file(std::string(5000, 'x'));
    expectEveryAllocationMayFail(
        "mapping", [] { return MemoryMapped(); },
        [&](MemoryMapped& mapped) {
            mapped = MemoryMapped(file.str() + std::string());
            EXPECT_TRUE(mapped.isValid());
        },
        [&](MemoryMapped& mapped) {
            EXPECT_TRUE(mapped.open(file.str()));
            EXPECT_EQ(mapped.at(4999), 'x');
        });
}

}  // namespace
