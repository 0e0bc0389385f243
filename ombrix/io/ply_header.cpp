#include <algorithm>
#include <charconv>
#include <string>
#include <unordered_set>
#include <utility>

#include <ombrix/io/number_text_detail.h>
#include <ombrix/io/ply_header_detail.h>

namespace ombrix::io::detail {

namespace {

// Longer headers are no headers.
constexpr std::uint64_t LONGEST_HEADER = std::uint64_t{16} << 20;

constexpr std::pair<std::string_view, ScalarType> TYPES[] = {
    {"char", ScalarType::Int8},      {"int8", ScalarType::Int8},       {"uchar", ScalarType::UInt8},
    {"uint8", ScalarType::UInt8},    {"short", ScalarType::Int16},     {"int16", ScalarType::Int16},
    {"ushort", ScalarType::UInt16},  {"uint16", ScalarType::UInt16},   {"int", ScalarType::Int32},
    {"int32", ScalarType::Int32},    {"uint", ScalarType::UInt32},     {"uint32", ScalarType::UInt32},
    {"float", ScalarType::Float32},  {"float32", ScalarType::Float32}, {"double", ScalarType::Float64},
    {"float64", ScalarType::Float64}};

ScalarType typeOf(std::string_view name, const LineReader& lines) {
    for (const auto& [known, type] : TYPES) {
        if (name == known) {
            return type;
        }
    }
    lines.fail("no scalar type: " + inQuotes(name));
}

void readFormat(std::string_view text, PlyHeader& header, const LineReader& lines) {
    const std::string_view format = takeWord(text);
    const std::string_view version = takeWord(text);
    if (version != "1.0") {
        lines.fail("no known PLY version: " + inQuotes(version));
    }
    if (format == "ascii") {
        header.ascii = true;
    } else if (format == "binary_big_endian") {
        header.order = std::endian::big;
    } else if (format != "binary_little_endian") {
        lines.fail("no known PLY format: " + inQuotes(format));
    }
}

PlyElement readElement(std::string_view text, std::unordered_set<std::string>& names,
                       const LineReader& lines) {
    PlyElement element;
    element.name = takeWord(text);
    const std::string_view count = takeWord(text);
    const auto [stop, code] = std::from_chars(count.data(), count.data() + count.size(), element.count);
    if (count.empty() || code != std::errc() || stop != count.data() + count.size()) {
        lines.fail("no count of elements: " + inQuotes(count));
    }
    if (!names.insert(element.name).second) {
        lines.fail("the element " + inQuotes(element.name) + " is there twice");
    }
    return element;
}

PlyProperty readProperty(std::string_view text, const LineReader& lines) {
    PlyProperty property;
    std::string_view type = takeWord(text);
    if (type == "list") {
        property.isList = true;
        property.countType = typeOf(takeWord(text), lines);
        if (isFloat(property.countType)) {
            lines.fail("a list's count must be of an integer type");
        }
        type = takeWord(text);
    }
    property.type = typeOf(type, lines);
    property.name = takeWord(text);
    if (property.name.empty()) {
        lines.fail("a property without a name");
    }
    return property;
}

void readComment(std::string_view text, PlyHeader& header) {
    if (takeWord(text) != PLY_FIELD_NOTE) {
        return;
    }
    PlyFieldNote note;
    note.property = takeWord(text);
    note.kind = takeWord(text);
    note.name = text.substr(std::min<std::size_t>(1, text.size()));  // the rest, behind one blank
    header.notes.push_back(std::move(note));
}

}  // namespace

bool PlyElement::hasLists() const {
    return std::ranges::any_of(properties, &PlyProperty::isList);
}

std::uint64_t PlyElement::leastSize() const {
    std::uint64_t bytes = 0;
    for (const PlyProperty& property : properties) {
        bytes += sizeOf(property.isList ? property.countType : property.type);
    }
    return bytes;
}

PlyHeader readPlyHeader(LineReader& lines) {
    PlyHeader header;
    std::string_view text;
    if (!lines.next(text) || takeWord(text) != "ply") {
        lines.fail("the first line is not 'ply'");
    }
    bool hasFormat = false;
    std::unordered_set<std::string> names;
    while (lines.offset() < LONGEST_HEADER && lines.next(text)) {
        const std::string_view keyword = takeWord(text);
        if (keyword == "comment") {
            readComment(text, header);
        } else if (keyword == "obj_info" || keyword.empty()) {
            continue;
        } else if (keyword == "format") {
            readFormat(text, header, lines);
            hasFormat = true;
        } else if (keyword == "element") {
            header.elements.push_back(readElement(text, names, lines));
        } else if (keyword == "property" && !header.elements.empty()) {
            header.elements.back().properties.push_back(readProperty(text, lines));
        } else if (keyword == "end_header") {
            if (!hasFormat) {
                lines.fail("the header has no line 'format'");
            }
            return header;
        } else {
            lines.fail("no header line: " + inQuotes(keyword));
        }
    }
    lines.fail("the header has no line 'end_header'");
}

}  // namespace ombrix::io::detail
