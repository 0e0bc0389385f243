#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <ombrix/core/analysis/kd_index_detail.h>
#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/points/point_cloud.h>

namespace ombrix::core {
namespace {

struct ByIndex {
    std::size_t operator()(std::size_t index) const noexcept { return index; }
};

/// Ascending by distance, then by index. Ties are rare: ordering them afterwards keeps the comparison short.
void sortByDistance(std::vector<std::pair<std::size_t, float>>& found) {
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
    for (auto first = found.begin(); first != found.end();) {
        auto last = first + 1;
        while (last != found.end() && last->second == first->second) {
            ++last;
        }
        if (last - first > 1) {
            std::sort(first, last);
        }
        first = last;
    }
}

}  // namespace

struct KDTree::Impl {
    explicit Impl(const std::vector<Vector3f>& points) : index(points) {}
    detail::KdIndex index;
};

KDTree::KDTree(const std::vector<Vector3f>& points)
    : points_(&points), impl_(std::make_unique<Impl>(points)) {}

KDTree::KDTree(const PointCloud& cloud) : KDTree(cloud.positions()) {}

KDTree::KDTree(const KDTree& other)
    : points_(other.points_), impl_(other.impl_ ? std::make_unique<Impl>(*points_) : nullptr) {}

KDTree::KDTree(KDTree&& other) noexcept = default;

KDTree& KDTree::operator=(const KDTree& other) {
    if (this != &other) {
        *this = KDTree(other);
    }
    return *this;
}

KDTree& KDTree::operator=(KDTree&& other) noexcept = default;

KDTree::~KDTree() = default;

void KDTree::update() {
    if (!impl_) {
        impl_ = std::make_unique<Impl>(*points_);
        return;
    }
    try {
        impl_->index.build();
    } catch (...) {
        impl_.reset();  // half an index must not be asked
        throw;
    }
}

const KDTree::Impl& KDTree::index() const {
    if (!impl_) {
        throw std::runtime_error("[nanoflann] findNeighbors() called before building the index.");
    }
    return *impl_;
}

std::size_t KDTree::knnSearch(const Vector3f& q, std::size_t k, std::vector<std::size_t>& indices,
                              std::vector<float>& sqDists) const {
    indices.resize(k);
    sqDists.resize(k);
    return index().index.knn(q, k, indices.data(), sqDists.data(), ByIndex{});
}

std::vector<std::pair<std::size_t, float>> KDTree::radiusSearch(const Vector3f& q, float radius) const {
    std::vector<std::pair<std::size_t, float>> out;
    radiusSearch(q, radius, out, true);
    return out;
}

void KDTree::radiusSearch(const Vector3f& q, float radius, std::vector<std::pair<std::size_t, float>>& out,
                          bool sorted) const {
    out.clear();
    const auto append = [&out](std::size_t i, float sqDist) { out.emplace_back(i, sqDist); };
    detail::RadiusResult result(radius * radius, append);
    index().index.search(q, result);
    if (sorted) {
        sortByDistance(out);
    }
}

std::size_t KDTree::radiusCount(const Vector3f& q, float radius) const {
    detail::RadiusCount result(radius * radius);
    index().index.search(q, result);
    return result.size();
}

float KDTree::kdtree_get_pt(std::size_t i, std::size_t dim) const {
    const float coordinate = (*points_)[i][dim == 0 ? 0 : dim == 1 ? 1 : 2];
    return std::isfinite(coordinate) ? coordinate : 0.0f;
}

float KDTree::kdtree_distance(const float* p, std::size_t i, std::size_t) const {
    const Vector3f& point = (*points_)[i];
    const float dx = p[0] - point.x();
    const float dy = p[1] - point.y();
    const float dz = p[2] - point.z();
    return dx * dx + dy * dy + dz * dz;
}

}  // namespace ombrix::core
