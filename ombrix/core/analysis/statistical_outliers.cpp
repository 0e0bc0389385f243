#include <cmath>

#include <ombrix/core/analysis/neighbour_distances_detail.h>
#include <ombrix/core/analysis/statistical_outliers.h>

namespace ombrix::core {

std::vector<std::uint64_t> StatisticalOutliers::find(const std::vector<Vector3f>& pts, unsigned int k,
                                                     float factor) {
    std::vector<std::uint64_t> outliers;
    if (k == 0 || pts.size() < 2) {
        return outliers;
    }
    const std::vector<float> means = detail::meanNeighbourDistances(pts, k);
    const auto [mean, variance] = detail::meanAndVariance(means);
    const double limit = mean + static_cast<double>(factor) * std::sqrt(variance);
    for (std::size_t i = 0; i < means.size(); ++i) {
        const bool alone = means[i] < 0.0f;
        if (alone || static_cast<double>(means[i]) > limit) {
            outliers.push_back(i);
        }
    }
    return outliers;
}

}  // namespace ombrix::core
