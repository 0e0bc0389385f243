#pragma once

#include <cstddef>
#include <vector>

namespace examples {

/// A picture of 8-bit RGB pixels, row by row from the top left, three bytes a pixel.
struct Image {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> rgb;  ///< 3 * width * height

    Image() = default;
    /// One colour everywhere.
    Image(int columns, int rows, unsigned char r = 0, unsigned char g = 0, unsigned char b = 0)
        : width(columns),
          height(rows),
          rgb(3 * static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows)) {
        for (std::size_t i = 0; i < rgb.size(); i += 3) {
            rgb[i] = r;
            rgb[i + 1] = g;
            rgb[i + 2] = b;
        }
    }

    /// The three channels of column x, row y, which must lie inside.
    [[nodiscard]] unsigned char* pixel(int x, int y) { return rgb.data() + offset(x, y); }
    [[nodiscard]] const unsigned char* pixel(int x, int y) const { return rgb.data() + offset(x, y); }

private:
    [[nodiscard]] std::size_t offset(int x, int y) const {
        return 3 *
               (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x));
    }
};

}  // namespace examples
