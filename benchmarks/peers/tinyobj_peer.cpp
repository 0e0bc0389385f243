// Reading a million triangles from a warm OBJ file: this library and tinyobjloader in turn.
#include <benchmark/benchmark.h>
#include <tiny_obj_loader.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <ombrix/mesh.h>

#include "benchmarks/support/bumpy_torus.h"

namespace {

using ombrix::mesh::TriMesh;

/// The mesh as a file, written once.
const std::string& meshFile() {
    static const std::string path = [] {
        const auto file = std::filesystem::temp_directory_path() / "ombrix_tinyobj_peer.obj";
        (void)ombrix::benchmarks::bumpyTorus().writeOBJ(file.string(), ombrix::mesh::ObjWriteOptions{});
        std::atexit([] { std::filesystem::remove(meshFile()); });
        return file.string();
    }();
    return path;
}

void check(benchmark::State& state, std::size_t vertices, std::size_t faces) {
    if (vertices != ombrix::benchmarks::bumpyTorus().vertices.size() ||
        faces != ombrix::benchmarks::bumpyTorus().faces.size()) {
        state.SkipWithError("the mesh did not come back whole");
    }
}

void OmbrixReadObj(benchmark::State& state) {
    const std::string& path = meshFile();
    TriMesh mesh;
    for (auto _ : state) {
        mesh = TriMesh();
        benchmark::DoNotOptimize(mesh.readOBJ(path, ombrix::mesh::ObjReadOptions{}));
    }
    check(state, mesh.vertices.size(), mesh.faces.size());
}

void TinyObjReadObj(benchmark::State& state) {
    const std::string& path = meshFile();
    std::size_t vertices = 0;
    std::size_t faces = 0;
    for (auto _ : state) {
        tinyobj::attrib_t attributes;
        std::vector<tinyobj::shape_t> shapes;
        std::vector<tinyobj::material_t> materials;
        std::string warnings;
        std::string errors;
        tinyobj::LoadObj(&attributes, &shapes, &materials, &warnings, &errors, path.c_str());
        vertices = attributes.vertices.size() / 3;
        faces = 0;
        for (const tinyobj::shape_t& shape : shapes) {
            faces += shape.mesh.num_face_vertices.size();
        }
    }
    check(state, vertices, faces);
}

BENCHMARK(OmbrixReadObj)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(TinyObjReadObj)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
