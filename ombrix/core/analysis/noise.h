#pragma once

#include <cstdint>

#include <ombrix/core/core_export.h>
#include <ombrix/core/points/point_cloud.h>

namespace ombrix::core {

/// Random disturbance of clouds.
class OMBRIX_CORE_API Noise {
public:
    /// Adds to x, y and z of every position, in order, independent samples of the normal distribution with
    /// mean 0 and standard deviation `sigma`, in units of position. Nothing happens unless sigma > 0.
    /// On purpose the result differs from call to call: the generator is seeded by the system.
    static void addGaussianNoise(PointCloud& cloud, float sigma);
    /// The same from a seed of the caller's: equal seeds give equal noise, with one standard library.
    static void addGaussianNoise(PointCloud& cloud, float sigma, std::uint32_t seed);
};

}  // namespace ombrix::core
