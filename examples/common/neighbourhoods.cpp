#include <examples/common/neighbourhoods.h>

#include <cmath>
#include <cstddef>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <ombrix/core/analysis/curvature_density.h>
#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/analysis/normal_estimator.h>
#include <ombrix/core/analysis/normal_orientation.h>
#include <ombrix/core/analysis/pca.h>
#include <ombrix/core/analysis/resolution.h>

namespace examples {

using ombrix::core::KDTree;
using ombrix::core::PCA;
using ombrix::core::PointCloud;

namespace {

constexpr std::size_t NEIGHBOURS = 16;

}  // namespace

void computeNormals(PointCloud& cloud, const ombrix::core::Aabb& box) {
    ombrix::core::NormalEstimator::compute(cloud, NEIGHBOURS);
    const ombrix::core::Vector3d size = box.max - box.min;
    const ombrix::core::Vector3d sky =
        0.5 * (box.min + box.max) + ombrix::core::Vector3d(0, 0, 10 * size.norm());
    ombrix::core::NormalOrientation::towardsViewpoint(cloud, sky.cast<float>());
}

std::vector<float> curvatures(const PointCloud& cloud) {
    const KDTree tree(cloud);
    std::vector<float> values(cloud.size());
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, values.size(), 1024), [&](const auto& range) {
        PCA pca;
        std::vector<std::size_t> indices;
        std::vector<float> sqDists;
        for (std::size_t i = range.begin(); i != range.end(); ++i) {
            indices.resize(NEIGHBOURS);
            indices.resize(tree.knnSearch(cloud.positions()[i], NEIGHBOURS, indices, sqDists));
            pca.compute(cloud.positions(), indices);
            const float curvature = pca.curvature();
            // Coincident points have none.
            values[i] = indices.empty() || std::isnan(curvature) ? 0.0f : curvature;
        }
    });
    return values;
}

std::vector<float> densities(const PointCloud& cloud) {
    const auto [spacing, variance] =
        ombrix::core::ResolutionEstimator::statistical_mean_dist(cloud.positions(), 8);
    if (!(spacing > 0.0f))
        return std::vector<float>(cloud.size());
    const KDTree tree(cloud);
    ombrix::core::Density density;
    density.surfaceDensity_omp(cloud.positions(), tree, 2.0f * spacing);
    return std::move(density.values());
}

std::vector<float> brightness(const PointCloud& cloud) {
    std::vector<float> values;
    values.reserve(cloud.size());
    for (const auto& color : cloud.colors())
        values.push_back(0.2126f * static_cast<float>(color.r) + 0.7152f * static_cast<float>(color.g) +
                         0.0722f * static_cast<float>(color.b));
    return values;
}

}  // namespace examples
