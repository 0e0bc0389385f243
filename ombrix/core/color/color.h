#pragma once

#include <cstdint>
#include <vector>

#include <ombrix/core/core_export.h>

/// Plain colour values and the conversions between them.
///
/// Wherever a float becomes an 8-bit or 16-bit channel, the value is truncated towards zero to a signed
/// 32-bit integer whose low 8 (16) bits are stored: no rounding, no clamping, on purpose. A channel of 1.0
/// stores 255, 0.999 stores 254, 1.1 wraps to 24; NaN and values that no 32-bit integer holds store 0.
/// Callers keep their inputs in range.
namespace ombrix::core {

struct ColorHSV;
struct ColorLab;
struct ColorRGB_16;
struct ColorRGB_565;
struct ColorRGB_F;

/// Three 8-bit channels, 0 to 255: the colour that a point cloud stores per point, 3 bytes.
struct OMBRIX_CORE_API ColorRGB {
    std::uint8_t r = 0;  ///< red
    std::uint8_t g = 0;  ///< green
    std::uint8_t b = 0;  ///< blue

    ColorRGB() = default;
    /// Takes the channels as they are.
    ColorRGB(unsigned char red, unsigned char green, unsigned char blue) : r(red), g(green), b(blue) {}
    /// The high byte of each channel, not rounded.
    ColorRGB(const ColorRGB_16& color);

    /// The three channels as an array.
    [[nodiscard]] std::uint8_t* data() { return &r; }
    [[nodiscard]] const std::uint8_t* data() const { return &r; }

    /// Channels / 255, in [0, 1].
    [[nodiscard]] ColorRGB_F RGBtoRGB_F();
    /// Channels / 255 * 65535, truncated: 255 gives 65535 and 1 gives 257.
    [[nodiscard]] ColorRGB_16 RGBtoRGB_16();
    /// The five, six and five high bits of the channels.
    [[nodiscard]] ColorRGB_565 RGBtoRGB_565();

    /// Hue in degrees, saturation and value in [0, 1].
    ///
    /// The red sector is coarse on purpose: every colour whose largest channel is red alone has hue 0.
    /// Where two channels are largest, blue decides before green and green before red.
    [[nodiscard]] ColorHSV RGBToHSV();

    /// CIE L*a*b* under D65 (95.047, 100, 108.883), sRGB companding.
    /// Source: IEC 61966-2-1 and CIE 15.
    [[nodiscard]] ColorLab RGBToLab();

    /// Becomes the quadratic mean per channel: sqrt((c1² + c2²) >> 1), truncated.
    void mean(const ColorRGB& first, const ColorRGB& second);
    /// Becomes (c1 + c2) >> 1 per channel.
    void fast_mean(const ColorRGB& first, const ColorRGB& second);
    /// Becomes the arithmetic mean per channel, truncated; unchanged when `colors` is empty.
    void mean(const std::vector<ColorRGB>& colors);

    friend bool operator==(const ColorRGB&, const ColorRGB&) = default;
};

/// Three 8-bit channels and opacity, 4 bytes.
struct ColorRGBA {
    std::uint8_t r = 0;  ///< red
    std::uint8_t g = 0;  ///< green
    std::uint8_t b = 0;  ///< blue
    std::uint8_t a = 0;  ///< opacity

    ColorRGBA() = default;
    /// Takes the channels as they are.
    ColorRGBA(unsigned char red, unsigned char green, unsigned char blue, unsigned char alpha)
        : r(red), g(green), b(blue), a(alpha) {}
    ColorRGBA(const ColorRGB& color, unsigned char alpha) : r(color.r), g(color.g), b(color.b), a(alpha) {}

    friend bool operator==(const ColorRGBA&, const ColorRGBA&) = default;
};

/// Three 16-bit channels, 0 to 65535, 6 bytes.
struct ColorRGB_16 {
    std::uint16_t r = 0;  ///< red
    std::uint16_t g = 0;  ///< green
    std::uint16_t b = 0;  ///< blue

    ColorRGB_16() = default;
    /// Takes the channels as they are.
    ColorRGB_16(unsigned short red, unsigned short green, unsigned short blue) : r(red), g(green), b(blue) {}
    /// Each channel shifted left by 8: 255 becomes 65280, unlike `ColorRGB::RGBtoRGB_16`.
    ColorRGB_16(unsigned char red, unsigned char green, unsigned char blue)
        : r(static_cast<std::uint16_t>(red << 8)),
          g(static_cast<std::uint16_t>(green << 8)),
          b(static_cast<std::uint16_t>(blue << 8)) {}

