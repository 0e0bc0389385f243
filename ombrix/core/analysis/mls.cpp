#include <algorithm>
#include <cmath>

#include <ombrix/core/analysis/covariance_detail.h>
#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/analysis/mls.h>
#include <ombrix/core/analysis/pca.h>

namespace ombrix::core {
namespace {

template <class Position>
Vector3f average(const std::vector<float>& w, const Position& position) {
    const auto weight = [&w](std::size_t j) { return static_cast<double>(w[j]); };
    return detail::weightedMean(w.size(), position, weight).template cast<float>();
}

}  // namespace

QuasiMLS::QuasiMLS(const std::vector<Vector3f>& pts, const KDTree& tree) : points_(&pts), tree_(&tree) {}

Vector3f QuasiMLS::projection(const Vector3f& p, unsigned int k) const {
    const std::size_t wanted = std::min<std::size_t>(k, points_->size());
    std::vector<std::size_t> indices;
    std::vector<float> w;
    const std::size_t found = tree_->knnSearch(p, wanted, indices, w);
    if (found == 0 || !(w[found - 1] > 0.0f)) {
        return p;
    }
    const float s = 1.0f / (w[found - 1] / 9.0f);
    std::vector<Vector3f> neighbours(found);
    std::transform(indices.begin(), indices.begin() + static_cast<std::ptrdiff_t>(found), neighbours.begin(),
                   [this](std::size_t i) { return (*points_)[i]; });
    w.resize(found);

    Vector3f x = p;
    for (std::uint64_t iteration = 0; iteration <= maxIter_; ++iteration) {
        std::transform(neighbours.begin(), neighbours.end(), w.begin(),
                       [&](const Vector3f& q) { return std::exp(-(x - q).squaredNorm() * s); });
        const Vector3f a = weighted_average(neighbours, w);
        const Vector3f n = local_normal(a, neighbours, w);
        const float t = (x - a).dot(n);
        x -= t * n;
        if (std::abs(t) <= epsilon_) {
            break;
        }
    }
    return x;
}

float QuasiMLS::wendland_weight(float d) {
    if (!(d <= 1.0f)) {
        return 0.0f;
    }
    const float square = (1.0f - d) * (1.0f - d);
    return square * square * (4.0f * d + 1.0f);
}

float QuasiMLS::trunc_gaussian_weight(float d, float h) {
    return d <= 1.0f ? std::exp(-(d * d) / (h * h)) : 0.0f;
}

Vector3f QuasiMLS::getWeightedAverage(const std::vector<std::size_t>& indices,
                                      const std::vector<float>& w) const {
    return weighted_average(indices, w);
}

Vector3f QuasiMLS::getLocalNormal(const Vector3f& centre, const std::vector<std::size_t>& indices,
                                  const std::vector<float>& w) const {
    return local_normal(centre, indices, w);
}

Vector3f QuasiMLS::weighted_average(const std::vector<Vector3f>& pts, const std::vector<float>& w) const {
    return average(w, [&](std::size_t j) -> const Vector3f& { return pts[j]; });
}

Vector3f QuasiMLS::weighted_average(const std::vector<std::size_t>& indices,
                                    const std::vector<float>& w) const {
    return average(w, [&](std::size_t j) -> const Vector3f& { return (*points_)[indices[j]]; });
}

Vector3f QuasiMLS::local_normal(const Vector3f& centre, const std::vector<Vector3f>& pts,
                                const std::vector<float>& w) const {
    PCA pca;
    pca.compute(centre, pts, w);
    pca.sort();
    return pca.eigenVector(0);
}

Vector3f QuasiMLS::local_normal(const Vector3f& centre, const std::vector<std::size_t>& indices,
                                const std::vector<float>& w) const {
    PCA pca;
    pca.compute(centre, *points_, indices, w);
    pca.sort();
    return pca.eigenVector(0);
}

}  // namespace ombrix::core
