#pragma once

#include <string>
#include <vector>

#include <examples/common/image.h>

#include "painter.h"

namespace examples {

/// Pictures of one size in rows of `columns`, from the top left, with narrow gaps.
[[nodiscard]] Image tile(const std::vector<Image>& pictures, int columns);

/// Writes a line of text into the top left corner.
void drawCaption(Image& image, const std::string& text);

/// Draws a bar of the legend's colours with its lowest, middle and highest value into the bottom left corner.
void drawLegend(Image& image, const Legend& legend);

}  // namespace examples
