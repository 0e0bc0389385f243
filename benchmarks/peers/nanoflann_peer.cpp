// KDTree and the whole-cloud passes beside the same work over nanoflann called directly, with the same
// parameters: leaves of 10, exact search, the points in the order given, two threads where ours use them.

#include <benchmark/benchmark.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <nanoflann.hpp>

#include <cmath>
#include <memory>
#include <vector>

#include <ombrix/core/analysis/curvature_density.h>
#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/analysis/normal_estimator.h>
#include <ombrix/core/analysis/resolution.h>

#include <benchmarks/support/bench_cloud.h>

namespace ombrix::benchmarks {
namespace {

using namespace ombrix::core;

constexpr std::size_t K = 16;
constexpr std::size_t QUERIES = 200'000;

struct Dataset {
    const std::vector<Vector3f>& points;
    std::size_t kdtree_get_point_count() const { return points.size(); }
    float kdtree_get_pt(std::size_t i, std::size_t dim) const { return points[i].data()[dim]; }
    template <class Box>
    bool kdtree_get_bbox(Box&) const {
        return false;
    }
};
using Metric = nanoflann::L2_Simple_Adaptor<float, Dataset, float, std::size_t>;
using Index = nanoflann::KDTreeSingleIndexAdaptor<Metric, Dataset, 3, std::size_t>;

struct Direct {
    explicit Direct(const std::vector<Vector3f>& points) : dataset{points}, index(3, dataset, {10}) {}

    std::size_t knn(const Vector3f& q, std::size_t k, std::size_t* indices, float* sqDists) const {
        nanoflann::KNNResultSet<float, std::size_t> result(k);
        result.init(indices, sqDists);
        index.findNeighbors(result, q.data(), {});
        return result.size();
    }

    Dataset dataset;
    Index index;
};

const Direct& sharedDirect(std::int64_t n) {
    static std::map<std::int64_t, std::unique_ptr<Direct>> trees;
    auto& tree = trees[n];
    if (!tree) {
        tree = std::make_unique<Direct>(benchPoints(n));
    }
    return *tree;
}

const KDTree& sharedTree(std::int64_t n) {
    static std::map<std::int64_t, std::unique_ptr<KDTree>> trees;
    auto& tree = trees[n];
    if (!tree) {
        tree = std::make_unique<KDTree>(benchCloud(n));
    }
    return *tree;
}

template <class Body>
void inParallel(std::size_t n, const Body& body) {
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, n, 1024), body);
}

void expectAgreement(benchmark::State& state, double ours, double theirs, double tolerance) {
    if (!(std::abs(ours - theirs) <= tolerance * std::abs(theirs))) {
        state.SkipWithError("the answers differ");
    }
}

void Build_ombrix(benchmark::State& state) {
    const auto& points = benchPoints(state.range(0));
    for (auto _ : state) {
        const KDTree tree(points);
        benchmark::DoNotOptimize(&tree);
    }
    pointRate(state);
}

void Build_nanoflann(benchmark::State& state) {
    const auto& points = benchPoints(state.range(0));
    for (auto _ : state) {
        const Direct tree(points);
        benchmark::DoNotOptimize(&tree);
    }
    pointRate(state);
}

void Knn16_ombrix(benchmark::State& state) {
    const auto& points = benchPoints(state.range(0));
    const KDTree& tree = sharedTree(state.range(0));
    std::vector<std::size_t> indices;
    std::vector<float> sqDists;
    double sum = 0.0;
    for (auto _ : state) {
        sum = 0.0;
        for (std::size_t i = 0; i < QUERIES; ++i) {
            sum += static_cast<double>(sqDists[tree.knnSearch(points[i], K, indices, sqDists) - 1]);
        }
    }
    const Direct& direct = sharedDirect(state.range(0));
    double expected = 0.0;
    for (std::size_t i = 0; i < QUERIES; ++i) {
        expected +=
            static_cast<double>(sqDists[direct.knn(points[i], K, indices.data(), sqDists.data()) - 1]);
    }
    expectAgreement(state, sum, expected, 0.0);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(QUERIES));
}

