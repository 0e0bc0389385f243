#include "attributes.h"

#include <chrono>

#include <examples/common/console.h>
#include <examples/common/neighbourhoods.h>
#include <ombrix/core/points/fields.h>

namespace examples {

using ombrix::core::PointCloud;

const std::string& CURVATURE_FIELD = ombrix::core::FIELD_AMBIENT;
const std::string& DENSITY_FIELD = ombrix::core::FIELD_DISTANCE;

void addAttribute(Scene& scene, ColorMode mode) {
    const auto start = std::chrono::steady_clock::now();
    bool computed = false;
    for (PointCloud& cloud : scene.clouds) {
        if (mode == ColorMode::normal && !cloud.hasNormals()) {
            computeNormals(cloud, scene.box);
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
