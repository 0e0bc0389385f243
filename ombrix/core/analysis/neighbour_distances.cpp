#include <algorithm>
#include <cmath>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <ombrix/core/analysis/neighbour_distances_detail.h>
#include <ombrix/core/analysis/spatial_order_detail.h>

namespace ombrix::core::detail {
namespace {

constexpr float NONE = -1.0f;

float nearestOther(const SpatialCopy& copy, std::size_t i) {
    NearestOtherResult nearest(i);
    copy.index().search(copy.points()[i], nearest);
    return nearest.empty() ? NONE : std::sqrt(nearest.sqDist());
}

/// Takes the mean over the k nearest of k + 1 results, among which the point itself may be missing behind
/// its duplicates.
float meanOfOthers(const SpatialCopy& copy, std::size_t i, std::vector<std::size_t>& indices,
                   std::vector<float>& sqDists) {
    const std::size_t found = copy.knn(i, indices.size(), indices.data(), sqDists.data());
    if (found < 2) {
        return NONE;
    }
    // The point is at distance 0: leaving out the first result leaves the distances of the others.
    double sum = 0.0;
    for (std::size_t j = 1; j < found; ++j) {
        sum += static_cast<double>(std::sqrt(sqDists[j]));
    }
    return static_cast<float>(sum / static_cast<double>(found - 1));
}

}  // namespace

std::vector<float> meanNeighbourDistances(const std::vector<Vector3f>& points, std::size_t k) {
    std::vector<float> means(points.size(), NONE);
    if (k == 0 || points.size() < 2) {
        return means;
    }
    const std::size_t wanted = std::min(k, points.size() - 1) + 1;
    const SpatialCopy copy(points);
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, copy.size(), SPATIAL_GRAIN),
                      [&](const tbb::blocked_range<std::size_t>& range) {
                          std::vector<std::size_t> indices(wanted);
                          std::vector<float> sqDists(wanted);
                          for (std::size_t i = range.begin(); i != range.end(); ++i) {
                              means[copy.original(i)] = wanted == 2 ? nearestOther(copy, i)
                                                                    : meanOfOthers(copy, i, indices, sqDists);
                          }
                      });
    return means;
}

std::pair<double, double> meanAndVariance(const std::vector<float>& values) {
    double sum = 0.0;
    double squares = 0.0;
    std::size_t count = 0;
    for (const float value : values) {
        if (value >= 0.0f) {
            const double d = static_cast<double>(value);
            sum += d;
            squares += d * d;
            ++count;
        }
    }
    if (count == 0) {
        return {0.0, 0.0};
    }
    const double n = static_cast<double>(count);
    const double mean = sum / n;
    return {mean, std::max(squares / n - mean * mean, 0.0)};
}

}  // namespace ombrix::core::detail
