#pragma once

#include <vector>

#include <ombrix/core/octree/octree.h>
#include <ombrix/core/view/view_frustum.h>
#include <ombrix/core/view/visibility.h>

#include <examples/common/image.h>

#include "camera.h"
#include "painter.h"
#include "spacing.h"

namespace examples {

struct Style {
    float splat = 1.0f;  ///< factor on the points' size on the screen
    bool edl = false;    ///< eye-dome shading
    bool closed = true;  ///< whether gaps of a few pixels between points are filled
};

/// Draws the points of selected nodes as discs into a depth buffer.
///
/// A disc is as large as neighbours are apart at the finest selected node that contains the point. The same
/// input gives the same picture on any number of threads.
///
/// @param selection  `Visibility::getHierarchy()` over `tree`
[[nodiscard]] Image draw(const ombrix::core::Octree& tree, const Spacings& spacings,
                         const std::vector<ombrix::core::Visibility::HNode>& selection, const View& view,
                         const Lens& lens, const Painter& painter, const Style& style);

}  // namespace examples
