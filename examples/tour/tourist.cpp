#include "tourist.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include <examples/common/png_writer.h>

#include "compose.h"

namespace examples {

using ombrix::core::Octree;

namespace {

constexpr float LEVEL_SPLAT = 0.4f;  ///< small enough to tell the points of coarse levels apart
constexpr std::uint8_t VISIBLE = 2;  ///< what `Visibility` marks the nodes of a selection with

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

}  // namespace

Tourist::Tourist(Octree& tree, const Options& options)
    : tree_(tree), options_(options), spacings_(tree), visibility_(tree) {}

Image Tourist::drawVisible(const View& view, const Lens& lens, const Painter& painter, float splat) {
    Style style;
    style.splat = splat * options_.splat;
    style.closed = splat >= 1.0f;
    style.edl = options_.shading == Shading::edl ||
                (options_.shading == Shading::automatic && painter.mode() != ColorMode::rgb);
    visibility_.buildHierarchy(true);
    return draw(tree_, spacings_, visibility_.getHierarchy(), view, lens, painter, style);
}

Lens Tourist::tileLens(int columns) const {
    const int width = std::max(16, options_.width / columns);
    return {width, std::max(16, width * 2 / 5), options_.fieldOfView};
}

void Tourist::write(const std::string& name, const Image& image) {
    writePng(options_.output / (name + ".png"), image);
    ++pictures_;
}

void Tourist::takeFrames(const std::vector<View>& views, const Lens& lens, const Painter& painter) {
    std::printf("\n%-10s %8s %10s %10s %8s  %s\n", "frame", "nodes", "points", "update ms", "draw ms",
                "picture");
    for (const View& view : views) {
        const auto start = Clock::now();
        const std::uint64_t points = visibility_.update(view.frustum, options_.budget, minSizeOf(options_));
        const double update = millisecondsSince(start);

        const auto selected = Clock::now();
        Image image = drawVisible(view, lens, painter, 1.0f);
        const double drawing = millisecondsSince(selected);
        if (painter.legend())
            drawLegend(image, *painter.legend());
        write(view.name, image);
        std::printf("%-10s %8zu %10llu %10.2f %8.1f  %s.png\n", view.name.c_str(),
                    visibility_.getVisibleNodeKeys().size(), static_cast<unsigned long long>(points), update,
                    drawing, view.name.c_str());
    }
}

void Tourist::takeLevels(const Stage& stage, const Painter& painter) {
    const auto levels = tree_.max_depth() + 1;
    const int columns = levels == 1 ? 1 : levels <= 4 ? 2 : 3;
    const Lens lens = tileLens(columns);
    const View view = stage.orbit(1, lens).front();

    std::vector<Image> pictures;
    for (auto& [key, node] : tree_.nodes())
        node.flags &= static_cast<std::uint8_t>(~VISIBLE);
    for (unsigned level = 0; level < levels; ++level) {
        for (const std::uint64_t key : tree_.branch(tree_.rootKey(), level))
            tree_.node(key).flags |= VISIBLE;
        Image image = drawVisible(view, lens, painter, LEVEL_SPLAT);
        drawCaption(image,
                    "level " + std::to_string(level) + ": " + std::to_string(tree_.size(level)) + " points");
        pictures.push_back(std::move(image));
    }
    write("levels", tile(pictures, columns));
    std::printf("levels 0 to %u in levels.png\n", levels - 1);
}

void Tourist::takeSheet(const Stage& stage, const std::vector<Painter>& painters) {
    constexpr int columns = 2;
    const Lens lens = tileLens(columns);
    const View view = stage.orbit(1, lens).front();
    visibility_.update(view.frustum, options_.budget, minSizeOf(options_));

    std::vector<Image> pictures;
    for (const Painter& painter : painters) {
        Image image = drawVisible(view, lens, painter, 1.0f);
        if (painter.legend())
            drawLegend(image, *painter.legend());
        else
            drawCaption(image, painter.title());
        pictures.push_back(std::move(image));
    }
    write("sheet", tile(pictures, columns));
    std::printf("the scene in %zu colourings in sheet.png\n", painters.size());
}

}  // namespace examples
