// Sequences of changes to a colour map and look-ups in it.

#include <algorithm>
#include <cmath>
#include <cstring>

#include <ombrix/core/color/color_map.h>

#include "fuzz/fuzz_support.h"

namespace {

using namespace ombrix;
using fuzz::require;

bool within(float value, float low, float high) {
    const float slack = 1e-5f * std::max({1.0f, std::abs(low), std::abs(high)});
    return value >= low - slack && value <= high + slack;
}

/// @param flat  whether the boundaries are equal.
void requireLookups(const core::ColorMap& map, float x, bool flat) {
    const float t = map.relative_pos(x);
    require(std::isnan(t) || (t >= 0.0f && t <= 1.0f), "a relative position");
    const auto entry = static_cast<unsigned int>(std::isnan(t) ? 0.0f : t * (core::ColorMap::MAX_STEPS - 1));
    const auto isEntry = [&](const core::ColorRGB_F& color, unsigned int k) {
        const core::ColorRGB_F expected = map.color(k);
        // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): the same bits, NaN among them
        return std::memcmp(&color, &expected, sizeof expected) == 0;
    };
    require(isEntry(map.color_absolute(x), flat ? 0 : entry), "a value's colour");
    require(isEntry(map.color_relative(t), entry), "a position's colour");
    require(!std::isnan(x) || map.color_threshold(x) == 0, "NaN is outside");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::quietSingleThread();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const auto color = [&] {
        const core::Vector3f c = input.vector();
        return core::ColorRGB_F(c.x(), c.y(), c.z());
    };
    core::ColorMap map;
    std::size_t points = 0;
    // Control points inserted through the map never share a position; red is the one checked
    float low = std::numeric_limits<float>::infinity();
    float high = -low;
    bool finite = true;
    bool flat = false;
    const auto insert = [&](float position, bool update) {
        const core::ColorRGB_F c = color();
        bool known = false;
        for (unsigned int i = 0; i < points; ++i) {
            known = known || map.step(i).position == position;
        }
        map.insert({position, c}, update);
        points += known ? 0 : 1;
        finite =
            finite && std::isfinite(c.r) && std::abs(c.r) < 1e30f && position >= 0.0f && position <= 1.0f;
        low = std::min(low, c.r);
        high = std::max(high, c.r);
    };
    while (!input.empty()) {
        switch (input.below(7)) {
            case 0:
                insert(input.number(), input.flag());
                break;
            case 1:
                insert(input.flag() ? 1.0f : 0.0f, true);
                break;
            case 2:
                if (points > 0) {
                    map.remove(input.below(static_cast<unsigned int>(points)));
                    --points;
                }
                break;
            case 3: {
                const float from = input.number();
                const float to = input.number();
                map.set_boundaries(from, to);
                flat = from == to;
                break;
            }
            case 4: {
                std::vector<float> records(std::size_t{4} * input.below(8));
                for (float& value : records) {
                    value = input.number();
                }
                map.set_colors(static_cast<int>(records.size() / 4), records.data());
                points = 0;
                finite = false;  // how many are kept depends on equal positions
                map.clear();
                break;
            }
            case 5:
                map.set_colors(static_cast<core::DEFAULT_COLORMAP>(input.below(9) % 7));
                map.clear();
                points = 0;
                low = high = 0.0f;
                finite = true;
                break;
            default:
                map.update();
        }
        requireLookups(map, input.number(), flat);
    }
    map.update();
    if (finite && points > 0) {
        for (unsigned int k = 0; k < core::ColorMap::MAX_STEPS; ++k) {
            const float red = map.color(k).r;
            require(within(red, std::min(low, 0.0f), std::max(high, 0.0f)),
                    "colours between the control points'");
        }
        if (points > 1 && map.step(0).position == 0.0f &&
            map.step(static_cast<unsigned int>(points) - 1).position == 1.0f) {
            require(map.color(0).r == map.step(0).color.r, "the table begins with the first colour");
        }
    }
    return 0;
}
