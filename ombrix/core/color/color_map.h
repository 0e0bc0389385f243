#pragma once

#include <array>
#include <vector>

#include <ombrix/core/color/color.h>
#include <ombrix/core/core_export.h>

namespace ombrix::core {

/// The fixed maps of `ColorMap`.
enum DEFAULT_COLORMAP : int {
    RAINBOW = 0,          ///< blue, green at 1/3, yellow at 2/3, red
    GRAY = 1,             ///< black to white
    VIRIDIS = 2,          ///< perceptually uniform, dark violet to yellow
    MAGMA = 3,            ///< perceptually uniform, black over purple to pale yellow
    PLASMA = 4,           ///< perceptually uniform, blue over pink to yellow
    INFERNO = 5,          ///< perceptually uniform, black over red to pale yellow
    RAINBOW_REVERSED = 6  ///< red, yellow at 1/3, green at 2/3, blue
};

/// Scalars to colours through a table of `MAX_STEPS` colours, interpolated linearly in RGB between control
/// points at relative positions in [0, 1].
///
/// A map of several control points needs its first at 0 and its last at 1. Indices are not checked.
class OMBRIX_CORE_API ColorMap {
public:
    /// Length of the table; entry k belongs to the relative position k / 1023.
    static constexpr unsigned int MAX_STEPS = 1024;

    /// One control point.
    struct Element {
        float position = 0.0f;  ///< relative, in [0, 1]
        ColorRGB_F color;       ///< at that position
    };

    /// No control points, a table of black, boundaries 0 and 1.
    ColorMap() = default;
    /// Control points (0, c0) and (1, c1). The table stays black until `update` is called, on purpose:
    /// more control points can be inserted first.
    ColorMap(float min, float max, ColorRGB_F c0, ColorRGB_F c1);

    /// Adds a control point, and updates the table if asked to. Where one has exactly the same position, its
    /// colour is replaced instead and the table is updated in any case.
    void insert(const Element& e, bool update);
    /// Erases control point i and updates the table.
    void remove(unsigned int i);
    /// Erases all control points, which makes the table black.
    void clear();
    /// Control point i: in order of insertion, after `update` ascending by position.
    [[nodiscard]] Element& step(unsigned int i) { return elements_[i]; }
    [[nodiscard]] const Element& step(unsigned int i) const { return elements_[i]; }

    /// Computes the table: black without control points, one colour throughout with one. Where the first of
    /// several does not lie at exactly 0 or the last not at exactly 1, prints
    /// "WARNING ColorMap invalide interval" to standard output and leaves the table as it was; the control
    /// points are sorted all the same.
    void update();

    /// The absolute values that belong to the relative positions 0 and 1; the table is not touched.
    void set_boundaries(float min, float max);
    /// (x - min) / (max - min), clamped to [0, 1]; a NaN (also where x = min = max) stays one.
    [[nodiscard]] float relative_pos(float x) const;

    /// Entry k of the table.
    [[nodiscard]] ColorRGB_F color(unsigned int k) const { return steps_[k]; }
    /// The entry for an absolute value, the end's beyond the boundaries; entry 0 for a NaN or min = max.
    [[nodiscard]] ColorRGB_F color_absolute(float x) const;
    /// The entry for a relative position, which must lie in [0, 1]; entry 0 for a NaN.
    [[nodiscard]] ColorRGB_F color_relative(float t) const;
    /// 255 when min <= x <= max, else 0.
    [[nodiscard]] unsigned char color_threshold(float x) const;

    /// Replaces the control points by n records of four floats: position, red, green, blue. Without records
    /// (n < 1) the map is empty.
    void set_colors(int n, const float* data);
    /// Replaces the control points by 256 colours; row i lies at i / 255.
    void set_colors(const float (*table)[3]);
    /// Replaces the control points by a fixed map; a value above 6 changes nothing.
    void set_colors(DEFAULT_COLORMAP map);

protected:
    /// Orders the control points by ascending position.
    void sort();

private:
    std::vector<Element> elements_;
    std::array<ColorRGB_F, MAX_STEPS> steps_{};
    float min_ = 0.0f;
    float max_ = 1.0f;
};

}  // namespace ombrix::core
