#pragma once

#include <cstdint>

#include <ombrix/core/color/color.h>
#include <ombrix/core/types.h>

namespace ombrix::core {

/// One point copied out of a cloud, or to be copied into one, in single precision.
struct Point {
    static constexpr std::uint8_t HAS_NORMAL = 1;    ///< `normal` is valid
    static constexpr std::uint8_t HAS_DISTANCE = 2;  ///< `distance` is valid
    static constexpr std::uint8_t HAS_AMBIENT = 4;   ///< `ambient` is valid

    std::uint64_t index = 0;               ///< in the cloud the point was read from
    Vector3f position = Vector3f::Zero();  ///< as in the cloud
    ColorRGB color;                        ///< black without one
    float scalar = 0.0f;                   ///< zero without one
    Vector3f normal = Vector3f::Zero();    ///< zero without the field
    float distance = 0.0f;                 ///< zero without the field
    float ambient = 0.0f;                  ///< zero without the field
    std::uint8_t flags = 0;                ///< which of the three optional values are valid
};

/// One point copied out of a cloud in double precision, with 16-bit colours (255 widened to 65535).
struct Pointd {
    /// As those of `Point`.
    static constexpr std::uint8_t HAS_NORMAL = Point::HAS_NORMAL;
    static constexpr std::uint8_t HAS_DISTANCE = Point::HAS_DISTANCE;
    static constexpr std::uint8_t HAS_AMBIENT = Point::HAS_AMBIENT;

    /// As the member of that name in `Point`.
    std::uint64_t index = 0;
    Vector3d position = Vector3d::Zero();
    ColorRGB_16 color;
    double scalar = 0.0;
    Vector3d normal = Vector3d::Zero();
    double distance = 0.0;
    double ambient = 0.0;
    std::uint8_t flags = 0;
};

}  // namespace ombrix::core
