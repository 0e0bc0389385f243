#include "options.h"

#include <ostream>
#include <string_view>

#include <examples/common/color_scale.h>

namespace examples {
namespace {

const Names<TreeKind>& treeNames() {
    static const Names<TreeKind> names{
        {"nested", TreeKind::nested}, {"full", TreeKind::full}, {"dynamic", TreeKind::dynamic}};
    return names;
}

const Names<ColorMode>& colorNames() {
    static const Names<ColorMode> names{{"auto", ColorMode::automatic}, {"rgb", ColorMode::rgb},
                                        {"height", ColorMode::height},  {"intensity", ColorMode::intensity},
                                        {"normal", ColorMode::normal},  {"curvature", ColorMode::curvature},
                                        {"density", ColorMode::density}};
    return names;
}

const Names<Shading>& shadingNames() {
    static const Names<Shading> names{
        {"auto", Shading::automatic}, {"none", Shading::none}, {"edl", Shading::edl}};
    return names;
}

void setSize(Options& options, std::string_view option, std::string_view value) {
    constexpr std::uint64_t least = 16;
    constexpr std::uint64_t most = 8192;
    const auto cross = value.find('x');
    if (cross == std::string_view::npos)
        refuse(option, value, "WIDTHxHEIGHT in pixels");
    options.width = static_cast<int>(whole(option, value.substr(0, cross), least, most));
    options.height = static_cast<int>(whole(option, value.substr(cross + 1), least, most));
}

}  // namespace

Options parseOptions(int count, const char* const* arguments) {
    constexpr std::uint64_t mostPoints = 1'000'000'000'000;
    Options o;
    Arguments table;
    table.flags["--help"] = table.flags["-h"] = [&o] { o.help = true; };
    table.flags["--sheet"] = [&o] { o.sheet = true; };
    table.positional = [&o](std::string_view file) { o.files.emplace_back(file); };
    table.values = {
        {"--output", [&o](auto, auto value) { o.output = std::string(value); }},
        {"--tree", [&o](auto option, auto value) { o.tree = choose(option, value, treeNames()); }},
        {"--leaf",
         [&o](auto option, auto value) {
             o.leaf = static_cast<unsigned>(whole(option, value, 1, 1'000'000'000));
         }},
        {"--slices", [&o](auto option,
                          auto value) { o.slices = static_cast<unsigned>(whole(option, value, 1, 10'000)); }},
        {"--budget", [&o](auto option, auto value) { o.budget = whole(option, value, 0, mostPoints); }},
        {"--min-size", [&o](auto option, auto value) { o.minSize = real(option, value, 0, 100'000); }},
        {"--frames",
         [&o](auto option, auto value) { o.orbit = static_cast<unsigned>(whole(option, value, 0, 10'000)); }},
        {"--flight", [&o](auto option,
                          auto value) { o.flight = static_cast<unsigned>(whole(option, value, 0, 10'000)); }},
        {"--size", [&o](auto option, auto value) { setSize(o, option, value); }},
        {"--fov", [&o](auto option, auto value) { o.fieldOfView = real(option, value, 1, 150); }},
        {"--splat", [&o](auto option, auto value) { o.splat = real(option, value, 0, 100); }},
        {"--shading", [&o](auto option, auto value) { o.shading = choose(option, value, shadingNames()); }},
        {"--color", [&o](auto option, auto value) { o.color = choose(option, value, colorNames()); }},
        {"--map", [&o](auto option, auto value) { o.map = choose(option, value, mapNames()); }},
    };
    table.read(count, arguments);
    return o;
}

float minSizeOf(const Options& options) {
    // A node's sphere of radius r spans 128 cells of its sample over 2 r / sqrt(3): at 55 pixels its cells
    // are half a pixel wide and its parent's are one.
    constexpr float halfPixelCells = 55.0f;
    return options.minSize.value_or(options.tree == TreeKind::nested ? halfPixelCells : 0.0f);
}

std::string name(TreeKind tree) {
    return nameIn(treeNames(), tree);
}
std::string name(ColorMode mode) {
    return nameIn(colorNames(), mode);
}

void printHelp(std::ostream& out) {
    out << R"(usage: tour [FILE...] [OPTION...]

Reads point clouds (PLY, LAS, text, OBJ), organises them in an octree, walks a camera round the scene and
flies it across, and draws what is visible of each frame within a budget of points. Writes PNG pictures and
a table on standard output. Without a file it tours the cloud that comes with the examples.

Tree
  --tree KIND       nested: every node holds a sample of what is below it, coarse ones are drawn first;
                    full: all points in the leaves; dynamic: the same, fed with one file after another or
                    with slices of a single one, and growing as they come (default: nested)
  --leaf N          points that a leaf of a full or dynamic tree may hold (default: 512)
  --slices N        parts of a single file for a dynamic tree (default: 10)

Selection
  --budget N        points to draw in a frame; the last node taken may pass it (default: 500000)
  --min-size PIXELS radius on the screen below which a node is left out (default: 55 for a nested tree, where
                    its points would be closer than pixels, else 0)

  Nodes are taken from the root down, the one that is largest on the screen first. A nested tree is whole at
  any budget: where it ends, the picture is coarser. A full or dynamic tree has its points in the leaves
  alone, and its inner nodes, which hold none, cost nothing. So where the budget ends or a node is too small,
  all points of that place are missing, and the picture has a hole there: for a picture without holes give
  such a tree a budget above the number of points and leave --min-size at 0.

Pictures
  --output FOLDER   where the pictures go (default: tour-pictures)
                    Besides the frames there is, for a nested tree, levels.png: its levels of detail side by side
  --frames N        frames of the walk round the scene (default: 8)
  --flight N        frames of the flight across it (default: 8)
  --size WxH        pixels (default: 1200x675)
  --fov DEGREES     vertical opening angle, 1 to 150 (default: 45)
  --splat FACTOR    size of the points on the screen, 1: as far apart as their neighbours (default: 1)
  --shading NAME    auto, none or edl: darken edges in depth; auto leaves true colours as they are
  --color NAME      auto, rgb, height, intensity, normal, curvature or density; auto takes colours where there
                    are any, else intensity, else height. Without intensities, those are the brightness of
                    the colours. Normals and curvature are those of the 16 nearest points
  --map NAME        colours of the scale: rainbow, rainbow_reversed, gray, viridis, magma, plasma or inferno
                    (default: gray for intensity, plasma for curvature, else viridis); true colours and
                    normals have no scale. The scale leaves out the lowest and the highest hundredth of the
                    values
  --sheet           also sheet.png: the scene in all colours side by side

Exit status: 0, or 1 when a file cannot be read or a picture cannot be written, or 2 for a bad command line.
)";
}

}  // namespace examples
