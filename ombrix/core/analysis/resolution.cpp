#include <ombrix/core/analysis/neighbour_distances_detail.h>
#include <ombrix/core/analysis/resolution.h>

namespace ombrix::core {

std::pair<float, float> ResolutionEstimator::mean_dist(const std::vector<Vector3f>& pts) {
    return statistical_mean_dist(pts, 1);
}

std::pair<float, float> ResolutionEstimator::statistical_mean_dist(const std::vector<Vector3f>& pts,
                                                                   unsigned int k) {
    const auto [mean, variance] = detail::meanAndVariance(detail::meanNeighbourDistances(pts, k));
    return {static_cast<float>(mean), static_cast<float>(variance)};
}

}  // namespace ombrix::core
