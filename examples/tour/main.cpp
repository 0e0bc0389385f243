#include <cstdio>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <vector>

#include <examples/common/arguments.h>
#include <examples/common/scene.h>

#include "attributes.h"
#include "camera.h"
#include "options.h"
#include "painter.h"
#include "tourist.h"
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

/// All that the scene can be shown as.
std::vector<ColorMode> modesOf(const Scene& scene) {
    std::vector<ColorMode> modes;
    for (const ColorMode mode : {ColorMode::rgb, ColorMode::height, ColorMode::intensity, ColorMode::normal,
                                 ColorMode::curvature, ColorMode::density})
        if (canShow(mode, scene))
            modes.push_back(mode);
    return modes;
}

void tour(const Options& options) {
    makeOutputFolder(options.output);
    std::vector<std::filesystem::path> files = options.files;
    if (files.empty())
        files.push_back(std::filesystem::path(OMBRIX_EXAMPLE_DATA) / "swiss_fields.las");
    Scene scene = readScene(files);
    const ColorMode mode = options.color == ColorMode::automatic ? bestMode(scene) : options.color;
    if (!canShow(mode, scene))
        throw std::runtime_error("the points have nothing to show as " + name(mode) +
                                 ": choose another --color");
    const std::vector<ColorMode> sheetModes = options.sheet ? modesOf(scene) : std::vector<ColorMode>{};
    addAttribute(scene, mode);
    for (const ColorMode other : sheetModes)
        addAttribute(scene, other);

    const auto tree = buildTree(scene, options);
    ombrix::core::Octree& octree = *tree;
    const Painter painter(mode, options.map, scene, octree);

    const Lens lens{options.width, options.height, options.fieldOfView};
    const Stage stage(octree);
    std::vector<View> views = stage.orbit(options.orbit, lens);
    for (View& view : stage.flight(options.flight, lens))
        views.push_back(std::move(view));

    Tourist tourist(octree, options);
    tourist.takeFrames(views, lens, painter);
    if (options.tree == TreeKind::nested)
        tourist.takeLevels(stage, painter);
    if (options.sheet) {
        std::vector<Painter> painters;
        painters.reserve(sheetModes.size());
        for (const ColorMode other : sheetModes)
            painters.emplace_back(other, options.map, scene, octree);
        tourist.takeSheet(stage, painters);
    }
    std::printf("\n%u pictures in %s\n", tourist.pictures(), options.output.string().c_str());
}

}  // namespace

int main(int argc, char** argv) {
    return runProgram("tour", [&] {
        const Options options = parseOptions(argc, argv);
        if (options.help)
            printHelp(std::cout);
        else
            tour(options);
    });
}
