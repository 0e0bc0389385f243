#pragma once

#include <ombrix/core/types.h>

namespace ombrix::core::detail {

/// Edge of the cube around a box: y is taken where it is greater than x, then z where greater than that.
[[nodiscard]] inline float largestSide(const Vector3f& origin, const Vector3f& top) {
    const Vector3f d = top - origin;
    const float xy = d.y() > d.x() ? d.y() : d.x();
    return d.z() > xy ? d.z() : xy;
}

}  // namespace ombrix::core::detail
