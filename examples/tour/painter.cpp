#include "painter.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace examples {

using ombrix::core::ColorRGB;
using ombrix::core::Octree;
using ombrix::core::PointCloud;

namespace {

ColorMode modeFor(ColorMode wanted, const Scene& scene) {
    if (wanted == ColorMode::rgb && !scene.hasColors)
        throw std::runtime_error("the points have no colours: choose another --color");
    if (wanted == ColorMode::intensity && !scene.hasIntensity)
        throw std::runtime_error("the points have no intensities: choose another --color");
    if (wanted != ColorMode::automatic)
        return wanted;
    return scene.hasColors ? ColorMode::rgb : scene.hasIntensity ? ColorMode::intensity : ColorMode::height;
}

}  // namespace

Painter::Painter(ColorMode mode, const Scene& scene, const Octree& tree) : mode_(modeFor(mode, scene)) {
    (void)tree;
}

void Painter::paint(const PointCloud& cloud, std::vector<ColorRGB>& colors) const {
    if (mode_ == ColorMode::rgb) {
        colors = cloud.colors();
        return;
    }
    colors.assign(cloud.size(), ColorRGB(200, 200, 200));
}

}  // namespace examples
