// Neighbour searches and what is made of them, beside nanoflann called directly with the same parameters:
// leaves of 10, exact search, the points in the order given, all threads where ours use them.
#include <memory>
#include <vector>

#include <nanoflann.hpp>

#include <ombrix/core/analysis/normal_estimator.h>

#include "benchmarks/ours/ours.h"
#include "benchmarks/support/tree_measures.h"

namespace {

using namespace ombrix::benchmarks;
using ombrix::core::Vector3f;

struct Dataset {
    const std::vector<Vector3f>& points;
    std::size_t kdtree_get_point_count() const { return points.size(); }
    float kdtree_get_pt(std::size_t i, std::size_t dim) const { return points[i].data()[dim]; }
    template <class Box>
    bool kdtree_get_bbox(Box&) const {
        return false;
    }
};

class Tree {
public:
    using Input = std::vector<Vector3f>;
    struct Buffer {
        std::vector<std::size_t> indices;
        std::vector<float> sqDists;
        std::vector<std::pair<std::size_t, float>> list;
    };

    static std::shared_ptr<const Input> input(std::int64_t n) {
        return {std::shared_ptr<void>(), &benchPoints(n)};
    }

    explicit Tree(const Input& points) : dataset_{points}, index_(3, dataset_, {10}) {}

    std::size_t knn(std::size_t i, std::size_t k, Buffer& buffer) const {
        buffer.indices.resize(k);
        buffer.sqDists.resize(k);
        nanoflann::KNNResultSet<float, std::size_t> result(k);
        result.init(buffer.indices.data(), buffer.sqDists.data());
        index_.findNeighbors(result, dataset_.points[i].data(), {});
        return result.size();
    }
    static float sqDist(const Buffer& buffer, std::size_t j) { return buffer.sqDists[j]; }

    std::size_t radius(std::size_t i, float radius, Buffer& buffer, bool sorted) const {
        return index_.radiusSearch(dataset_.points[i].data(), radius * radius, buffer.list,
                                   {32, 0.0f, sorted});
    }

private:
    using Metric = nanoflann::L2_Simple_Adaptor<float, Dataset, float, std::size_t>;

    Dataset dataset_;
    nanoflann::KDTreeSingleIndexAdaptor<Metric, Dataset, 3, std::size_t> index_;
};

void queries() {
    ours::knnQueries();
    measure(
        rows::KNN_QUERIES, "nanoflann",
        [](std::int64_t n) {
            return [tree = std::make_shared<Tree>(benchPoints(n)), count = benchPoints(n).size()] {
                Tree::Buffer buffer;
                double sum = 0.0;
                for (std::size_t q = 0; q < std::min(SINGLE_QUERIES, count); ++q) {
                    sum += tree->sqDist(buffer, tree->knn(q, NEIGHBOURS, buffer) - 1);
                }
                return sum;
            };
        },
        [](std::int64_t, double sum) { return Answer{sum}; });
}

/// The direct loop with this library's own plane fit.
void normals() {
    ours::normals();
    measure(
        rows::NORMALS, "nanoflann",
        [](std::int64_t n) {
            return [&points = benchPoints(n)] {
                const Tree tree(points);
                std::vector<Vector3f> normals(points.size());
                forEachPoint(points.size(), Tree::Buffer(), [&](std::size_t i, Tree::Buffer& buffer) {
                    tree.knn(i, NEIGHBOURS, buffer);
                    normals[i] = ombrix::core::NormalEstimator::compute(points, buffer.indices);
                });
                return normals;
            };
        },
        [](std::int64_t, const std::vector<Vector3f>& normals) {
            return normalAnswer(normals.size(), [&](std::size_t i) { return normals[i].cast<double>(); });
        },
        Pace::SLOW);
}

void passes() {
    ours::kdTreeBuild();
    measureTreeBuild<Tree>("nanoflann");
    ours::knnPass();
    ours::meanNearestDistance();
    ours::radiusLists();
    ours::surfaceDensity();
    measureTreePasses<Tree>("nanoflann");
}

}  // namespace

int main(int argc, char** argv) {
    return runMeasures(argc, argv, {queries, passes, normals});
}
