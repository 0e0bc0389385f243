#include <memory>
#include <string>

#include <ombrix/mesh.h>

#include "benchmarks/ours/ours.h"
#include "benchmarks/support/answers.h"
#include "benchmarks/support/bench_files.h"
#include "benchmarks/support/bumpy_torus.h"
#include "benchmarks/support/mesh_answers.h"
#include "benchmarks/support/rows.h"

namespace ombrix::benchmarks::ours {

using namespace mesh;

void readObj() {
    measure(
        rows::READ_OBJ, "ombrix",
        [](std::int64_t) {
            return [path = objFile()] {
                TriMesh read;
                (void)read.readOBJ(path, ObjReadOptions{});
                return read;
            };
        },
        [](std::int64_t, const TriMesh& read) { return meshAnswer(read); });
}

void writeObj() {
    measure(
        rows::WRITE_OBJ, "ombrix",
        [](std::int64_t) {
            return [path = outputFile("ombrix.obj")] {
                (void)bumpyTorus().writeOBJ(path, {.normals = false, .significantDigits = 9});
                return path;
            };
        },
        [](std::int64_t, const std::string& path) { return writtenAnswer(path); });
}

namespace {

void voxels(const Row& row) {
    measure(
        row, "ombrix",
        [](std::int64_t triangles) {
            return [&torus = torusOf(triangles), edge = voxelEdge(triangles)] {
                SparseGrid grid;
                grid.build(torus, edge);
                return grid;
            };
        },
        [](std::int64_t, const SparseGrid& grid) { return Answer{static_cast<double>(grid.nodes.size())}; });
}

}  // namespace

void meshVoxels() {
    voxels(rows::VOXELS);
}

void smallMeshVoxels() {
    voxels(rows::SMALL_VOXELS);
}

}  // namespace ombrix::benchmarks::ours
