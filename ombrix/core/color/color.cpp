#include <algorithm>
#include <cmath>
#include <limits>

#include <ombrix/core/color/color.h>

namespace ombrix::core {
namespace {

/// Truncation towards zero as processors do it: what does not fit gives the smallest integer.
std::int32_t truncateToInt(float value) {
    constexpr float LIMIT = 2147483648.0f;
    if (!(value >= -LIMIT && value < LIMIT)) {
        return std::numeric_limits<std::int32_t>::min();
    }
    return static_cast<std::int32_t>(value);
}

std::uint8_t toChannel8(float value) {
    return static_cast<std::uint8_t>(truncateToInt(value));
}

std::uint16_t toChannel16(float value) {
    return static_cast<std::uint16_t>(truncateToInt(value));
}

std::uint16_t widenChannel(std::uint8_t channel) {
    return toChannel16(static_cast<float>(channel) / 255.0f * 65535.0f);
}

std::uint8_t quadraticMean(unsigned first, unsigned second) {
    const unsigned half = (first * first + second * second) >> 1;
    return toChannel8(std::sqrt(static_cast<float>(half)));
}

std::uint8_t halfSum(unsigned first, unsigned second) {
    return static_cast<std::uint8_t>((first + second) >> 1);
}

float linearize(std::uint8_t channel) {
    const float c = static_cast<float>(channel) / 255.0f;
    const float linear = c > 0.04045f ? std::pow((c + 0.055f) / 1.055f, 2.4f) : c / 12.92f;
    return linear * 100.0f;
}

float labResponse(float t) {
    return t > 0.008856f ? std::pow(t, 0.33333334f) : 7.787f * t + 0.13793103f;
}

float labCube(float t) {
    const float cube = std::pow(t, 3.0f);
    return 0.008856f >= cube ? (cube - 0.13793103f) / 7.787f : cube;
}

std::uint8_t compand(float linear) {
    const float c = 1.055f * std::pow(linear, 0.41666666f) - 0.055f;
    return toChannel8((0.0031308f >= c ? c * 12.92f : c) * 255.0f);
}

}  // namespace

ColorRGB::ColorRGB(const ColorRGB_16& color)
    : r(static_cast<std::uint8_t>(color.r >> 8)),
      g(static_cast<std::uint8_t>(color.g >> 8)),
      b(static_cast<std::uint8_t>(color.b >> 8)) {}

ColorRGB_F ColorRGB::RGBtoRGB_F() {
    return {static_cast<float>(r) / 255.0f, static_cast<float>(g) / 255.0f, static_cast<float>(b) / 255.0f};
}

ColorRGB_16 ColorRGB::RGBtoRGB_16() {
    return {widenChannel(r), widenChannel(g), widenChannel(b)};
}

ColorRGB_565 ColorRGB::RGBtoRGB_565() {
    return {r, g, b};
}

ColorHSV ColorRGB::RGBToHSV() {
    const ColorRGB_F c = RGBtoRGB_F();
    const float max = std::max({c.r, c.g, c.b});
    const float min = std::min({c.r, c.g, c.b});
    const float delta = max - min;
    if (delta == 0.0f) {
        return {0.0f, 0.0f, max};
    }
    float hue = 0.0f;
    if (max == c.r) {
        hue = static_cast<float>(60 * (truncateToInt((c.g - c.b) / delta) % 6));
    }
    if (max == c.g) {
        hue = ((c.b - c.r) / delta + 2.0f) * 60.0f;
    }
    if (max == c.b) {
        hue = ((c.r - c.g) / delta + 4.0f) * 60.0f;
    }
    return {hue, delta / max, max};
}

ColorLab ColorRGB::RGBToLab() {
    const float red = linearize(r);
    const float green = linearize(g);
    const float blue = linearize(b);
    const float x = (0.4124f * red + 0.3576f * green + 0.1805f * blue) / 95.047f;
    const float y = (0.2126f * red + 0.7152f * green + 0.0722f * blue) / 100.0f;
    const float z = (0.0193f * red + 0.1192f * green + 0.9505f * blue) / 108.883f;
    const float fx = labResponse(x);
    const float fy = labResponse(y);
    const float fz = labResponse(z);
    return {116.0f * fy - 16.0f, 500.0f * (fx - fy), 200.0f * (fy - fz)};
}

void ColorRGB::mean(const ColorRGB& first, const ColorRGB& second) {
    *this = {quadraticMean(first.r, second.r), quadraticMean(first.g, second.g),
             quadraticMean(first.b, second.b)};
}

void ColorRGB::fast_mean(const ColorRGB& first, const ColorRGB& second) {
    *this = {halfSum(first.r, second.r), halfSum(first.g, second.g), halfSum(first.b, second.b)};
}

void ColorRGB::mean(const std::vector<ColorRGB>& colors) {
    if (colors.empty()) {
        return;
    }
    std::uint64_t red = 0;
    std::uint64_t green = 0;
    std::uint64_t blue = 0;
    for (const ColorRGB& color : colors) {
        red += color.r;
        green += color.g;
        blue += color.b;
    }
    const std::uint64_t count = colors.size();
    *this = {static_cast<std::uint8_t>(red / count), static_cast<std::uint8_t>(green / count),
             static_cast<std::uint8_t>(blue / count)};
}

ColorRGB ColorRGB_565::RGB_565toRGB() {
    return {static_cast<std::uint8_t>((value >> 8) & 0xF8), static_cast<std::uint8_t>((value >> 3) & 0xFC),
            static_cast<std::uint8_t>((value << 3) & 0xFF)};
}

ColorRGB ColorRGB_F::RGBFloatTo24() {
    return {toChannel8(r * 255.0f), toChannel8(g * 255.0f), toChannel8(b * 255.0f)};
}

ColorRGB ColorHSV::HSVToRGB() {
    const float x = h / 60.0f;
    const std::int32_t i = truncateToInt(std::floor(x));
    const float f = x - static_cast<float>(i);
    const float p = (1.0f - s) * v;
    const float q = (1.0f - s * f) * v;
    const float t = (1.0f - (1.0f - f) * s) * v;
    switch (i % 6) {
        case 0:
            return ColorRGB_F(v, t, p).RGBFloatTo24();
        case 1:
            return ColorRGB_F(q, v, p).RGBFloatTo24();
        case 2:
            return ColorRGB_F(p, v, t).RGBFloatTo24();
        case 3:
            return ColorRGB_F(p, q, v).RGBFloatTo24();
        case 4:
            return ColorRGB_F(t, p, v).RGBFloatTo24();
        case 5:
            return ColorRGB_F(v, p, q).RGBFloatTo24();
        default:
            return {};
    }
}

ColorRGB ColorLab::LabToRGB() {
    const float fy = (L + 16.0f) / 116.0f;
    const float fx = a / 500.0f + fy;
    const float fz = fy - b / 200.0f;
    const float x = labCube(fx) * 95.047f / 100.0f;
    const float y = labCube(fy) * 100.0f / 100.0f;
    const float z = labCube(fz) * 108.883f / 100.0f;
    return {compand(3.2406f * x - 1.5372f * y - 0.4986f * z),
            compand(-0.9689f * x + 1.8758f * y + 0.0415f * z),
            compand(0.0557f * x - 0.2040f * y + 1.0570f * z)};
}

}  // namespace ombrix::core
