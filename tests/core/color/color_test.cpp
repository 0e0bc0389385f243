#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include <ombrix/core/color/color.h>

namespace {

using namespace ombrix::core;

constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();

TEST(ColorChannels, WidenNarrowAndPackAsDocumented) {
    EXPECT_EQ(ColorRGB_16(std::uint8_t{255}, std::uint8_t{1}, std::uint8_t{0}),
              ColorRGB_16(std::uint16_t{65280}, std::uint16_t{256}, std::uint16_t{0}));
    for (int c = 0; c < 256; ++c) {
        const auto channel = static_cast<unsigned char>(c);
        ColorRGB color(channel, 0, channel);
        EXPECT_EQ(color.RGBtoRGB_16().r, c * 257) << c;  // 65535 / 255 = 257
        EXPECT_EQ(ColorRGB(color.RGBtoRGB_16()), color);
        EXPECT_EQ(ColorRGB(ColorRGB_16(channel, 0, channel)), color);
        EXPECT_EQ(color.RGBtoRGB_F().RGBFloatTo24().r, channel) << "k / 255 * 255 must not lose a step";
    }
    ColorRGB_565 white(255, 255, 255);
    EXPECT_EQ(white.value, 0xFFFF);
    EXPECT_EQ(white.RGB_565toRGB(), ColorRGB(248, 252, 248));
    EXPECT_EQ(ColorRGB(0x12, 0x34, 0x56).RGBtoRGB_565().value,
              (0x12 >> 3) << 11 | (0x34 >> 2) << 5 | 0x56 >> 3);
    ColorRGB mutableColor(1, 2, 3);
    mutableColor.data()[2] = 9;
    EXPECT_EQ(mutableColor, ColorRGB(1, 2, 9));
}

TEST(ColorChannels, AreTruncatedAndWrapWithoutClamping) {
    EXPECT_EQ(ColorRGB_F(1.0f, 0.5f, 0.0f).RGBFloatTo24(), ColorRGB(255, 127, 0));
    EXPECT_EQ(ColorRGB_F(1.1f, 0.999f, -0.01f).RGBFloatTo24(), ColorRGB(24, 254, 254));
    EXPECT_EQ(ColorRGB_F(NOT_A_NUMBER, 1e30f, -1e30f).RGBFloatTo24(), ColorRGB(0, 0, 0));
}

TEST(ColorMeans, AreQuadraticFastAndArithmetic) {
    const ColorRGB black;
    const ColorRGB white(255, 255, 255);
    ColorRGB color;
    color.mean(black, white);
    EXPECT_EQ(color, ColorRGB(180, 180, 180));
    color.fast_mean(black, white);
    EXPECT_EQ(color, ColorRGB(127, 127, 127));
    color.mean({ColorRGB(1, 10, 255), ColorRGB(2, 20, 255), ColorRGB(2, 30, 255)});
    EXPECT_EQ(color, ColorRGB(1, 20, 255));
    color.mean(std::vector<ColorRGB>());
    EXPECT_EQ(color, ColorRGB(1, 20, 255));
}

TEST(ColorHsv, HasACoarseRedSectorAndExactOthers) {
    EXPECT_EQ(ColorRGB(255, 128, 0).RGBToHSV(), ColorHSV(0.0f, 1.0f, 1.0f));
    EXPECT_EQ(ColorRGB(0, 255, 0).RGBToHSV().h, 120.0f);
    EXPECT_EQ(ColorRGB(0, 0, 255).RGBToHSV().h, 240.0f);
    EXPECT_EQ(ColorRGB(255, 255, 0).RGBToHSV().h, 60.0f) << "green decides before red";
    EXPECT_EQ(ColorRGB(255, 0, 255).RGBToHSV().h, 300.0f) << "blue decides before red";
    EXPECT_EQ(ColorRGB(51, 51, 51).RGBToHSV(), ColorHSV(0.0f, 0.0f, 0.2f));
}

TEST(ColorHsv, ComesBackWithinOneStepOutsideTheRedSector) {
    for (int red = 0; red < 256; red += 15) {
        for (int green = 0; green < 256; green += 15) {
            for (int blue = 0; blue < 256; blue += 15) {
                ColorRGB color(static_cast<unsigned char>(red), static_cast<unsigned char>(green),
                               static_cast<unsigned char>(blue));
                if (red > green && red > blue) {
                    continue;
                }
                const ColorRGB back = color.RGBToHSV().HSVToRGB();
                EXPECT_NEAR(back.r, red, 1);
                EXPECT_NEAR(back.g, green, 1);
                EXPECT_NEAR(back.b, blue, 1);
            }
        }
    }
    EXPECT_EQ(ColorHSV(360.0f, 1.0f, 1.0f).HSVToRGB(), ColorRGB(255, 0, 0));
    EXPECT_EQ(ColorHSV(-10.0f, 1.0f, 1.0f).HSVToRGB(), ColorRGB());
}

void expectLab(ColorLab lab, float L, float a, float b) {
    EXPECT_NEAR(lab.L, L, 0.002f);
    EXPECT_NEAR(lab.a, a, 0.002f);
    EXPECT_NEAR(lab.b, b, 0.002f);
}

// Reference values of the sRGB primaries under D65 as published for the four-digit conversion matrix.
TEST(ColorLabConversion, AgreesWithPublishedValues) {
    expectLab(ColorRGB(255, 0, 0).RGBToLab(), 53.233f, 80.109f, 67.220f);
    expectLab(ColorRGB(0, 255, 0).RGBToLab(), 87.737f, -86.185f, 83.181f);
    expectLab(ColorRGB(0, 0, 255).RGBToLab(), 32.303f, 79.197f, -107.864f);
    expectLab(ColorRGB(255, 255, 255).RGBToLab(), 100.0f, 0.005f, -0.010f);
    expectLab(ColorRGB(0, 0, 0).RGBToLab(), 0.0f, 0.0f, 0.0f);
}

TEST(ColorLabConversion, ComesBackForBrightColours) {
    for (ColorRGB color : {ColorRGB(200, 180, 160), ColorRGB(120, 200, 220), ColorRGB(250, 240, 130)}) {
        const ColorRGB back = color.RGBToLab().LabToRGB();
        EXPECT_NEAR(back.r, color.r, 1);
        EXPECT_NEAR(back.g, color.g, 1);
        EXPECT_NEAR(back.b, color.b, 1);
    }
    EXPECT_EQ(ColorLab(50.0f, 100.0f, 0.0f).LabToRGB().g, 0) << "a negative linear channel stores 0";
}

TEST(ColorDifferences, OfCie76AreEuclidean) {
    const ColorLab a(50.0f, 3.0f, -4.0f);
    const ColorLab b(38.0f, 0.0f, 0.0f);
    EXPECT_FLOAT_EQ(a.CIE76Difference(b), 13.0f);
    EXPECT_FLOAT_EQ(a.ColorDifference(b), 13.0f);
    EXPECT_FLOAT_EQ(ColorLab(0.0f, 3.0f, 4.0f).norm(), 5.0f);
}

// Values of the documented variant, computed in double precision by a separate program.
TEST(ColorDifferences, OfCiede2000KeepTheDocumentedVariant) {
    EXPECT_NEAR(ColorLab(50, 20, 30).CIEDE2000Difference(ColorLab(60, 35, 25)), 40.84771, 1e-3);
    EXPECT_NEAR(ColorLab(40, -30, 20).CIEDE2000Difference(ColorLab(60, 25, 30)), 59.97150, 1e-3);
    EXPECT_NEAR(ColorLab(70, 10, -40).CIEDE2000Difference(ColorLab(65, 30, 20)), 34.69376, 1e-3);
    EXPECT_EQ(ColorLab(50, 20, 30).CIEDE2000Difference(ColorLab(50, 20, 30)), 0.0f);
    EXPECT_EQ(ColorLab(50, 0, 0).CIEDE2000Difference(ColorLab(50, 0, 0)), 0.0f);
}

}  // namespace
