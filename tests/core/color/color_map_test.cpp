#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include <ombrix/core/color/color_map.h>

#include "tests/support/streams.h"

namespace ombrix::test {
namespace {

using namespace ombrix::core;

const ColorRGB_F BLACK(0.0f, 0.0f, 0.0f);
const ColorRGB_F WHITE(1.0f, 1.0f, 1.0f);
const ColorRGB_F RED(1.0f, 0.0f, 0.0f);
const ColorRGB_F GREEN(0.0f, 1.0f, 0.0f);
const ColorRGB_F BLUE(0.0f, 0.0f, 1.0f);
constexpr const char* WARNING = "WARNING ColorMap invalide interval\n";

void expectNear(const ColorRGB_F& a, const ColorRGB_F& b, float tolerance) {
    EXPECT_LE(std::max({std::abs(a.r - b.r), std::abs(a.g - b.g), std::abs(a.b - b.b)}), tolerance);
}

TEST(ColorMap, IsBlackUntilUpdated) {
    ColorMap empty;
    EXPECT_EQ(empty.color_absolute(0.7f), BLACK);
    ColorMap map(0.0f, 10.0f, RED, BLUE);
    EXPECT_EQ(map.color(1023), BLACK);
    map.update();
    expectNear(map.color_absolute(5.0f), {512.0f / 1023.0f, 0.0f, 511.0f / 1023.0f}, 1e-6f);
    EXPECT_EQ(map.color_absolute(-1.0f), RED);
    EXPECT_EQ(map.color_absolute(11.0f), BLUE);
    EXPECT_EQ(map.color_relative(1.0f), BLUE);
    EXPECT_EQ(map.relative_pos(2.5f), 0.25f);
    map.clear();
    EXPECT_EQ(map.color(512), BLACK);
}

TEST(ColorMap, ThresholdAndScalarsWithoutAPlace) {
    ColorMap map(-2.0f, 3.0f, RED, BLUE);
    map.update();
    EXPECT_EQ(map.color_threshold(3.0f), 255);
    EXPECT_EQ(map.color_threshold(std::nextafter(3.0f, 4.0f)), 0);
    EXPECT_EQ(map.color_threshold(-2.0f), 255);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(map.color_threshold(nan), 0);
    EXPECT_EQ(map.color_absolute(nan), RED);
    map.set_boundaries(4.0f, 4.0f);
    for (const float x : {3.0f, 4.0f, 5.0f}) {
        EXPECT_EQ(map.color_absolute(x), RED);
    }
}

TEST(ColorMap, InsertingAtTheSamePositionReplacesAndUpdates) {
    ColorMap map;
    map.insert({1.0f, BLUE}, false);
    map.insert({0.0f, RED}, false);
    EXPECT_EQ(map.color(0), BLACK);
    EXPECT_EQ(map.step(0).position, 1.0f) << "in order of insertion";
    map.insert({0.0f, GREEN}, false);
    EXPECT_EQ(map.color(0), GREEN) << "updated although not asked to";
    EXPECT_EQ(map.step(0).position, 0.0f) << "sorted by the update";
    map.insert({0.5f, RED}, true);
    expectNear(map.color_relative(0.5f), RED, 0.002f);
    map.remove(1);
    expectNear(map.color_relative(0.5f), {0.0f, 0.5f, 0.5f}, 0.001f);
    map.remove(0);
    EXPECT_EQ(map.color(0), BLUE) << "a single colour fills the table";
}

TEST(ColorMap, IncompleteIntervalsKeepTheTable) {
    ColorMap map;
    map.set_colors(GRAY);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float incomplete[][4] = {{0.2f, 1.0f}, {0.0f, 0.9f}, {0.0f, nan}, {nan, 1.0f}};
    for (const float* positions : incomplete) {
        ColorMap broken = map;
        broken.step(0).position = positions[0];
        broken.step(1).position = positions[1];
        EXPECT_EQ(printedBy([&] { broken.update(); }), WARNING);
        EXPECT_EQ(broken.color(1023), WHITE);
    }
}

TEST(ColorMap, RecordsBecomeSegments) {
    const float records[] = {1.0f,  0.0f, 0.0f, 1.0f,  //
                             0.0f,  1.0f, 0.0f, 0.0f,  //
                             0.25f, 0.0f, 1.0f, 0.0f};
    ColorMap map;
    map.set_colors(3, records);
    for (unsigned int k = 0; k < ColorMap::MAX_STEPS; ++k) {
        const float t = static_cast<float>(k) / 1023.0f;
        const float w = t <= 0.25f ? t / 0.25f : (t - 0.25f) / 0.75f;
        expectNear(map.color(k), t <= 0.25f ? ColorRGB_F(1 - w, w, 0) : ColorRGB_F(0, 1 - w, w), 1e-6f);
    }
    map.set_colors(0, records);
    EXPECT_EQ(map.color(700), BLACK);
}

TEST(ColorMap, FixedMaps) {
    ColorMap map;
    map.set_colors(GRAY);
    for (unsigned int k = 0; k < ColorMap::MAX_STEPS; ++k) {
        const float grey = static_cast<float>(k) / 1023.0f;
        ASSERT_EQ(map.color(k), ColorRGB_F(grey, grey, grey));
    }
    map.set_colors(static_cast<DEFAULT_COLORMAP>(7));
    EXPECT_EQ(map.color(1023), WHITE) << "no such map, no change";
    ColorMap reversed;
    reversed.set_colors(RAINBOW_REVERSED);
    map.set_colors(RAINBOW);
    const ColorRGB_F rainbow[] = {BLUE, GREEN, {1.0f, 1.0f, 0.0f}, RED};
    for (unsigned int i = 0; i < 4; ++i) {
        expectNear(map.color(341 * i), rainbow[i], 1e-6f);
        expectNear(reversed.color(341 * i), rainbow[3 - i], 1e-6f);
    }
}

TEST(ColorMap, PublishedTables) {
    struct Published {
        DEFAULT_COLORMAP map;
        ColorRGB_F first, last;
    };
    const Published maps[] = {
        {VIRIDIS, {0.267004f, 0.004874f, 0.329415f}, {0.993248f, 0.906157f, 0.143936f}},
        {MAGMA, {0.001462f, 0.000466f, 0.013866f}, {0.987053f, 0.991438f, 0.749504f}},
        {PLASMA, {0.050383f, 0.029803f, 0.527975f}, {0.940015f, 0.975158f, 0.131326f}},
        {INFERNO, {0.001462f, 0.000466f, 0.013866f}, {0.988362f, 0.998364f, 0.644924f}}};
    ColorMap map;
    for (const Published& published : maps) {
        EXPECT_EQ(printedBy([&] { map.set_colors(published.map); }), "");
        EXPECT_EQ(map.color(0), published.first);
        expectNear(map.color(1023), published.last, 1e-6f);
        // Perceptually uniform: lightness rises throughout.
        float before = -1.0f;
        for (unsigned int k = 0; k < ColorMap::MAX_STEPS; k += 64) {
            ColorRGB_F color = map.color(k);
            const float lightness = color.RGBFloatTo24().RGBToLab().L;
            EXPECT_GT(lightness, before);
            before = lightness;
        }
    }
}

}  // namespace
}  // namespace ombrix::test
