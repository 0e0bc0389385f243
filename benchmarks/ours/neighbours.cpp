#include <cmath>
#include <memory>
#include <numeric>
#include <utility>
#include <vector>

#include <ombrix/core.h>

#include "benchmarks/ours/ours.h"
#include "benchmarks/support/answers.h"
#include "benchmarks/support/bench_cloud.h"
#include "benchmarks/support/rows.h"
#include "benchmarks/support/threads.h"

namespace ombrix::benchmarks::ours {

using namespace core;

namespace {

/// Neighbours of all points together; the radius is about that of ten.
std::uint64_t neighboursInLists(const std::vector<Vector3f>& points, float radius) {
    const KDTree tree(points);
    std::vector<std::uint32_t> counts(points.size());
    forEachPoint(points.size(), std::vector<std::pair<std::size_t, float>>(), [&](std::size_t i, auto& list) {
        tree.radiusSearch(points[i], radius, list, true);
        counts[i] = static_cast<std::uint32_t>(list.size());
    });
    return std::accumulate(counts.begin(), counts.end(), std::uint64_t{0});
}

}  // namespace

void knnQueries() {
    measure(
        rows::KNN_QUERIES, "ombrix",
        [](std::int64_t n) {
            const auto tree = std::make_shared<KDTree>(benchPoints(n));
            return [tree, &points = benchPoints(n)] {
                std::vector<std::size_t> indices;
                std::vector<float> sqDists;
                double sum = 0.0;
                for (std::size_t q = 0; q < std::min(SINGLE_QUERIES, points.size()); ++q) {
                    sum += sqDists[tree->knnSearch(points[q], NEIGHBOURS, indices, sqDists) - 1];
                }
                return sum;
            };
        },
        [](std::int64_t, double sum) { return Answer{sum}; });
}

void knnPass(int threads) {
    const auto prepare = [](std::int64_t n) {
        return [&points = benchPoints(n)] {
            // A point itself is the first of its neighbours.
            return ResolutionEstimator::statistical_mean_dist(points, NEIGHBOURS - 1);
        };
    };
    measure(rows::KNN_PASS, libraryName(threads), onThreads(threads, prepare),
            [](std::int64_t, const auto& result) { return Answer{result.first}; });
}

void radiusLists() {
    const auto answer = [](std::int64_t, std::uint64_t found) { return Answer{static_cast<double>(found)}; };
    measure(
        rows::RADIUS_LISTS, "ombrix",
        [](std::int64_t n) {
            return [&points = benchPoints(n), radius = densityRadius(n)] {
                return neighboursInLists(points, radius);
            };
        },
        answer, Pace::SLOW);
    measure(
        rows::RADIUS_LISTS, "ombrix_sorted",
        [](std::int64_t n) {
            PointCloud positions;
            positions.positions() = benchPoints(n);
            return [positions, edge = cubeEdge(n), radius = densityRadius(n)] {
                const PointCloudMorton sorted(positions, Vector3f::Zero(), edge);
                return neighboursInLists(sorted.cloud().positions(), radius);
            };
        },
        answer, Pace::SLOW);
}

void surfaceDensity(int threads) {
    const auto prepare = [](std::int64_t n) {
        return [&points = benchPoints(n), radius = densityRadius(n)] {
            const KDTree tree(points);
            Density density;
            density.surfaceDensity_omp(points, tree, radius);
            return density;
        };
    };
    measure(rows::DENSITY, libraryName(threads), onThreads(threads, prepare),
            [](std::int64_t n, const Density& density) {
                Answer answer = sampledAnswer(density.values());
                const double radius = densityRadius(n);
                for (double& value : answer) {
                    value = std::round(value * std::numbers::pi * radius * radius);
                }
                return answer;
            });
}

void meanNearestDistance(int threads) {
    const auto prepare = [](std::int64_t n) {
        return [&points = benchPoints(n)] { return ResolutionEstimator::mean_dist(points); };
    };
    measure(rows::NEAREST, libraryName(threads), onThreads(threads, prepare),
            [](std::int64_t, const auto& result) { return Answer{result.first}; });
}

void normals(int threads) {
    const auto prepare = [](std::int64_t n) {
        const auto cloud = std::make_shared<PointCloud>();
        cloud->positions() = benchPoints(n);
        return [cloud] {
            NormalEstimator::compute(*cloud, NEIGHBOURS);
            return cloud;
        };
    };
    measure(rows::NORMALS, libraryName(threads), onThreads(threads, prepare),
            [](std::int64_t, const auto& cloud) {
                return normalAnswer(cloud->size(), [&](std::size_t i) -> Vector3d {
                    return cloud->normals()[i].template cast<double>();
                });
            });
}

}  // namespace ombrix::benchmarks::ours
