#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <numbers>

#include <benchmark/benchmark.h>

#include <ombrix/mesh.h>

#include "mesh_bench_data.h"

namespace {

using namespace ombrix::mesh;

/// The mesh as a file, written once with the digits that other programs use.
const std::string& meshFile() {
    static const std::string path = [] {
        const auto file = std::filesystem::temp_directory_path() / "ombrix_mesh_bench.obj";
        (void)bench::bumpyTorus().writeOBJ(file.string(), {.normals = false, .significantDigits = 6});
        return file.string();
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
    setRates(state, std::filesystem::file_size(path), bench::bumpyTorus().faces.size());
}

void ReadObjWithOptionsMillionTriangles(benchmark::State& state) {
    const std::string& path = meshFile();
    for (auto _ : state) {
        TriMesh mesh;
        benchmark::DoNotOptimize(mesh.readOBJ(path, ObjReadOptions{}));
    }
    setRates(state, std::filesystem::file_size(path), bench::bumpyTorus().faces.size());
}

/// Argument: significant digits.
void WriteObjMillionTriangles(benchmark::State& state) {
    const TriMesh& mesh = bench::bumpyTorus();
    const std::string path = meshFile() + ".out";
    const ObjWriteOptions options{.normals = false, .significantDigits = static_cast<int>(state.range(0))};
    std::uint64_t bytes = 0;
    for (auto _ : state) {
        bytes = mesh.writeOBJ(path, options).bytes;
    }
    setRates(state, bytes, mesh.faces.size());
    std::filesystem::remove(path);
}

BENCHMARK(ReadObjMillionTriangles)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(ReadObjWithOptionsMillionTriangles)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(WriteObjMillionTriangles)->Arg(6)->Arg(9)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
