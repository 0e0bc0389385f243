#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <ombrix/core/octree/octree.h>
#include <ombrix/core/view/visibility.h>

#include "camera.h"
#include "options.h"
#include "painter.h"
#include "renderer.h"
#include "spacing.h"

namespace examples {

/// Takes the pictures of a tour: selects nodes, draws them, writes the files and the lines of the table.
class Tourist {
public:
    Tourist(ombrix::core::Octree& tree, const Options& options);

    /// One picture and one line of the table for each view.
    /// @throws std::runtime_error when a picture cannot be written.
    void takeFrames(const std::vector<View>& views, const Lens& lens, const Painter& painter);
    /// levels.png: everything down to each depth of the tree from one place, side by side.
    void takeLevels(const Stage& stage, const Painter& painter);
    /// sheet.png: the whole scene from one place in the colours of each painter, side by side.
    void takeSheet(const Stage& stage, const std::vector<Painter>& painters);

    [[nodiscard]] unsigned pictures() const { return pictures_; }

private:
    /// Draws the nodes whose visible flag is set, with `splat` as a further factor on the points' size.
    [[nodiscard]] Image drawVisible(const View& view, const Lens& lens, const Painter& painter, float splat);
    /// For a picture in one of several columns.
    [[nodiscard]] Lens tileLens(int columns) const;
    void write(const std::string& name, const Image& image);

    ombrix::core::Octree& tree_;
    const Options& options_;
    Spacings spacings_;
    ombrix::core::Visibility visibility_;
    unsigned pictures_ = 0;
};

}  // namespace examples
