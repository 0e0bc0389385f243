#pragma once

#include <optional>
#include <string>
#include <vector>

#include <examples/common/scene.h>
#include <ombrix/core/color/color.h>
#include <ombrix/core/color/color_map.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/points/point_cloud.h>

#include "options.h"

namespace examples {

/// The mode that shows most of what the scene has: colours, else intensity, else height.
[[nodiscard]] ColorMode bestMode(const Scene& scene);

/// Whether the scene has what a mode shows, or it can be computed.
[[nodiscard]] bool canShow(ColorMode mode, const Scene& scene);

/// A scale of values and its colours, lowest first.
struct Legend {
    std::string title;
    double low = 0.0;
    double high = 0.0;
    std::vector<ombrix::core::ColorRGB> colors;
};

/// Gives the points of a tree's nodes their colours on the screen.
class Painter {
public:
    /// @param mode  not `automatic`; what it shows must be in the tree (`addAttribute`).
    /// @param map   the colours of the scale; each mode has its own by default.
    Painter(ColorMode mode, std::optional<ombrix::core::DEFAULT_COLORMAP> map, const Scene& scene,
            const ombrix::core::Octree& tree);

    [[nodiscard]] ColorMode mode() const { return mode_; }
    /// What the colours show, for a caption.
    [[nodiscard]] const std::string& title() const { return title_; }
    /// Empty when the colours stand for no scale.
    [[nodiscard]] const std::optional<Legend>& legend() const { return legend_; }
    /// Colours of all points of a node's cloud.
    void paint(const ombrix::core::PointCloud& cloud, std::vector<ombrix::core::ColorRGB>& colors) const;

private:
    ColorMode mode_;
    std::string title_;
    ombrix::core::ColorMap map_;
    std::optional<Legend> legend_;
};

}  // namespace examples
