#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ombrix::io::detail {

enum class ScalarType : std::uint8_t { Int8, UInt8, Int16, UInt16, Int32, UInt32, Float32, Float64 };

[[nodiscard]] constexpr std::uint32_t sizeOf(ScalarType type) {
    constexpr std::uint32_t sizes[] = {1, 1, 2, 2, 4, 4, 4, 8};
    return sizes[static_cast<std::size_t>(type)];
}

[[nodiscard]] constexpr bool isFloat(ScalarType type) {
    return type == ScalarType::Float32 || type == ScalarType::Float64;
}

/// What a column of a file means to the cloud.
enum class Role : std::uint8_t {
    X,
    Y,
    Z,
    Red,
    Green,
    Blue,
    NormalX,
    NormalY,
    NormalZ,
    Intensity,
    Field,
};

/// One value per point, at a fixed place in fixed-size records. Its value is
/// ((stored >> shift) & mask) * scale + add, the bits being taken from integers with a mask only.
struct Column {
    Role role = Role::Field;
    ScalarType type = ScalarType::Float64;
    std::uint32_t offset = 0;  ///< of the stored value in its record, in bytes
    std::string name;
    double scale = 1.0;
    double add = 0.0;
    std::uint32_t shift = 0;
    std::uint32_t mask = 0;
    bool sparse = false;  ///< left out when all values are 0
    bool rest = false;    ///< what single precision drops of the value, in place of the value
};

/// The role that a column's name stands for, whatever its case; `Role::Field` when it is none of the known.
[[nodiscard]] Role roleOf(std::string_view name);

/// Makes columns that do not form whole triples of colours or normals, or repeat a role, fields of their
/// name. Returns whether x, y and z are there.
[[nodiscard]] bool settleRoles(std::vector<Column>& columns);

template <std::size_t N>
struct UnsignedOf;
template <>
struct UnsignedOf<2> {
    using type = std::uint16_t;
};
template <>
struct UnsignedOf<4> {
    using type = std::uint32_t;
};
template <>
struct UnsignedOf<8> {
    using type = std::uint64_t;
};

[[nodiscard]] constexpr std::uint16_t reversed(std::uint16_t v) {
    return static_cast<std::uint16_t>(v << 8 | v >> 8);
}
[[nodiscard]] constexpr std::uint32_t reversed(std::uint32_t v) {
    return std::uint32_t{reversed(static_cast<std::uint16_t>(v))} << 16 |
           reversed(static_cast<std::uint16_t>(v >> 16));
}
[[nodiscard]] constexpr std::uint64_t reversed(std::uint64_t v) {
    return std::uint64_t{reversed(static_cast<std::uint32_t>(v))} << 32 |
           reversed(static_cast<std::uint32_t>(v >> 32));
}

/// The value at an address of any alignment.
template <class T, bool Swap = false>
[[nodiscard]] T load(const unsigned char* at) {
    if constexpr (Swap && sizeof(T) > 1) {
        typename UnsignedOf<sizeof(T)>::type bits;
        std::memcpy(&bits, at, sizeof bits);
        return std::bit_cast<T>(reversed(bits));
    } else {
        T value;
        std::memcpy(&value, at, sizeof value);
        return value;
    }
}

/// The value that a little-endian file has at an address.
template <class T>
[[nodiscard]] T loadLittle(const unsigned char* at) {
    return load<T, std::endian::native == std::endian::big>(at);
}

/// Calls visit.template operator()<T, Swap>() for the type and byte order of a column.
template <class Visitor>
decltype(auto) withType(ScalarType type, bool swap, Visitor&& visit) {
    const auto call = [&]<class T>() -> decltype(auto) {
        return swap ? visit.template operator()<T, true>() : visit.template operator()<T, false>();
    };
    switch (type) {
        case ScalarType::Int8:
            return visit.template operator()<std::int8_t, false>();
        case ScalarType::UInt8:
            return visit.template operator()<std::uint8_t, false>();
        case ScalarType::Int16:
            return call.template operator()<std::int16_t>();
        case ScalarType::UInt16:
            return call.template operator()<std::uint16_t>();
        case ScalarType::Int32:
            return call.template operator()<std::int32_t>();
        case ScalarType::UInt32:
            return call.template operator()<std::uint32_t>();
        case ScalarType::Float32:
            return call.template operator()<float>();
        case ScalarType::Float64:
            break;
    }
    return call.template operator()<double>();
}

}  // namespace ombrix::io::detail
