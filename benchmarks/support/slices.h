#pragma once

#include <cstdint>
#include <vector>

#include <ombrix/core/points/point_cloud.h>

namespace ombrix::benchmarks {

/// The cloud as ten clouds of consecutive points, as an import hands them over.
inline std::vector<core::PointCloud> tenSlices(const core::PointCloud& cloud) {
    constexpr std::uint64_t SLICES = 10;
    std::vector<core::PointCloud> slices(SLICES);
    for (std::uint64_t s = 0; s < SLICES; ++s) {
        slices[s].push_back(cloud, s * cloud.size() / SLICES, (s + 1) * cloud.size() / SLICES - 1, false);
    }
    return slices;
}

}  // namespace ombrix::benchmarks
