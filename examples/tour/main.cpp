#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "camera.h"
#include "options.h"
#include "painter.h"
#include "scene.h"
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

void tour(const Options& options) {
    makeOutputFolder(options.output);
    std::vector<std::filesystem::path> files = options.files;
    if (files.empty())
        files.push_back(std::filesystem::path(OMBRIX_EXAMPLE_DATA) / "swiss_fields.las");
    const Scene scene = readScene(files);
    const Tree tree = buildTree(scene, options);
    ombrix::core::Octree& octree = *tree.octree;
    const Painter painter(options.color, options.map, scene, octree);

    const auto points = static_cast<double>(octree.size());
    std::printf("%s octree: %.0f points, %llu nodes, depth %u, built in %.3f s, %.1f million points/s\n",
                name(options.tree).c_str(), points, static_cast<unsigned long long>(octree.keyCount()),
                octree.max_depth(), tree.seconds, points / tree.seconds * 1e-6);

    const Lens lens{options.width, options.height, options.fieldOfView};
    const Stage stage(octree);
    std::vector<View> views = stage.orbit(options.orbit, lens);
    for (View& view : stage.flight(options.flight, lens))
        views.push_back(std::move(view));

    Tourist tourist(octree, options);
    tourist.takeFrames(views, lens, painter);
    if (options.tree == TreeKind::nested)
        tourist.takeLevels(stage, painter);
    std::printf("\n%u pictures in %s\n", tourist.pictures(), options.output.string().c_str());
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
