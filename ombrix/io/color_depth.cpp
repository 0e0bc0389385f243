#include <algorithm>
#include <cmath>

#include <ombrix/io/color_depth_detail.h>

namespace ombrix::io::detail {

namespace {

void mapChannels(std::span<core::ColorRGB> colors, auto&& map) {
    for (core::ColorRGB& color : colors) {
        color = {map(color.r), map(color.g), map(color.b)};
    }
}

// Channels that were taken for 0 to 1 and scaled by 255 become what they are as integers.
std::uint8_t unitToByte(std::uint8_t channel) {
    return channel >= 128 ? 1 : 0;
}

}  // namespace

void ColorDepth::observe(std::span<const float> values, std::span<core::ColorRGB> earlier) {
    float largest = 0.0f;
    for (const float value : values) {
        largest = value > largest ? value : largest;
    }
    if (kind_ == Kind::Text && !fraction_) {
        fraction_ = std::ranges::any_of(values, [](float v) { return v != std::trunc(v); });
    }
    if (largest > 255.0f && depth_ != Depth::Wide) {
        depth_ = Depth::Wide;
        std::ranges::fill(earlier, core::ColorRGB{});  // all were below 256: their high byte is 0
    } else if (largest > 1.0f && depth_ == Depth::Unit) {
        depth_ = Depth::Byte;
        mapChannels(earlier, unitToByte);
    }
}

void ColorDepth::convert(std::span<const float> values, core::ColorRGB* colors, int channel) const {
    const auto write = [&](auto&& byteOf) {
        for (std::size_t i = 0; i < values.size(); ++i) {
            colors[i].data()[channel] = byteOf(values[i] > 0.0f ? values[i] : 0.0f);  // NaN is 0
        }
    };
    // NOLINTBEGIN(bugprone-incorrect-roundings): the values are not negative
    switch (depth_) {
        case Depth::Unit:
            write([](float v) { return static_cast<std::uint8_t>(v * 255.0f + 0.5f); });
            break;
        case Depth::Byte:
            write([](float v) { return static_cast<std::uint8_t>(v + 0.5f); });
            break;
        case Depth::Wide:
            write([](float v) {
                return static_cast<std::uint8_t>(static_cast<std::uint32_t>(std::min(v, 65535.0f)) >> 8);
            });
            break;
    }
    // NOLINTEND(bugprone-incorrect-roundings)
}

void ColorDepth::finish(std::span<core::ColorRGB> all) const {
    if (kind_ == Kind::Text && depth_ == Depth::Unit && !fraction_) {
        mapChannels(all, unitToByte);
    }
}

}  // namespace ombrix::io::detail
