#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <tuple>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_sort.h>

#include <ombrix/core/analysis/normal_orientation.h>
#include <ombrix/core/analysis/spatial_order_detail.h>
#include <ombrix/core/points/point_cloud.h>

namespace ombrix::core {
namespace {

struct Edge {
    float cost = 0.0f;
    std::uint64_t a = 0;
    std::uint64_t b = 0;  ///< the same as a: no edge

    friend bool operator<(const Edge& x, const Edge& y) {
        return std::tie(x.cost, x.a, x.b) < std::tie(y.cost, y.a, y.b);
    }
};

float edgeCost(const Vector3f& n1, const Vector3f& n2) {
    const float cost = 1.0f - std::abs(n1.dot(n2));
    return cost <= 1.0f ? cost : 1.0f;  // a NaN has no place in an order
}

/// The edges from every point to its k nearest others, ascending by cost.
std::vector<Edge> sortedGraph(const std::vector<Vector3f>& positions, std::size_t k,
                              const std::vector<Vector3f>& normals) {
    const detail::SpatialCopy copy(positions);
    std::vector<Edge> edges(positions.size() * k);
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, copy.size(), detail::SPATIAL_GRAIN),
                      [&](const tbb::blocked_range<std::size_t>& range) {
                          std::vector<std::size_t> indices(k + 1);
                          std::vector<float> sqDists(k + 1);
                          for (std::size_t i = range.begin(); i != range.end(); ++i) {
                              const std::size_t found = copy.knn(i, k + 1, indices.data(), sqDists.data());
                              const std::uint64_t from = copy.original(i);
                              for (std::size_t j = 0; j < std::min(found, k); ++j) {
                                  // The point itself may be any of the first, among its duplicates.
                                  const std::size_t other = indices[j] == i ? indices[found - 1] : indices[j];
                                  const std::uint64_t to = copy.original(other);
                                  edges[from * k + j] = {edgeCost(normals[from], normals[to]),
                                                         std::min(from, to), std::max(from, to)};
                              }
                          }
                      });
    tbb::parallel_sort(edges.begin(), edges.end());
    return edges;
}

/// Disjoint sets of points, each with whether its normal has to be turned relative to the set's root.
class OrientedSets {
public:
    struct Place {
        std::uint64_t root;
        bool turned;
    };

    explicit OrientedSets(std::size_t n) : parents_(n), sizes_(n, 1), turned_(n, 0) {
        std::iota(parents_.begin(), parents_.end(), std::uint64_t{0});
    }

    [[nodiscard]] Place find(std::uint64_t i) {
        bool turned = false;
        while (parents_[i] != i) {
            const std::uint64_t parent = parents_[i];
            turned_[i] ^= turned_[parent];  // a root's is 0
            parents_[i] = parents_[parent];
            turned = turned != (turned_[i] != 0);
            i = parents_[i];
        }
        return {i, turned};
    }

    /// Joins two sets so that a and b are turned alike, or `opposed`.
    void join(std::uint64_t a, std::uint64_t b, bool opposed) {
        Place first = find(a);
        Place second = find(b);
        if (first.root == second.root) {
            return;
        }
        if (sizes_[first.root] < sizes_[second.root]) {
            std::swap(first, second);
        }
        parents_[second.root] = first.root;
        turned_[second.root] = (first.turned != second.turned) != opposed ? 1 : 0;
        sizes_[first.root] += sizes_[second.root];
    }

private:
    std::vector<std::uint64_t> parents_;
    std::vector<std::uint64_t> sizes_;
    std::vector<std::uint8_t> turned_;  ///< relative to the parent
};

}  // namespace

void NormalOrientation::towardsViewpoint(const std::vector<Vector3f>& positions, const Vector3f& viewpoint,
                                         std::vector<Vector3f>& normals) {
    for (std::size_t i = 0; i < positions.size(); ++i) {
        const Vector3d sight = viewpoint.cast<double>() - positions[i].cast<double>();
        if (normals[i].cast<double>().dot(sight) < 0.0) {
            normals[i] = -normals[i];
        }
    }
}

void NormalOrientation::towardsViewpoint(PointCloud& cloud, const Vector3f& viewpoint) {
    towardsViewpoint(cloud.positions(), viewpoint, cloud.normals());
}

void NormalOrientation::alongSpanningTree(const std::vector<Vector3f>& positions, std::size_t k,
                                          std::vector<Vector3f>& normals) {
    const std::size_t n = positions.size();
    if (n == 0) {
        return;
    }
    OrientedSets sets(n);
    for (const Edge& edge : sortedGraph(positions, std::min(k, n - 1), normals)) {
        if (edge.a != edge.b) {
            sets.join(edge.a, edge.b, normals[edge.a].dot(normals[edge.b]) < 0.0f);
        }
    }

    // The highest point of each set decides for it
    std::vector<std::uint64_t> highest(n, n);
    for (std::uint64_t i = 0; i < n; ++i) {
        std::uint64_t& top = highest[sets.find(i).root];
        if (top == n || positions[i].z() > positions[top].z()) {
            top = i;
        }
    }
    std::vector<std::uint8_t> turn(n);
    for (std::uint64_t i = 0; i < n; ++i) {
        const OrientedSets::Place place = sets.find(i);
        const std::uint64_t top = highest[place.root];
        const bool downward = normals[top].z() < 0.0f;
        turn[i] = (place.turned != sets.find(top).turned) != downward ? 1 : 0;
    }
    for (std::uint64_t i = 0; i < n; ++i) {
        if (turn[i] != 0) {
            normals[i] = -normals[i];
        }
    }
}

void NormalOrientation::alongSpanningTree(PointCloud& cloud, std::size_t k) {
    alongSpanningTree(cloud.positions(), k, cloud.normals());
}

}  // namespace ombrix::core
