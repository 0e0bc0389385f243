#pragma once

#include <cmath>

#include <ombrix/core/octree/octree.h>
#include <ombrix/core/view/view_frustum.h>

namespace ombrix::core::detail {

/// Radius of the bounding sphere of a node's cube in pixels; 0 outside of the frustum. In an orthographic
/// frustum it shrinks with the depth along the view axis, on purpose.
[[nodiscard]] inline float projectedSize(const ViewFrustum& frustum, const Octree::Aabb& box) {
    const float r = std::sqrt(3.0f) * box.radius;
    if (frustum.sphereInFrustum(box.center, r) == 0) {
        return 0.0f;
    }
    const Vector3f d = box.center - frustum.getPosition().translation();
    const float pixels = static_cast<float>(frustum.pixelHeight()) * 0.5f * r;
    if (frustum.orthographic()) {
        return pixels / std::abs(d.dot(frustum.az()));
    }
    return pixels / (d.norm() * frustum.slope());
}

}  // namespace ombrix::core::detail
