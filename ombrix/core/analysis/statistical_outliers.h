#pragma once

#include <cstdint>
#include <vector>

#include <ombrix/core/core_export.h>
#include <ombrix/core/types.h>

namespace ombrix::core {

/// Points that stand alone: whose mean distance to their nearest neighbours is unusual for the set.
///
/// A point is an outlier when that mean distance exceeds mean + factor * standard deviation of all points'
/// mean distances (the two statistics of `ResolutionEstimator::statistical_mean_dist`), or when it has no
/// neighbour at all (a position that is not finite).
///
/// Source: Rusu, Marton, Blodow, Dolha, Beetz, "Towards 3D Point Cloud Based Object Maps for Household
/// Environments", Robotics and Autonomous Systems 56, 2008.
class OMBRIX_CORE_API StatisticalOutliers {
public:
    /// Indices of the outliers, ascending; computed on several threads. None with fewer than two points or
    /// for k = 0.
    ///
    /// @param k       neighbours per point, itself not counted; cut to one less than the number of points.
    /// @param factor  no unit; usual are 1 to 3, less finds more.
    [[nodiscard]] static std::vector<std::uint64_t> find(const std::vector<Vector3f>& pts, unsigned int k,
                                                         float factor);
};

}  // namespace ombrix::core
