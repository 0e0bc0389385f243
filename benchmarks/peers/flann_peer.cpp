// Neighbour searches beside FLANN's exact single-tree index, which takes all queries at once and spreads
// them over the threads itself.
#include <cmath>
#include <memory>
#include <vector>

#include <flann/flann.hpp>

#include "benchmarks/ours/ours.h"
#include "benchmarks/support/tree_measures.h"

namespace {

using namespace ombrix::benchmarks;

class Tree {
public:
    using Input = std::vector<ombrix::core::Vector3f>;
    struct Buffer {
        std::vector<int> indices;
        std::vector<float> sqDists;
    };

    static std::shared_ptr<const Input> input(std::int64_t n) {
        return {std::shared_ptr<void>(), &benchPoints(n)};
    }

    // FLANN takes pointers to mutable data and only reads it.
    explicit Tree(const Input& points)
        : data_(const_cast<float*>(points.front().data()), points.size(), 3),
          index_(data_, flann::KDTreeSingleIndexParams(10)) {
        index_.buildIndex();
    }

    std::size_t knn(std::size_t i, std::size_t k, Buffer& buffer) {
        const flann::Matrix<float> query(data_[i], 1, 3);
        search(query, k, 1, buffer);
        return k;
    }
    static float sqDist(const Buffer& buffer, std::size_t j) { return buffer.sqDists[j]; }

    /// The k nearest of every point, row after row.
    void knnOfAll(std::size_t k, Buffer& buffer) { search(data_, k, threadCount(), buffer); }

    void radiusOfAll(float radius, bool sorted, std::vector<std::vector<int>>& indices,
                     std::vector<std::vector<float>>& sqDists) {
        flann::SearchParams params(flann::FLANN_CHECKS_UNLIMITED);
        params.cores = threadCount();
        params.sorted = sorted;
        index_.radiusSearch(data_, indices, sqDists, radius * radius, params);
    }

private:
    void search(const flann::Matrix<float>& queries, std::size_t k, int cores, Buffer& buffer) {
        buffer.indices.resize(k * queries.rows);
        buffer.sqDists.resize(k * queries.rows);
        flann::Matrix<int> indexRows(buffer.indices.data(), queries.rows, k);
        flann::Matrix<float> distRows(buffer.sqDists.data(), queries.rows, k);
        flann::SearchParams params(flann::FLANN_CHECKS_UNLIMITED);
        params.cores = cores;
        index_.knnSearch(queries, indexRows, distRows, k, params);
    }

    flann::Matrix<float> data_;
    flann::Index<flann::L2_Simple<float>> index_;
};

auto meanOfAll(std::size_t k) {
    return [k](std::int64_t n) {
        return [k, &points = benchPoints(n)] {
            Tree tree(points);
            Tree::Buffer buffer;
            tree.knnOfAll(k, buffer);
            std::vector<float> means(points.size());
            forEachPoint(points.size(), 0, [&](std::size_t i, int) {
                double sum = 0.0;
                for (std::size_t j = 1; j < k; ++j) {
                    sum += std::sqrt(static_cast<double>(buffer.sqDists[k * i + j]));
                }
                means[i] = static_cast<float>(sum / static_cast<double>(k - 1));
            });
            return means;
        };
    };
}

auto countsOfAll(bool sorted) {
    return [sorted](std::int64_t n) {
        return [sorted, radius = densityRadius(n), &points = benchPoints(n)] {
            Tree tree(points);
            std::vector<std::vector<int>> indices;
            std::vector<std::vector<float>> sqDists;
            tree.radiusOfAll(radius, sorted, indices, sqDists);
            std::vector<std::uint32_t> counts(points.size());
            for (std::size_t i = 0; i < counts.size(); ++i) {
                counts[i] = static_cast<std::uint32_t>(indices[i].size());
            }
            return counts;
        };
    };
}

void passes() {
    const auto mean = [](std::int64_t, const auto& values) { return meanAnswer(values); };
    ours::kdTreeBuild();
    measureTreeBuild<Tree>("flann");
    ours::knnPass();
    measure(rows::KNN_PASS, "flann", meanOfAll(NEIGHBOURS), mean, Pace::SLOW);
    ours::meanNearestDistance();
    measure(rows::NEAREST, "flann", meanOfAll(2), mean, Pace::SLOW);
    ours::radiusLists();
    measure(
        rows::RADIUS_LISTS, "flann", countsOfAll(true),
        [](std::int64_t, const auto& counts) { return sumOfCounts(counts); }, Pace::SLOW);
    ours::surfaceDensity();
    measure(
        rows::DENSITY, "flann", countsOfAll(false),
        [](std::int64_t, const auto& counts) { return sampledAnswer(counts); }, Pace::SLOW);
}

}  // namespace

int main(int argc, char** argv) {
    return runMeasures(argc, argv, {passes});
}
