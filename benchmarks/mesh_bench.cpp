#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <ombrix/mesh.h>

#include "benchmarks/support/bench_files.h"
#include "benchmarks/support/bumpy_torus.h"

namespace {

using namespace ombrix::mesh;

/// The mesh as a file, written once with the digits that other programs use.
const std::string& meshFile() {
    static const std::string path = [] {
        const std::string file = ombrix::benchmarks::outputFile("plain.obj");
        (void)ombrix::benchmarks::bumpyTorus().writeOBJ(file, {.normals = false, .significantDigits = 6});
        return file;
    }();
    return path;
}

void setRates(benchmark::State& state, std::uintmax_t bytes, std::size_t triangles) {
    const auto runs = static_cast<std::int64_t>(state.iterations());
    state.SetBytesProcessed(runs * static_cast<std::int64_t>(bytes));
    state.SetItemsProcessed(runs * static_cast<std::int64_t>(triangles));
}

void ReadObjMillionTriangles(benchmark::State& state) {
    const std::string& path = meshFile();
    for (auto _ : state) {
        TriMesh mesh;
        mesh.readOBJ(path);
        benchmark::DoNotOptimize(mesh.faces.data());
    }
    setRates(state, std::filesystem::file_size(path), ombrix::benchmarks::bumpyTorus().faces.size());
}

void ReadObjWithOptionsMillionTriangles(benchmark::State& state) {
    const std::string& path = meshFile();
    for (auto _ : state) {
        TriMesh mesh;
        benchmark::DoNotOptimize(mesh.readOBJ(path, ObjReadOptions{}));
    }
    setRates(state, std::filesystem::file_size(path), ombrix::benchmarks::bumpyTorus().faces.size());
}

/// Argument: significant digits.
void WriteObjMillionTriangles(benchmark::State& state) {
    const TriMesh& mesh = ombrix::benchmarks::bumpyTorus();
    const std::string path = meshFile() + ".out";
    const ObjWriteOptions options{.normals = false, .significantDigits = static_cast<int>(state.range(0))};
    std::uint64_t bytes = 0;
    for (auto _ : state) {
        bytes = mesh.writeOBJ(path, options).bytes;
    }
    setRates(state, bytes, mesh.faces.size());
    std::filesystem::remove(path);
}

/// Argument: voxels along the longest side.
void SparseGridBuildMillionTriangles(benchmark::State& state) {
    const TriMesh& mesh = ombrix::benchmarks::bumpyTorus();
    Vector3f min, max;
    mesh.getMinMax(min, max);
    const float voxel = (max - min).maxCoeff() / static_cast<float>(state.range(0));
    for (auto _ : state) {
        SparseGrid grid;
        grid.build(mesh, voxel);
        benchmark::DoNotOptimize(grid.nodes.size());
        state.counters["voxels"] = static_cast<double>(grid.nodes.size());
    }
    setRates(state, 0, mesh.faces.size());
}

void SphereTreeBuildMillionTriangles(benchmark::State& state) {
    const TriMesh& mesh = ombrix::benchmarks::bumpyTorus();
    for (auto _ : state) {
        const SphereTree tree(mesh);
        benchmark::DoNotOptimize(tree.root());
    }
    setRates(state, 0, mesh.faces.size());
}

/// Queries spread over the mesh's box, in random order. Argument: percent of the half box that they fill,
/// or 0 for queries that lie within 1 % of the surface.
void SphereTreeClosestPointMillionTriangles(benchmark::State& state) {
    const TriMesh& mesh = ombrix::benchmarks::bumpyTorus();
    static const SphereTree tree(mesh);
    Vector3f min, max;
    mesh.getMinMax(min, max);
    std::mt19937 random(1);
    std::uniform_real_distribution<float> unit(0, 1);
    std::vector<Vector3f> queries(20'000);
    for (Vector3f& query : queries) {
        const Vector3f share(unit(random), unit(random), unit(random));
        query = state.range(0) != 0 ? Vector3f(min + share.cwiseProduct(max - min))
                                    : Vector3f(mesh.vertices[random() % mesh.vertices.size()] +
                                               0.02f * (share - Vector3f::Constant(0.5f)));
    }
    for (auto _ : state) {
        for (const Vector3f& query : queries) {
            benchmark::DoNotOptimize(tree.closestPoint(query));
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * queries.size()));
}

BENCHMARK(ReadObjMillionTriangles)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(ReadObjWithOptionsMillionTriangles)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(WriteObjMillionTriangles)->Arg(6)->Arg(9)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(SparseGridBuildMillionTriangles)->Arg(256)->Unit(benchmark::kMillisecond);
BENCHMARK(SphereTreeBuildMillionTriangles)->Unit(benchmark::kMillisecond);
BENCHMARK(SphereTreeClosestPointMillionTriangles)->Arg(0)->Arg(100)->Unit(benchmark::kMillisecond);

}  // namespace
