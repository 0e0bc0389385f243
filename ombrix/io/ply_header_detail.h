#pragma once

#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include <ombrix/io/column_detail.h>
#include <ombrix/io/line_reader_detail.h>

namespace ombrix::io::detail {

struct PlyProperty {
    std::string name;
    ScalarType type = ScalarType::Float32;  ///< of the value, or of a list's items
    bool isList = false;
    ScalarType countType = ScalarType::UInt8;
};

struct PlyElement {
    std::string name;
    std::uint64_t count = 0;
    std::vector<PlyProperty> properties;

    [[nodiscard]] bool hasLists() const;
    /// Bytes of a binary record's scalars and of its lists' counts: its size when all lists are empty.
    [[nodiscard]] std::uint64_t leastSize() const;
};

/// A field that `writePly` described in a comment: the properties that hold it, and what they were.
struct PlyFieldNote {
    std::string property;
    std::string kind;  ///< "float", "vector3f" or "vector3d"
    std::string name;
};

struct PlyHeader {
    bool ascii = false;
    std::endian order = std::endian::little;  ///< of binary data
    std::vector<PlyElement> elements;
    std::vector<PlyFieldNote> notes;
};

inline constexpr std::string_view PLY_FIELD_NOTE = "ombrix-field";

/// Reads the lines up to and with "end_header".
/// Source: Turk, "The PLY Polygon File Format", 1994.
[[nodiscard]] PlyHeader readPlyHeader(LineReader& lines);

}  // namespace ombrix::io::detail
