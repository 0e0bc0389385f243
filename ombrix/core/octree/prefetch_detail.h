#pragma once

#include <cstddef>
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

/// Fetches the cloud object, and the counter of its owners before it.
inline void prefetchCloud(const PointCloud* cloud) {
    constexpr std::ptrdiff_t CACHE_LINE = 64;
    const auto first = reinterpret_cast<std::uintptr_t>(cloud);
    __builtin_prefetch(reinterpret_cast<const void*>(first - CACHE_LINE / 2));
    __builtin_prefetch(reinterpret_cast<const void*>(first + CACHE_LINE));
}

/// Fetches both ends of a cloud's arrays, which allocators read when they free them. Null is left out.
inline void prefetchArrays(const PointCloud* cloud) {
    const auto fetch = [](const auto& values) {
        constexpr std::uintptr_t HEADER = 16;
        const auto first = reinterpret_cast<std::uintptr_t>(values.data());
        __builtin_prefetch(reinterpret_cast<const void*>(first - HEADER));
        __builtin_prefetch(reinterpret_cast<const void*>(first + values.capacity() * sizeof values[0]));
    };
    if (cloud != nullptr) {
        fetch(cloud->positions());
        fetch(cloud->colors());
        fetch(cloud->scalars());
    }
}

}  // namespace ombrix::core::detail
