#pragma once

#include <cstdint>
#include <span>

#include <ombrix/core/color/color.h>
#include <ombrix/io/column_detail.h>

namespace ombrix::io::detail {

/// Makes 8-bit colours of channels whose range the whole file decides: 0 to 1, to 255 or to 65535.
///
/// It starts with the smallest range that the values can have. When a larger value comes, what was
/// converted so far is rescaled, which is exact, since all of it was within the smaller range.
class ColorDepth {
public:
    /// What kind of numbers the channels are; `Text` numbers are integers until one has a fraction.
    enum class Kind : std::uint8_t { Integer, Real, Text };

    explicit ColorDepth(Kind kind) : kind_(kind), depth_(kind == Kind::Integer ? Depth::Byte : Depth::Unit) {}

    /// Takes notice of the next values (any of the three channels) and rescales the colours so far.
    void observe(std::span<const float> values, std::span<core::ColorRGB> earlier);

    /// Writes one channel of colours; all values must have been observed.
    void convert(std::span<const float> values, core::ColorRGB* colors, int channel) const;

    /// To be called once after the last value.
    void finish(std::span<core::ColorRGB> all) const;

private:
    enum class Depth : std::uint8_t { Unit, Byte, Wide };

    Kind kind_;
    Depth depth_;
    bool fraction_ = false;
};

}  // namespace ombrix::io::detail
