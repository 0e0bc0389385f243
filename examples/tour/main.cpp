#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <ombrix/core/view/visibility.h>

#include <examples/common/png_writer.h>

#include "camera.h"
#include "compose.h"
#include "options.h"
#include "painter.h"
#include "renderer.h"
#include "scene.h"
#include "spacing.h"
#include "tree.h"

namespace {

using namespace examples;

void makeOutputFolder(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (!std::filesystem::is_directory(folder))
        throw std::runtime_error("cannot make the folder " + folder.string() +
                                 (error ? ": " + error.message() : ""));
}

void tour(const Options& options) {
    makeOutputFolder(options.output);
    std::vector<std::filesystem::path> files = options.files;
    if (files.empty())
        files.push_back(std::filesystem::path(OMBRIX_EXAMPLE_DATA) / "swiss_fields.las");
    const Scene scene = readScene(files);
    const Tree tree = buildTree(scene, options);
    ombrix::core::Octree& octree = *tree.octree;
    const Spacings spacings(octree);
    const Painter painter(options.color, options.map, scene, octree);

    const auto points = static_cast<double>(octree.size());
    std::printf("%s octree: %.0f points, %llu nodes, depth %u, built in %.3f s, %.1f million points/s\n",
                name(options.tree).c_str(), points, static_cast<unsigned long long>(octree.keyCount()),
                octree.max_depth(), tree.seconds, points / tree.seconds * 1e-6);

    const Lens lens{options.width, options.height, options.fieldOfView};
    Style style;
    style.splat = options.splat;
    style.edl = options.shading == Shading::edl ||
                (options.shading == Shading::automatic && painter.mode() != ColorMode::rgb);

    const Stage stage(octree);
    std::vector<View> views = stage.orbit(options.orbit, lens);
    for (View& view : stage.flight(options.flight, lens))
        views.push_back(std::move(view));

    ombrix::core::Visibility visibility(octree);
    std::printf("\n%-10s %8s %10s %10s %8s  %s\n", "frame", "nodes", "points", "update ms", "draw ms",
                "picture");
    for (const View& view : views) {
        using Clock = std::chrono::steady_clock;
        using Milliseconds = std::chrono::duration<double, std::milli>;
        const auto start = Clock::now();
        const std::uint64_t visible = visibility.update(view.frustum, options.budget, options.minSize);
        const auto updated = Clock::now();
        visibility.buildHierarchy(true);
        Image image = draw(octree, spacings, visibility.getHierarchy(), view, lens, painter, style);
        const auto drawn = Clock::now();
        if (painter.legend())
            drawLegend(image, *painter.legend());
        const auto path = options.output / (view.name + ".png");
        writePng(path, image);
        std::printf("%-10s %8zu %10llu %10.2f %8.1f  %s\n", view.name.c_str(),
                    visibility.getVisibleNodeKeys().size(), static_cast<unsigned long long>(visible),
                    Milliseconds(updated - start).count(), Milliseconds(drawn - updated).count(),
                    path.string().c_str());
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Options options = parseOptions(argc, argv);
        if (options.help)
            printHelp(std::cout);
        else
            tour(options);
        return 0;
    } catch (const UsageError& error) {
        std::cerr << "tour: " << error.what() << "\nTry 'tour --help'.\n";
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "tour: " << error.what() << '\n';
        return 1;
    }
}
