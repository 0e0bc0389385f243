#pragma once

#include <cstdint>
#include <vector>

#include <ombrix/core/points/point_cloud.h>

namespace ombrix::core::detail {

/// Has the memory of a point's attributes fetched while other work goes on; arrays too short are left out.
inline void prefetchPoint(const PointCloud& cloud, std::uint64_t index) {
    const auto fetch = [&](const auto& values) {
        if (index < values.size()) {
            __builtin_prefetch(&values[index]);
        }
    };
    fetch(cloud.positions());
    fetch(cloud.colors());
    fetch(cloud.scalars());
}

}  // namespace ombrix::core::detail