    /// The three channels as an array.
    [[nodiscard]] std::uint16_t* data() { return &r; }
    [[nodiscard]] const std::uint16_t* data() const { return &r; }

    friend bool operator==(const ColorRGB_16&, const ColorRGB_16&) = default;
};

/// One packed word: red in bits 15 to 11, green in bits 10 to 5, blue in bits 4 to 0.
struct OMBRIX_CORE_API ColorRGB_565 {
    std::uint16_t value = 0;  ///< the packed word

    ColorRGB_565() = default;
    /// The five, six and five high bits of the channels.
    ColorRGB_565(unsigned char red, unsigned char green, unsigned char blue)
        : value(static_cast<std::uint16_t>((red >> 3) << 11 | (green & 0xFC) << 3 | blue >> 3)) {}

    /// The low bits of each channel stay zero, so white unpacks to (248, 252, 248).
    [[nodiscard]] ColorRGB RGB_565toRGB();

    friend bool operator==(const ColorRGB_565&, const ColorRGB_565&) = default;
};

/// Three float channels, nominally 0 to 1.
struct OMBRIX_CORE_API ColorRGB_F {
    float r = 0.0f;  ///< red
    float g = 0.0f;  ///< green
    float b = 0.0f;  ///< blue

    ColorRGB_F() = default;
    /// Takes the channels as they are.
    ColorRGB_F(float red, float green, float blue) : r(red), g(green), b(blue) {}

    /// Channels * 255, truncated.
    [[nodiscard]] ColorRGB RGBFloatTo24();

    friend bool operator==(const ColorRGB_F&, const ColorRGB_F&) = default;
};

/// Hue in degrees, nominally [0, 360); saturation and value, nominally [0, 1].
struct OMBRIX_CORE_API ColorHSV {
    float h = 0.0f;  ///< hue
    float s = 0.0f;  ///< saturation
    float v = 0.0f;  ///< value

    ColorHSV() = default;
    /// Takes the three values as they are.
    ColorHSV(float hue, float saturation, float value) : h(hue), s(saturation), v(value) {}

    /// A hue of 360 falls into the first sector; one below 0 gives black, unless the whole number below hue /
    /// 60 is a multiple of 6.
    [[nodiscard]] ColorRGB HSVToRGB();

    friend bool operator==(const ColorHSV&, const ColorHSV&) = default;
};

/// CIE L*a*b*.
struct OMBRIX_CORE_API ColorLab {
    float L = 0.0f;  ///< lightness, 0 to 100
    float a = 0.0f;  ///< green (negative) to red
    float b = 0.0f;  ///< blue (negative) to yellow

    ColorLab() = default;
    /// Takes the three values as they are.
    ColorLab(float lightness, float greenRed, float blueYellow) : L(lightness), a(greenRed), b(blueYellow) {}

    /// Inverse of `ColorRGB::RGBToLab` for colours that are neither dark nor out of gamut.
    ///
    /// On purpose the dark branches test the cube and the companded value instead of their arguments, so
    /// dark colours do not come back exactly. A negative linear component stores 0.
    [[nodiscard]] ColorRGB LabToRGB();

    /// sqrt(L² + a² + b²).
    [[nodiscard]] float norm();

    /// Euclidean distance of the two (L, a, b) triples. Source: CIE 1976.
    [[nodiscard]] float CIE76Difference(const ColorLab& other) const;
    /// The same as `CIE76Difference`.
    [[nodiscard]] float ColorDifference(const ColorLab& other) const;

    /// A variant of the CIEDE2000 difference (kL = kC = kH = 1).
    ///
    /// Not the published values: hue angles are 1 / tan(b / a') in place of the arctangent, trigonometric
    /// functions take degrees without conversion, and the hue difference is not halved. Stored thresholds
    /// depend on these values. 0 for equal colours; NaN for two greys that differ.
    [[nodiscard]] float CIEDE2000Difference(const ColorLab& other) const;

    friend bool operator==(const ColorLab&, const ColorLab&) = default;
};

}  // namespace ombrix::core
