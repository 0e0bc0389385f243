#include "painter.h"

#include <algorithm>
#include <utility>

#include <examples/common/color_scale.h>

#include "attributes.h"

namespace examples {

using ombrix::core::ColorRGB;
using ombrix::core::DEFAULT_COLORMAP;
using ombrix::core::Octree;
using ombrix::core::PointCloud;
using ombrix::core::Vector3f;

namespace {

constexpr std::size_t SAMPLES = 100'000;

DEFAULT_COLORMAP mapFor(ColorMode mode) {
    switch (mode) {
        case ColorMode::intensity:
            return ombrix::core::GRAY;
        case ColorMode::curvature:
            return ombrix::core::PLASMA;
        default:
            return ombrix::core::VIRIDIS;
    }
}

std::string titleFor(ColorMode mode, const Scene& scene) {
    switch (mode) {
        case ColorMode::intensity:
            return scene.hasIntensity ? "intensity" : "intensity (brightness of the colours)";
        case ColorMode::normal:
            return "normal (x y z as red green blue)";
        case ColorMode::curvature:
            return "curvature (surface variation)";
        case ColorMode::density:
            return "density (points per squared unit)";
        default:
            return name(mode);
    }
}

const std::vector<float>& fieldOf(const PointCloud& cloud, const std::string& field) {
    return cloud.fields().get<float>(field)->data();
}

/// What a mode with a scale shows of each point of a cloud.
void valuesOf(ColorMode mode, const PointCloud& cloud, std::vector<float>& values) {
    if (mode == ColorMode::intensity) {
        values = cloud.scalars();
    } else if (mode == ColorMode::curvature) {
        values = fieldOf(cloud, CURVATURE_FIELD);
    } else if (mode == ColorMode::density) {
        values = fieldOf(cloud, DENSITY_FIELD);
    } else {
        values.resize(cloud.size());
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = cloud.positions()[i].z();
    }
}

/// The range of a mode's values over a sample of the tree, without the tails.
std::pair<float, float> rangeOf(ColorMode mode, const Octree& tree) {
    std::vector<std::uint64_t> keys = tree.keys();
    std::sort(keys.begin(), keys.end());
    const std::size_t stride = std::max<std::size_t>(1, tree.size() / SAMPLES);
    std::vector<float> sample;
    std::vector<float> values;
    std::size_t skip = 0;
    for (const std::uint64_t key : keys) {
        const auto& cloud = tree.node(key).pc;
        if (!cloud || cloud->size() == 0)
            continue;
        valuesOf(mode, *cloud, values);
        for (; skip < values.size(); skip += stride)
            sample.push_back(values[skip]);
        skip -= values.size();
    }
    return rangeWithoutTails(std::move(sample));
}

/// Components of -1 to 1 as channels.
ColorRGB normalColor(const Vector3f& normal) {
    const auto channel = [](float component) {
        return static_cast<unsigned char>(std::clamp(127.5f * (component + 1.0f), 0.0f, 255.0f));
    };
    return {channel(normal.x()), channel(normal.y()), channel(normal.z())};
}

}  // namespace

ColorMode bestMode(const Scene& scene) {
    return scene.hasColors ? ColorMode::rgb : scene.hasIntensity ? ColorMode::intensity : ColorMode::height;
}

bool canShow(ColorMode mode, const Scene& scene) {
    if (mode == ColorMode::intensity)
        return scene.hasIntensity || scene.hasColors;
    return mode != ColorMode::rgb || scene.hasColors;
}

Painter::Painter(ColorMode mode, std::optional<DEFAULT_COLORMAP> map, const Scene& scene, const Octree& tree)
    : mode_(mode), title_(titleFor(mode, scene)) {
    if (mode_ == ColorMode::rgb || mode_ == ColorMode::normal)
        return;
    const auto [low, high] = rangeOf(mode_, tree);
    map_.set_colors(map.value_or(mapFor(mode_)));
    map_.set_boundaries(low, high);

    // Heights are relative to the tree, whose origin is relative to the scene.
    const double base =
        mode_ == ColorMode::height ? static_cast<double>(tree.origin().z()) + scene.shift.z() : 0.0;
    Legend legend{title_, base + static_cast<double>(low), base + static_cast<double>(high), {}};
    for (unsigned step = 0; step < ombrix::core::ColorMap::MAX_STEPS; ++step) {
        ombrix::core::ColorRGB_F color = map_.color(step);
        legend.colors.push_back(color.RGBFloatTo24());
    }
    legend_ = std::move(legend);
}

void Painter::paint(const PointCloud& cloud, std::vector<ColorRGB>& colors) const {
    if (mode_ == ColorMode::rgb) {
        colors = cloud.colors();
        return;
    }
    if (mode_ == ColorMode::normal) {
        const auto& normals = cloud.normals();
        colors.resize(normals.size());
        std::transform(normals.begin(), normals.end(), colors.begin(), normalColor);
        return;
    }
    std::vector<float> values;
    valuesOf(mode_, cloud, values);
    colors.resize(values.size());
    std::transform(values.begin(), values.end(), colors.begin(), [this](float value) {
        ombrix::core::ColorRGB_F color = map_.color_absolute(value);
        return color.RGBFloatTo24();
    });
}

}  // namespace examples
