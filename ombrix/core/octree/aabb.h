#pragma once

#include <ombrix/core/types.h>

namespace ombrix::core {

/// Axis-aligned box in double precision.
struct Aabb {
    Vector3d min;  ///< lower corner
    Vector3d max;  ///< upper corner

    /// Leaves both corners unset.
    Aabb() = default;
    /// Takes the corners as they are.
    Aabb(const Vector3d& lower, const Vector3d& upper) : min(lower), max(upper) {}

    /// Grows the box so that it contains p.
    void enclose(const Vector3d& p) {
        min = min.cwiseMin(p);
        max = max.cwiseMax(p);
    }

    /// The middle of the corners.
    [[nodiscard]] Vector3d center() const { return min + (max - min) * 0.5; }
    /// Half of the edges.
    [[nodiscard]] Vector3d radius() const { return (max - min) * 0.5; }

    /// Becomes the box around `center` with these half edges. The arguments may be this box's own corners.
    void setCenterRadius(const Vector3d& center, const Vector3d& radius) {
        *this = Aabb(center - radius, center + radius);
    }
    /// Becomes the box with these corners, which may be its own.
    void setOriginTop(const Vector3d& origin, const Vector3d& top) { *this = Aabb(origin, top); }
};

}  // namespace ombrix::core
