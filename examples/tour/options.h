#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include <examples/common/arguments.h>
#include <ombrix/core/color/color_map.h>

namespace examples {

enum class TreeKind { nested, full, dynamic };
/// What the points' colours show; `automatic` takes the first of colours, intensity and height that the
/// cloud has.
enum class ColorMode { automatic, rgb, height, intensity, normal, curvature, density };
/// Eye-dome shading of the pictures; `automatic` leaves true colours alone and shades all others.
enum class Shading { automatic, none, edl };

struct Options {
    bool help = false;
    std::vector<std::filesystem::path> files;  ///< empty: the shipped cloud
    std::filesystem::path output = "tour-pictures";

    TreeKind tree = TreeKind::nested;
    unsigned leaf = 512;             ///< points in a leaf of a full or dynamic tree
    unsigned slices = 10;            ///< parts of a single cloud that a dynamic tree gets in turn
    std::uint64_t budget = 500'000;  ///< points a frame
    std::optional<float> minSize;    ///< pixels; empty: what suits the tree

    unsigned orbit = 8;   ///< frames round the scene
    unsigned flight = 8;  ///< frames across the scene
    int width = 1200;
    int height = 675;
    float fieldOfView = 45.0f;  ///< vertical, degrees
    float splat = 1.0f;         ///< factor on the splats' size
    Shading shading = Shading::automatic;

    ColorMode color = ColorMode::automatic;
    std::optional<ombrix::core::DEFAULT_COLORMAP> map;  ///< empty: the mode's own
    bool sheet = false;                                 ///< a picture in each mode on one sheet
};

/// Reads a command line, program name first.
/// @throws UsageError
[[nodiscard]] Options parseOptions(int count, const char* const* arguments);

void printHelp(std::ostream& out);

/// The size in pixels below which nodes are left out: as given, or 0 for trees with all points in the leaves
/// and else where points would lie closer than pixels.
[[nodiscard]] float minSizeOf(const Options& options);

[[nodiscard]] std::string name(TreeKind tree);
[[nodiscard]] std::string name(ColorMode mode);

}  // namespace examples
