// Grid merging, files and voxel meshes beside Open3D; neighbourhoods are in a source of their own.
#include "benchmarks/peers/open3d_cloud.h"

#include <memory>
#include <string>

#include <open3d/geometry/TriangleMesh.h>
#include <open3d/geometry/VoxelGrid.h>
#include <open3d/io/PointCloudIO.h>
#include <open3d/io/TriangleMeshIO.h>

#include "benchmarks/ours/ours.h"
#include "benchmarks/support/answers.h"
#include "benchmarks/support/bench_files.h"
#include "benchmarks/support/mesh_answers.h"
#include "benchmarks/support/rows.h"

namespace {

using namespace ombrix::benchmarks;
namespace o3d = open3d;

o3d::geometry::TriangleMesh converted(const ombrix::mesh::TriMesh& mesh) {
    o3d::geometry::TriangleMesh out;
    for (const auto& vertex : mesh.vertices) {
        out.vertices_.push_back(vertex.cast<double>());
    }
    for (const auto& face : mesh.faces) {
        out.triangles_.emplace_back(face.index[0], face.index[1], face.index[2]);
    }
    return out;
}

/// Its grid starts half a cell below the lowest point, so the cells are others.
void gridMean() {
    ours::gridMean();
    measure(
        rows::GRID_MEAN, "open3d",
        [](std::int64_t n) {
            return [cloud = open3dCloud(n), cell = static_cast<double>(tenPointCell(n))] {
                return cloud->VoxelDownSample(cell);
            };
        },
        [](std::int64_t, const auto& merged) { return Answer{static_cast<double>(merged->points_.size())}; });
}

void readPly() {
    ours::readPly();
    measure(
        rows::READ_PLY, "open3d",
        [](std::int64_t n) {
            return [path = plyFile(n)] {
                o3d::geometry::PointCloud cloud;
                o3d::io::ReadPointCloudFromPLY(path, cloud, o3d::io::ReadPointCloudOption());
                return cloud;
            };
        },
        [](std::int64_t, const o3d::geometry::PointCloud& cloud) {
            return meanPointAnswer(cloud.points_.size(), [&](std::size_t i) { return cloud.points_[i]; });
        });
}

void objFiles() {
    ours::readObj();
    measure(
        rows::READ_OBJ, "open3d",
        [](std::int64_t) {
            return [path = objFile()] {
                o3d::geometry::TriangleMesh mesh;
                o3d::io::ReadTriangleMeshFromOBJ(path, mesh, o3d::io::ReadTriangleMeshOptions());
                return mesh;
            };
        },
        [](std::int64_t, const o3d::geometry::TriangleMesh& mesh) {
            Answer answer =
                meanPointAnswer(mesh.vertices_.size(), [&](std::size_t i) { return mesh.vertices_[i]; });
            answer.push_back(static_cast<double>(mesh.triangles_.size()));
            return answer;
        });
    ours::writeObj();
    measure(
        rows::WRITE_OBJ, "open3d",
        [](std::int64_t) {
            return [mesh = std::make_shared<o3d::geometry::TriangleMesh>(converted(bumpyTorus())),
                    path = outputFile("open3d.obj")] {
                o3d::io::WriteTriangleMeshToOBJ(path, *mesh, false, false, false, false, false, false);
                return path;
            };
        },
        [](std::int64_t, const std::string& path) { return writtenAnswer(path); });
}

/// It tries every triangle on every voxel of the box, so the mesh is a small one.
void voxels() {
    ours::smallMeshVoxels();
    measure(
        rows::SMALL_VOXELS, "open3d",
        [](std::int64_t triangles) {
            return [mesh = std::make_shared<o3d::geometry::TriangleMesh>(converted(torusOf(triangles))),
                    edge = static_cast<double>(voxelEdge(triangles))] {
                const Eigen::Vector3d low = mesh->GetMinBound();
                const Eigen::Array3d cells = ((mesh->GetMaxBound() - low) / edge).array().ceil();
                return o3d::geometry::VoxelGrid::CreateFromTriangleMeshWithinBounds(
                    *mesh, edge, low, low + edge * cells.matrix());
            };
        },
        [](std::int64_t, const auto& grid) { return Answer{static_cast<double>(grid->GetVoxels().size())}; });
}

}  // namespace

int main(int argc, char** argv) {
    o3d::utility::SetVerbosityLevel(o3d::utility::VerbosityLevel::Error);
    return runMeasures(argc, argv, {addOpen3dNeighbourhoods, gridMean, readPly, objFiles, voxels});
}
