#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <ombrix/core/octree/aabb.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/types.h>

namespace examples::viewer {

/// Values between which a scale of colours runs.
struct Range {
    float low = 0.0f;
    float high = 0.0f;
};

/// The cloud that is shown: a nested octree that nobody changes any more.
struct Model {
    std::string name;  ///< of the file, or of the first with the number of others
    std::shared_ptr<const ombrix::core::Octree> tree;
    ombrix::core::Vector3d shift;  ///< added to a position relative to the tree, it gives world coordinates
    ombrix::core::Aabb box;        ///< of the points, relative to the tree
    bool hasColors = false;
    bool hasIntensity = false;
    bool intensityIsBrightness = false;  ///< the scalars are the colours' luma
    Range height;                        ///< relative to the tree
    Range intensity;
};

/// Reads files and builds the tree; says what it does on standard output. Points without a place (not finite)
/// are left out.
/// @throws std::runtime_error naming the file that cannot be read, or when there are no points.
[[nodiscard]] Model loadModel(const std::vector<std::filesystem::path>& files);

}  // namespace examples::viewer
