#pragma once

#include <array>
#include <string_view>

#include <examples/common/image.h>

namespace examples {

/// Width in pixels of a text drawn at a scale.
[[nodiscard]] int textWidth(std::string_view text, int scale);
/// Height in pixels of a line of text drawn at a scale.
[[nodiscard]] int textHeight(int scale);

/// Writes a line of text in a built-in face of 5 x 7 dots, each a square of `scale` pixels.
///
/// Digits, letters (as capitals) and . , : - + / % ( ) = _ are drawn, all else is blank. What lies outside
/// of the picture is left out.
void drawText(Image& image, int left, int top, std::string_view text, int scale,
              std::array<unsigned char, 3> color);

}  // namespace examples
