#include "compose.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include <examples/common/text.h>

namespace examples {
namespace {

constexpr int GAP = 4;
constexpr std::array<unsigned char, 3> WHITE{240, 240, 240};

/// Dots of the text's face in pixels: as legible in small pictures as in large ones.
int textScale(const Image& image) {
    return std::max(1, (image.height + 170) / 340);
}

/// Darkens a rectangle so that text can be read on it.
void dim(Image& image, int left, int top, int width, int height) {
    for (int y = std::max(0, top); y < std::min(image.height, top + height); ++y)
        for (int x = std::max(0, left); x < std::min(image.width, left + width); ++x)
            for (int c = 0; c < 3; ++c)
                image.pixel(x, y)[c] = static_cast<unsigned char>(image.pixel(x, y)[c] / 3);
}

/// Enough digits to tell the ends of a range apart.
std::string number(double value, double range) {
    const int digits = range > 0.0 ? static_cast<int>(std::ceil(2.0 - std::log10(range))) : 1;
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", std::clamp(digits, 0, 8), value);
    return text;
}

}  // namespace

Image tile(const std::vector<Image>& pictures, int columns) {
    if (pictures.empty())
        return {};
    columns = std::min(columns, static_cast<int>(pictures.size()));
    const int rows = (static_cast<int>(pictures.size()) + columns - 1) / columns;
    const int width = pictures.front().width;
    const int height = pictures.front().height;
    Image sheet(columns * (width + GAP) - GAP, rows * (height + GAP) - GAP, 12, 14, 18);
    for (std::size_t i = 0; i < pictures.size(); ++i) {
        const int left = static_cast<int>(i) % columns * (width + GAP);
        const int top = static_cast<int>(i) / columns * (height + GAP);
        for (int y = 0; y < height; ++y)
            std::copy_n(pictures[i].pixel(0, y), 3 * width, sheet.pixel(left, top + y));
    }
    return sheet;
}

void drawCaption(Image& image, const std::string& text) {
    const int scale = textScale(image);
    const int margin = 4 * scale;
    dim(image, 0, 0, textWidth(text, scale) + 2 * margin, textHeight(scale) + 2 * margin);
    drawText(image, margin, margin, text, scale, WHITE);
}

void drawLegend(Image& image, const Legend& legend) {
    if (legend.colors.empty())
        return;
    const int scale = textScale(image);
    const int margin = 4 * scale;
    const int line = textHeight(scale);
    const int barWidth = std::min(150 * scale, image.width - 4 * margin);
    const int barHeight = 8 * scale;
    const int panelHeight = 2 * line + barHeight + 4 * margin;
    const int top = image.height - panelHeight;
    if (barWidth <= 0 || top < 0)
        return;

    // The numbers at the ends stand centred below the bar's ends, as far as the panel allows.
    const double range = legend.high - legend.low;
    const std::array<std::string, 3> numbers{number(legend.low, range),
                                             number(0.5 * (legend.low + legend.high), range),
                                             number(legend.high, range)};
    const int left = margin + textWidth(numbers[0], scale) / 2;
    const int panelWidth = margin + std::max(left - margin + barWidth + textWidth(numbers[2], scale) / 2,
                                             margin + textWidth(legend.title, scale));
    dim(image, 0, top, panelWidth, panelHeight);
    drawText(image, margin, top + margin, legend.title, scale, WHITE);
    const int barTop = top + line + 2 * margin;
    for (int x = 0; x < barWidth; ++x) {
        const auto last = static_cast<int>(legend.colors.size()) - 1;
        const auto& color = legend.colors[static_cast<std::size_t>(x * last / std::max(1, barWidth - 1))];
        for (int y = 0; y < barHeight && left + x < image.width; ++y)
            std::copy_n(color.data(), 3, image.pixel(left + x, barTop + y));
    }
    for (int i = 0; i < 3; ++i) {
        const auto& text = numbers[static_cast<std::size_t>(i)];
        drawText(image, left + i * (barWidth - 1) / 2 - textWidth(text, scale) / 2,
                 barTop + barHeight + margin, text, scale, WHITE);
    }
}

}  // namespace examples
