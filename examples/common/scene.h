#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <ombrix/core/octree/aabb.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/types.h>

namespace examples {

/// What a program shows: the clouds of one or more files, in one frame whose origin lies at `shift`.
struct Scene {
    std::vector<ombrix::core::PointCloud> clouds;
    ombrix::core::Vector3d shift = ombrix::core::Vector3d::Zero();
    ombrix::core::Aabb box;     ///< of all finite positions, in the scene's frame
    bool hasColors = false;     ///< all clouds have, and they are not one single colour
    bool hasIntensity = false;  ///< all clouds have, and it is not one single value

    [[nodiscard]] std::uint64_t size() const;
};

/// Reads files into one scene and says on standard output what was read.
/// @throws std::runtime_error naming the file that cannot be read, or when there are no points at all.
[[nodiscard]] Scene readScene(const std::vector<std::filesystem::path>& files);

}  // namespace examples
