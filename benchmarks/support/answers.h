#pragma once

#include <cmath>
#include <cstddef>
#include <numeric>
#include <vector>

#include <ombrix/core/types.h>

#include "benchmarks/support/measure.h"

/// Reductions that are the same for every library of a row.
namespace ombrix::benchmarks {

/// Evenly spread indices below n, at most 10,000.
inline std::vector<std::size_t> sampledIndices(std::size_t n) {
    const std::size_t count = std::min<std::size_t>(n, 10'000);
    std::vector<std::size_t> indices(count);
    for (std::size_t s = 0; s < count; ++s) {
        indices[s] = s * n / count;
    }
    return indices;
}

/// n nᵀ of the sampled normals, normalAt(i): what is left of a normal when its sign does not count.
template <class NormalAt>
Answer normalAnswer(std::size_t n, const NormalAt& normalAt) {
    Answer answer;
    for (const std::size_t i : sampledIndices(n)) {
        const core::Vector3d normal = normalAt(i);
        for (int a = 0; a < 3; ++a) {
            for (int b = a; b < 3; ++b) {
                answer.push_back(normal[a] * normal[b]);
            }
        }
    }
    return answer;
}

/// The number of points and the means of their coordinates, pointAt(i).
template <class PointAt>
Answer meanPointAnswer(std::size_t n, const PointAt& pointAt) {
    core::Vector3d sum = core::Vector3d::Zero();
    for (std::size_t i = 0; i < n; ++i) {
        sum += pointAt(i);
    }
    const core::Vector3d mean = sum / static_cast<double>(n);
    return {static_cast<double>(n), mean.x(), mean.y(), mean.z()};
}

/// The mean of per-point results.
template <class Value>
Answer meanAnswer(const std::vector<Value>& values) {
    return {std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size())};
}

/// The sampled entries of per-point counts.
template <class Count>
Answer sampledAnswer(const std::vector<Count>& counts) {
    Answer answer;
    for (const std::size_t i : sampledIndices(counts.size())) {
        answer.push_back(static_cast<double>(counts[i]));
    }
    return answer;
}

}  // namespace ombrix::benchmarks
