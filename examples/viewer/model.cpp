#include "model.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include <examples/common/color_scale.h>
#include <examples/common/neighbourhoods.h>
#include <examples/common/scene.h>
#include <examples/common/tree_building.h>
#include <ombrix/core/octree/nested_octree_factory.h>

namespace examples::viewer {

using ombrix::core::Octree;
using ombrix::core::PointCloud;
using ombrix::core::Vector3d;
using ombrix::core::Vector3f;

namespace {

constexpr std::uint64_t SAMPLES = 100'000;

void dropPointsWithoutPlace(Scene& scene) {
    std::uint64_t dropped = 0;
    for (PointCloud& cloud : scene.clouds) {
        std::vector<std::uint64_t> placed;
        for (std::uint64_t i = 0; i < cloud.size(); ++i)
            if (cloud.positions()[i].allFinite())
                placed.push_back(i);
        if (placed.size() == cloud.size())
            continue;
        dropped += cloud.size() - placed.size();
        PointCloud kept;
        kept.copyFrom(cloud, placed, false);
        cloud = std::move(kept);
    }
    if (dropped != 0)
        std::printf("left out %llu points whose coordinates are not finite\n",
                    static_cast<unsigned long long>(dropped));
}

/// A sample of what `value` tells of the points, evenly over the file.
template <class Value>
Range sampleRange(const Scene& scene, const Value& value) {
    const std::uint64_t stride = std::max<std::uint64_t>(1, scene.size() / SAMPLES);
    std::vector<float> sample;
    std::uint64_t next = 0;
    for (const PointCloud& cloud : scene.clouds) {
        for (; next < cloud.size(); next += stride)
            sample.push_back(value(cloud, next));
        next -= cloud.size();
    }
    const auto [low, high] = rangeWithoutTails(std::move(sample));
    return {low, high};
}

std::string nameOf(const std::vector<std::filesystem::path>& files) {
    const std::string first = files.front().filename().string();
    return files.size() == 1 ? first : first + " and " + std::to_string(files.size() - 1) + " more";
}

}  // namespace

Model loadModel(const std::vector<std::filesystem::path>& files) {
    Scene scene = readScene(files);
    dropPointsWithoutPlace(scene);

    Model model;
    model.name = nameOf(files);
    model.hasColors = scene.hasColors;
    model.hasIntensity = scene.hasIntensity || scene.hasColors;
    model.intensityIsBrightness = !scene.hasIntensity && scene.hasColors;
    if (model.intensityIsBrightness)
        for (PointCloud& cloud : scene.clouds)
            cloud.scalars() = brightness(cloud);

    const Vector3f origin = scene.box.min.cast<float>();
    ombrix::core::NestedOctreeFactory factory(origin, rootEdge(scene));
    model.tree = buildWhole(factory, scene, "nested");
    model.shift = scene.shift + origin.cast<double>();
    model.box = {scene.box.min - origin.cast<double>(), scene.box.max - origin.cast<double>()};
    model.height = sampleRange(scene, [&](const PointCloud& cloud, std::uint64_t i) {
        return cloud.positions()[i].z() - origin.z();
    });
    model.intensity =
        sampleRange(scene, [](const PointCloud& cloud, std::uint64_t i) { return cloud.scalars()[i]; });
    return model;
}

}  // namespace examples::viewer
