// What the machine itself takes for the least that some rows could do: sorting the same keys, moving the same
// bytes.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <tbb/parallel_sort.h>

#include <ombrix/core/octree/octree_factory.h>

#include "benchmarks/ours/ours.h"
#include "benchmarks/support/bench_cloud.h"
#include "benchmarks/support/bench_files.h"
#include "benchmarks/support/rows.h"

namespace {

using namespace ombrix::benchmarks;
using ombrix::core::OctreeFactory;
using ombrix::core::Vector3f;

using Pair = std::pair<std::uint64_t, std::uint64_t>;

/// Sorts a copy of the (code, index) pairs of a cloud's points; only the sorting is timed.
template <class Sort>
void measureSort(const Row& row, const std::string& name, const Sort& sort) {
    registerMeasure(row, name, Pace::QUICK, [sort](benchmark::State& state) {
        const std::vector<Vector3f>& points = benchPoints(state.range(0));
        std::vector<Pair> unsorted(points.size());
        for (std::uint64_t i = 0; i < points.size(); ++i) {
            unsorted[i] = {OctreeFactory::morton_keyd(points[i].cast<double>(), cubeEdge(state.range(0))).key,
                           i};
        }
        std::vector<Pair> pairs(unsorted.size());
        for (auto _ : state) {
            pairs = unsorted;
            const auto start = std::chrono::steady_clock::now();
            sort(pairs);
            state.SetIterationTime(
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        }
        state.SetItemsProcessed(state.iterations() * state.range(0));
    });
}

std::vector<char> bytesOf(const std::string& path) {
    std::vector<char> bytes(std::filesystem::file_size(path));
    if (std::FILE* file = std::fopen(path.c_str(), "rb")) {
        bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file));
        std::fclose(file);
    }
    return bytes;
}

void trees() {
    ours::fullOctree();
    measureSort(rows::FULL_OCTREE, "parallel_sort", [](std::vector<Pair>& pairs) {
        tbb::parallel_sort(pairs.begin(), pairs.end(),
                           [](const Pair& a, const Pair& b) { return a.first < b.first; });
    });
    ours::nestedOctree();
    measureSort(rows::NESTED_OCTREE, "std_sort",
                [](std::vector<Pair>& pairs) { std::sort(pairs.begin(), pairs.end()); });
}

void files() {
    ours::readPly();
    measureLimit(rows::READ_PLY, "fread",
                 [](std::int64_t n) { return [path = plyFile(n)] { return bytesOf(path); }; });
    ours::readObj();
    measureLimit(rows::READ_OBJ, "fread",
                 [](std::int64_t) { return [path = objFile()] { return bytesOf(path); }; });
    ours::writeObj();
    measureLimit(rows::WRITE_OBJ, "fwrite", [](std::int64_t) {
        return [bytes = bytesOf(objFile()), path = outputFile("bytes")] {
            std::size_t written = 0;
            if (std::FILE* file = std::fopen(path.c_str(), "wb")) {
                written = std::fwrite(bytes.data(), 1, bytes.size(), file);
                std::fclose(file);
            }
            return written;
        };
    });
}

void words() {
    ours::hash();
    measureLimit(rows::HASH, "memcpy", [](std::int64_t n) {
        const auto copy = std::make_shared<std::vector<Vector3f>>(benchPoints(n));
        return [copy, &points = benchPoints(n)] {
            std::memcpy(static_cast<void*>(copy->data()), points.data(), points.size() * sizeof(Vector3f));
            return copy;
        };
    });
    ours::mortonCodes();
    // The same bytes in and out, with the least arithmetic that uses all of them.
    measureLimit(rows::MORTON, "sums", [](std::int64_t n) {
        const auto sums = std::make_shared<std::vector<double>>(benchPoints(n).size());
        return [sums, &points = benchPoints(n)] {
            for (std::size_t i = 0; i < points.size(); ++i) {
                (*sums)[i] = static_cast<double>(points[i].sum());
            }
            return sums;
        };
    });
}

}  // namespace

int main(int argc, char** argv) {
    return runMeasures(argc, argv, {trees, files, words});
}
