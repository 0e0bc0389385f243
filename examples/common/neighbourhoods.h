#pragma once

#include <vector>

#include <ombrix/core/octree/aabb.h>
#include <ombrix/core/points/point_cloud.h>

namespace examples {

/// What a point's surroundings tell, one value per point of a cloud.

/// Normals of the 16 nearest points into the cloud's `normals()`, on the side that is seen from high above
/// the box.
void computeNormals(ombrix::core::PointCloud& cloud, const ombrix::core::Aabb& box);
/// Share of the smallest eigenvalue over the 16 nearest points, 0 to 1/3; 0 for coincident points.
[[nodiscard]] std::vector<float> curvatures(const ombrix::core::PointCloud& cloud);
/// Points per squared unit within twice the mean distance of the 8 nearest; 0 where all points coincide.
[[nodiscard]] std::vector<float> densities(const ombrix::core::PointCloud& cloud);
/// Rec. 709 luma of the colours, 0 to 255.
[[nodiscard]] std::vector<float> brightness(const ombrix::core::PointCloud& cloud);

}  // namespace examples
