#pragma once

#include <utility>
#include <vector>

#include <ombrix/core/core_export.h>
#include <ombrix/core/types.h>

namespace ombrix::core {

/// The typical spacing of a set of points.
///
/// Both statistics are (mean, population variance), in units of position and squared units, summed in double
/// in the order of the points: the same on any number of threads. Points without any other point to measure
/// to (a position that is not finite) do not count. (0, 0) when no point counts.
class OMBRIX_CORE_API ResolutionEstimator {
public:
    /// Over the distances from each point to its nearest other; a duplicate is at distance 0.
    [[nodiscard]] static std::pair<float, float> mean_dist(const std::vector<Vector3f>& pts);

    /// Over each point's mean distance to its k nearest others. k is cut to one less than the number of
    /// points; k = 0 gives (0, 0), k = 1 the same as `mean_dist`.
    [[nodiscard]] static std::pair<float, float> statistical_mean_dist(const std::vector<Vector3f>& pts,
                                                                       unsigned int k);
};

}  // namespace ombrix::core
