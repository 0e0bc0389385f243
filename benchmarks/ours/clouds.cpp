#include <cstdint>
#include <memory>
#include <vector>

#include <ombrix/core.h>
#include <ombrix/io.h>

#include "benchmarks/ours/ours.h"
#include "benchmarks/support/answers.h"
#include "benchmarks/support/bench_cloud.h"
#include "benchmarks/support/bench_files.h"
#include "benchmarks/support/rows.h"
#include "benchmarks/support/threads.h"

namespace ombrix::benchmarks::ours {

using namespace core;

namespace {

void gridMerge(const Row& row, bool averaging, int threads) {
    const auto prepare = [averaging](std::int64_t n) {
        const auto positions = std::make_shared<PointCloud>();
        positions->positions() = benchPoints(n);
        return [positions, averaging, cell = tenPointCell(n)] {
            Merge merge(cell);
            merge.setAveraging(averaging);
            merge.add(*positions, Vector3d::Zero());
            PointCloud merged;
            merge.result(merged);
            return merged;
        };
    };
    measure(
        row, libraryName(threads), onThreads(threads, prepare),
        [](std::int64_t, const PointCloud& merged) { return Answer{static_cast<double>(merged.size())}; });
}

}  // namespace

void gridMean(int threads) {
    gridMerge(rows::GRID_MEAN, true, threads);
}

void gridPick(int threads) {
    gridMerge(rows::GRID_PICK, false, threads);
}

void readPly() {
    measure(
        rows::READ_PLY, "ombrix",
        [](std::int64_t n) { return [path = plyFile(n)] { return io::readPoints(path); }; },
        [](std::int64_t, const io::PointFile& file) {
            return meanPointAnswer(file.cloud.size(), [&](std::size_t i) -> Vector3d {
                return file.cloud.positions()[i].cast<double>();
            });
        });
}

void hash() {
    measureLimit(rows::HASH, "ombrix", [](std::int64_t n) {
        return [&points = benchPoints(n)] {
            return fasthash64(points.data(), points.size() * sizeof(Vector3f), 0);
        };
    });
}

void mortonCodes() {
    measureLimit(rows::MORTON, "ombrix", [](std::int64_t n) {
        const auto codes = std::make_shared<std::vector<std::uint64_t>>(benchPoints(n).size());
        return [&points = benchPoints(n), codes, edge = cubeEdge(n)] {
            for (std::size_t i = 0; i < points.size(); ++i) {
                (*codes)[i] = OctreeFactory::morton_keyd(points[i].cast<double>(), edge).key;
            }
            return codes;
        };
    });
}

}  // namespace ombrix::benchmarks::ours
