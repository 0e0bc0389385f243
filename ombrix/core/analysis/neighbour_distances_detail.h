#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include <ombrix/core/types.h>

namespace ombrix::core::detail {

/// Per point the mean distance to its k nearest others, on several threads; -1 where there is none.
/// k is cut to one less than the number of points; for k = 0 all are -1.
[[nodiscard]] std::vector<float> meanNeighbourDistances(const std::vector<Vector3f>& points, std::size_t k);

/// Mean and population variance of the values that are not negative, in double; (0, 0) without any.
[[nodiscard]] std::pair<double, double> meanAndVariance(const std::vector<float>& values);

}  // namespace ombrix::core::detail
