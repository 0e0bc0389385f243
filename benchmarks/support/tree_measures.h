#pragma once

#include <cmath>
#include <cstdint>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "benchmarks/support/answers.h"
#include "benchmarks/support/bench_cloud.h"
#include "benchmarks/support/rows.h"
#include "benchmarks/support/threads.h"

/// The rows of neighbour searches through another library's tree, its queries spread over all threads as
/// this library's estimators do it.
///
/// A `Tree` has `Input`, the points in the library's own type, and `static shared_ptr<Input> input(n)`,
/// which is not timed; a constructor from an Input; a `Buffer` for the results of one thread; and queries
/// from point i, itself among the results, ascending by distance: `knn(i, k, buffer)` and
/// `radius(i, radius, buffer, sorted)`, which return the number found, `sqDist(buffer, j)` its j-th.
namespace ombrix::benchmarks {

template <class Tree>
void measureTreeBuild(const std::string& library) {
    measure(
        rows::KDTREE_BUILD, library,
        [](std::int64_t n) { return [input = Tree::input(n)] { return std::make_unique<Tree>(*input); }; },
        [](std::int64_t n, const auto& tree) {
            Answer answer;
            typename Tree::Buffer buffer;
            for (const std::size_t i : sampledIndices(benchPoints(n).size())) {
                answer.push_back(tree->sqDist(buffer, tree->knn(i, NEIGHBOURS, buffer) - 1));
            }
            return answer;
        });
}

/// Per point the mean distance to its k - 1 nearest others, tree included.
template <class Tree>
auto meanDistances(std::size_t k) {
    return [k](std::int64_t n) {
        return [k, n, input = Tree::input(n)] {
            const Tree tree(*input);
            std::vector<float> means(benchPoints(n).size());
            forEachPoint(means.size(), typename Tree::Buffer(), [&](std::size_t i, auto& buffer) {
                const std::size_t found = tree.knn(i, k, buffer);
                double sum = 0.0;
                for (std::size_t j = 1; j < found; ++j) {
                    sum += std::sqrt(static_cast<double>(tree.sqDist(buffer, j)));
                }
                means[i] = static_cast<float>(sum / static_cast<double>(found - 1));
            });
            return means;
        };
    };
}

/// Per point how many are within the radius of about ten neighbours, tree included.
template <class Tree>
auto neighbourCounts(bool sorted) {
    return [sorted](std::int64_t n) {
        return [sorted, n, radius = densityRadius(n), input = Tree::input(n)] {
            const Tree tree(*input);
            std::vector<std::uint32_t> counts(benchPoints(n).size());
            forEachPoint(counts.size(), typename Tree::Buffer(), [&](std::size_t i, auto& buffer) {
                counts[i] = static_cast<std::uint32_t>(tree.radius(i, radius, buffer, sorted));
            });
            return counts;
        };
    };
}

inline Answer sumOfCounts(const std::vector<std::uint32_t>& counts) {
    return {std::accumulate(counts.begin(), counts.end(), 0.0)};
}

template <class Tree>
void measureTreePasses(const std::string& library) {
    const auto mean = [](std::int64_t, const auto& values) { return meanAnswer(values); };
    measure(rows::KNN_PASS, library, meanDistances<Tree>(NEIGHBOURS), mean, Pace::SLOW);
    measure(rows::NEAREST, library, meanDistances<Tree>(2), mean, Pace::SLOW);
    measure(
        rows::RADIUS_LISTS, library, neighbourCounts<Tree>(true),
        [](std::int64_t, const auto& counts) { return sumOfCounts(counts); }, Pace::SLOW);
    measure(
        rows::DENSITY, library, neighbourCounts<Tree>(false),
        [](std::int64_t, const auto& counts) { return sampledAnswer(counts); }, Pace::SLOW);
}

}  // namespace ombrix::benchmarks