void Knn16_nanoflann(benchmark::State& state) {
    const auto& points = benchPoints(state.range(0));
    const Direct& tree = sharedDirect(state.range(0));
    std::vector<std::size_t> indices(K);
    std::vector<float> sqDists(K);
    for (auto _ : state) {
        double sum = 0.0;
        for (std::size_t i = 0; i < QUERIES; ++i) {
            sum += static_cast<double>(sqDists[tree.knn(points[i], K, indices.data(), sqDists.data()) - 1]);
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(QUERIES));
}

void RadiusSorted_ombrix(benchmark::State& state) {
    const auto& points = benchPoints(state.range(0));
    const KDTree& tree = sharedTree(state.range(0));
    const float radius = densityRadius(state.range(0));
    std::vector<std::pair<std::size_t, float>> found;
    for (auto _ : state) {
        for (std::size_t i = 0; i < QUERIES; ++i) {
            tree.radiusSearch(points[i], radius, found, true);
            benchmark::DoNotOptimize(found.data());
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(QUERIES));
}

void RadiusSorted_nanoflann(benchmark::State& state) {
    const auto& points = benchPoints(state.range(0));
    const Direct& tree = sharedDirect(state.range(0));
    const float radius = densityRadius(state.range(0));
    std::vector<std::pair<std::size_t, float>> found;
    for (auto _ : state) {
        for (std::size_t i = 0; i < QUERIES; ++i) {
            tree.index.radiusSearch(points[i].data(), radius * radius, found, {});
            benchmark::DoNotOptimize(found.data());
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(QUERIES));
}

void MeanNearestDistance_ombrix(benchmark::State& state) {
    const auto& points = benchPoints(state.range(0));
    std::pair<float, float> result;
    for (auto _ : state) {
        result = ResolutionEstimator::mean_dist(points);
    }
    const Direct& tree = sharedDirect(state.range(0));
    double sum = 0.0;
    for (const Vector3f& p : points) {
        std::size_t indices[2];
        float sqDists[2];
        tree.knn(p, 2, indices, sqDists);
        sum += std::sqrt(static_cast<double>(sqDists[1]));
    }
    expectAgreement(state, static_cast<double>(result.first), sum / static_cast<double>(points.size()), 1e-6);
    pointRate(state);
}

void MeanNearestDistance_nanoflann(benchmark::State& state) {
    const auto& points = benchPoints(state.range(0));
    for (auto _ : state) {
        const Direct tree(points);
        std::vector<float> nearest(points.size());
        inParallel(points.size(), [&](const tbb::blocked_range<std::size_t>& range) {
            std::size_t indices[2];
            float sqDists[2];
            for (std::size_t i = range.begin(); i != range.end(); ++i) {
                tree.knn(points[i], 2, indices, sqDists);
                nearest[i] = std::sqrt(sqDists[1]);
            }
        });
        benchmark::DoNotOptimize(nearest.data());
    }
    pointRate(state);
}

void SurfaceDensity_ombrix(benchmark::State& state) {
    const auto& points = benchPoints(state.range(0));
    const float radius = densityRadius(state.range(0));
    Density density;
    for (auto _ : state) {
        const KDTree tree(points);
        density.surfaceDensity_omp(points, tree, radius);
    }
    const Direct& tree = sharedDirect(state.range(0));
    std::vector<std::pair<std::size_t, float>> found;
    const float area = static_cast<float>(static_cast<double>(radius) * 3.141592653589793 * radius);
    for (std::size_t i = 0; i < QUERIES; ++i) {
        tree.index.radiusSearch(points[i].data(), radius * radius, found, {});
        expectAgreement(state, density.values()[i], static_cast<float>(found.size()) / area, 0.0);
    }
    pointRate(state);
}

void SurfaceDensity_nanoflann(benchmark::State& state) {
    const auto& points = benchPoints(state.range(0));
    const float radius = densityRadius(state.range(0));
    for (auto _ : state) {
        const Direct tree(points);
        std::vector<float> values(points.size());
        inParallel(points.size(), [&](const tbb::blocked_range<std::size_t>& range) {
            std::vector<std::pair<std::size_t, float>> found;
            for (std::size_t i = range.begin(); i != range.end(); ++i) {
                tree.index.radiusSearch(points[i].data(), radius * radius, found, {32, 0.0f, false});
                values[i] = static_cast<float>(found.size()) / (3.1415927f * radius * radius);
            }
        });
        benchmark::DoNotOptimize(values.data());
    }
    pointRate(state);
}

void Normals16_ombrix(benchmark::State& state) {
    core::PointCloud cloud = benchCloud(state.range(0));
    for (auto _ : state) {
        NormalEstimator::compute(cloud, K);
    }
    pointRate(state);
}

void Normals16_nanoflann(benchmark::State& state) {
    const auto& points = benchPoints(state.range(0));
    std::vector<Vector3f> normals(points.size());
    for (auto _ : state) {
        const Direct tree(points);
        inParallel(points.size(), [&](const tbb::blocked_range<std::size_t>& range) {
            std::vector<std::size_t> indices(K);
            std::vector<float> sqDists(K);
            for (std::size_t i = range.begin(); i != range.end(); ++i) {
                tree.knn(points[i], K, indices.data(), sqDists.data());
                normals[i] = NormalEstimator::compute(points, indices);
            }
        });
    }
    // Of several neighbours at exactly the same distance nanoflann may keep another one.
    core::PointCloud cloud = benchCloud(state.range(0));
    NormalEstimator::compute(cloud, K);
    std::size_t apart = 0;
    for (std::size_t i = 0; i < points.size(); ++i) {
        apart += (cloud.normals()[i] - normals[i]).norm() > 1e-3f ? 1 : 0;
    }
    if (apart > points.size() / 100'000) {
        state.SkipWithError("the answers differ");
    }
    pointRate(state);
}

BENCHMARK(Build_ombrix)->Apply(pointSizes);
BENCHMARK(Build_nanoflann)->Apply(pointSizes);
BENCHMARK(Knn16_ombrix)->Apply(pointSizes);
BENCHMARK(Knn16_nanoflann)->Apply(pointSizes);
BENCHMARK(RadiusSorted_ombrix)->Apply(pointSizes);
BENCHMARK(RadiusSorted_nanoflann)->Apply(pointSizes);
BENCHMARK(MeanNearestDistance_ombrix)->Apply(pointSizes);
BENCHMARK(MeanNearestDistance_nanoflann)->Apply(pointSizes);
BENCHMARK(SurfaceDensity_ombrix)->Apply(pointSizes);
BENCHMARK(SurfaceDensity_nanoflann)->Apply(pointSizes);
BENCHMARK(Normals16_ombrix)->Apply(pointSizes);
BENCHMARK(Normals16_nanoflann)->Apply(pointSizes);

}  // namespace
}  // namespace ombrix::benchmarks
