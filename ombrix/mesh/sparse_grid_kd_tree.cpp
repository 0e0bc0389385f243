#include <algorithm>
#include <cmath>
#include <limits>

#include <nanoflann.hpp>

#include <ombrix/mesh/sorted_keys_detail.h>
#include <ombrix/mesh/sparse_grid.h>

namespace ombrix::mesh {

namespace {

#if NANOFLANN_VERSION >= 0x150
using SearchParameters = nanoflann::SearchParameters;
#else
using SearchParameters = nanoflann::SearchParams;
#endif

/// Squared Euclidean distance; that to a centre is left to the data set, which knows the real coordinates.
struct CenterMetric {
    using ElementType = float;
    using DistanceType = float;

    explicit CenterMetric(const SparseGridKDTree& tree) : centers(tree) {}

    template <class Index>
    float evalMetric(const float* p, Index center, std::size_t size) const {
        return centers.kdtree_distance(p, center, size);
    }
    template <class Size>
    float accum_dist(float a, float b, Size) const {
        return (a - b) * (a - b);
    }

    const SparseGridKDTree& centers;
};

/// Types that nanoflann asks a result set for.
struct ResultSet {
    using DistanceType = float;
    using IndexType = std::uint64_t;
    using CountType = std::size_t;
};

/// The nearest centre.
struct Nearest : ResultSet {
    float sqDist = std::numeric_limits<float>::max();

    [[nodiscard]] bool full() const { return true; }
    [[nodiscard]] float worstDist() const { return sqDist; }
    template <class Index>
    bool addPoint(float dist, Index) {
        sqDist = std::min(sqDist, dist);
        return true;
    }
    void sort() {}
};

/// All centres nearer than a radius, as (squared distance, number).
struct Within : ResultSet {
    float sqRadius = 0;
    std::vector<std::pair<float, std::uint64_t>> hits;

    [[nodiscard]] bool full() const { return true; }
    [[nodiscard]] float worstDist() const { return sqRadius; }
    template <class Index>
    bool addPoint(float dist, Index center) {
        if (dist < sqRadius) {
            hits.emplace_back(dist, center);
        }
        return true;
    }
    void sort() { std::sort(hits.begin(), hits.end()); }
};

}  // namespace

struct SparseGridKDTree::Index {
    explicit Index(const SparseGridKDTree& tree) : adaptor(3, tree) {}

    nanoflann::KDTreeSingleIndexAdaptor<CenterMetric, SparseGridKDTree, 3, std::uint64_t> adaptor;
};

SparseGridKDTree::SparseGridKDTree(SparseGrid& grid)
    : grid_(grid), radius_(std::sqrt(3.0f) * grid.voxel * 0.25f) {
    const std::vector<std::uint64_t> keys = detail::sortedKeys(grid);
    centers_.reserve(keys.size());
    for (const std::uint64_t key : keys) {
        centers_.push_back(grid.node_center(key));
    }
    index_ = std::make_unique<Index>(*this);
}

SparseGridKDTree::~SparseGridKDTree() = default;

void SparseGridKDTree::closest_nodes_dist_sq(const Vector3f& p,
                                             std::vector<std::pair<std::uint64_t, float>>& result) const {
    result.clear();
    Nearest nearest;
    index_->adaptor.findNeighbors(nearest, p.data(), SearchParameters());
    const float r = std::sqrt(nearest.sqDist) + 2 * radius_;
    // Far away the sum of both radii can be rounded to the first: the nearest centre still belongs to it.
    const float next = std::nextafter(nearest.sqDist, std::numeric_limits<float>::max());
    Within within;
    within.sqRadius = std::max(r * r, next);
    index_->adaptor.findNeighbors(within, p.data(), SearchParameters());
    within.sort();
    for (const auto& [sqDist, center] : within.hits) {
        result.emplace_back(grid_.key(centers_[center]), sqDist);
    }
}

void SparseGridKDTree::closest_nodes_dist(const Vector3f& p,
                                          std::vector<std::pair<std::uint64_t, float>>& result) const {
    closest_nodes_dist_sq(p, result);
    for (auto& hit : result) {
        hit.second = std::sqrt(hit.second);
    }
}

float SparseGridKDTree::kdtree_get_pt(std::uint64_t i, std::uint64_t dim) const {
    const float coordinate = centers_[i][static_cast<Eigen::Index>(dim)];
    return std::isfinite(coordinate) ? coordinate : 0;
}

float SparseGridKDTree::kdtree_distance(const float* p, std::uint64_t i, std::uint64_t size) const {
    float sum = 0;
    for (std::uint64_t dim = 0; dim < size; ++dim) {
        const float d = p[dim] - centers_[i][static_cast<Eigen::Index>(dim)];
        sum += d * d;
    }
    return sum;
}

}  // namespace ombrix::mesh
