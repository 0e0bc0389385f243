#include <random>

#include <ombrix/core/analysis/noise.h>
#include <ombrix/core/points/point_cloud.h>

namespace ombrix::core {

void Noise::addGaussianNoise(PointCloud& cloud, float sigma) {
    addGaussianNoise(cloud, sigma, std::random_device{}());
}

// Generator: Matsumoto, Nishimura, "Mersenne Twister", ACM TOMACS 8, 1998, as std::mt19937 has it.
void Noise::addGaussianNoise(PointCloud& cloud, float sigma, std::uint32_t seed) {
    if (!(sigma > 0.0f)) {
        return;
    }
    std::mt19937 generator(seed);
    std::normal_distribution<float> normal(0.0f, sigma);
    for (Vector3f& p : cloud.positions()) {
        p.x() += normal(generator);
        p.y() += normal(generator);
        p.z() += normal(generator);
    }
}

}  // namespace ombrix::core
