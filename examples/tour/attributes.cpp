#include "attributes.h"

#include <chrono>
#include <cmath>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <ombrix/core/analysis/curvature_density.h>
#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/analysis/normal_estimator.h>
#include <ombrix/core/analysis/normal_orientation.h>
#include <ombrix/core/analysis/pca.h>
#include <ombrix/core/analysis/resolution.h>
#include <ombrix/core/points/fields.h>

#include "console.h"

namespace examples {

using ombrix::core::KDTree;
using ombrix::core::PCA;
using ombrix::core::PointCloud;
using ombrix::core::Vector3f;

const std::string& CURVATURE_FIELD = ombrix::core::FIELD_AMBIENT;
const std::string& DENSITY_FIELD = ombrix::core::FIELD_DISTANCE;

namespace {

constexpr std::size_t NEIGHBOURS = 16;

void addNormals(PointCloud& cloud, const ombrix::core::Aabb& box) {
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

/// Rec. 709 luma of the colours, 0 to 255.
std::vector<float> brightness(const PointCloud& cloud) {
    std::vector<float> values;
    values.reserve(cloud.size());
    for (const auto& color : cloud.colors())
        values.push_back(0.2126f * static_cast<float>(color.r) + 0.7152f * static_cast<float>(color.g) +
                         0.0722f * static_cast<float>(color.b));
    return values;
}

}  // namespace

void addAttribute(Scene& scene, ColorMode mode) {
    const auto start = std::chrono::steady_clock::now();
    bool computed = false;
    for (PointCloud& cloud : scene.clouds) {
        if (mode == ColorMode::normal && !cloud.hasNormals()) {
            addNormals(cloud, scene.box);
            computed = true;
        }
        if (mode == ColorMode::curvature && !cloud.fields().contains(CURVATURE_FIELD)) {
            cloud.fields().addField<float>(CURVATURE_FIELD).first->data() = curvatures(cloud);
            computed = true;
        }
        if (mode == ColorMode::density && !cloud.fields().contains(DENSITY_FIELD)) {
            cloud.fields().addField<float>(DENSITY_FIELD).first->data() = densities(cloud);
            computed = true;
        }
        if (mode == ColorMode::intensity && !scene.hasIntensity && scene.hasColors)
            cloud.scalars() = brightness(cloud);
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    if (computed)
        printRate(name(mode), scene.size(), seconds.count());
}

}  // namespace examples
