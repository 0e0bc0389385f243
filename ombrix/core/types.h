#pragma once

#include <Eigen/Geometry>

namespace ombrix::core {

/// Position, normal or box corner in single precision, 12 bytes: x, y, z.
using Vector3f = Eigen::Vector3f;

/// Position, shift or box corner in double precision, 24 bytes: x, y, z.
using Vector3d = Eigen::Vector3d;

}  // namespace ombrix::core
