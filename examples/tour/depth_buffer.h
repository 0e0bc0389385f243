#pragma once

#include <cstdint>
#include <vector>

#include <ombrix/core/color/color.h>

#include <examples/common/image.h>

namespace examples {

/// A point on the screen.
struct Splat {
    float x;       ///< pixels from the left
    float y;       ///< pixels from the top
    float radius;  ///< pixels
    float depth;   ///< along the view axis, > 0
    float bulge;   ///< how much deeper the disc's rim lies than its centre
    ombrix::core::ColorRGB color;
};

/// Keeps the nearest colour of every pixel. What it holds does not depend on the order of the splats.
class DepthBuffer {
public:
    DepthBuffer(int width, int height);

    /// Draws discs whose rims lie deeper than their centres, so that close ones meet half way.
    void draw(const std::vector<Splat>& splats);

    /// Closes gaps of a few pixels between discs: an empty pixel with filled ones close by on nearly all
    /// sides becomes like the nearest of them. In the manner of Rosenthal and Linsen, "Image-space Point
    /// Cloud Rendering", Computer Graphics International 2008.
    void closeGaps();

    /// The picture at 1 / `scale` of the size, averaged, over a background that is brighter at the top.
    /// `edl` darkens pixels that lie behind their neighbours.
    /// Source of the shading: Boucheny, "Interactive Scientific Visualization of Large Datasets: Towards a
    /// Perceptive-Based Approach", Joseph Fourier University 2009 (eye-dome lighting).
    [[nodiscard]] Image resolve(int scale, bool edl) const;

private:
    void drawRows(const Splat& splat, int firstRow, int lastRow);
    [[nodiscard]] std::uint64_t cellAt(int x, int y) const {
        return cells_[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                      static_cast<std::size_t>(x)];
    }
    [[nodiscard]] std::uint64_t gapFilling(int x, int y) const;
    [[nodiscard]] float depthAt(int x, int y) const;
    [[nodiscard]] float shadeAt(int x, int y, int step) const;

    int width_;
    int height_;
    /// Bits of the depth above the colour, so that the smaller value is the nearer one.
    std::vector<std::uint64_t> cells_;
};

}  // namespace examples
