#include <algorithm>
#include <utility>

#include <ombrix/io/ply_columns_detail.h>

namespace ombrix::io::detail {

namespace {

Column* findField(std::vector<Column>& columns, const std::string& name) {
    const auto it = std::ranges::find_if(
        columns, [&](const Column& c) { return c.role == Role::Field && c.name == name; });
    return it == columns.end() ? nullptr : &*it;
}

// Takes three columns that a note calls a vector out of the list.
void takeVector(const PlyFieldNote& note, PlyColumns& out) {
    const char* endings[] = {"_x", "_y", "_z"};
    VectorColumns vector{note.name, note.kind == "vector3d", {}};
    for (std::size_t i = 0; i < 3; ++i) {
        const Column* column = findField(out.columns, note.property + endings[i]);
        if (column == nullptr) {
            return;
        }
        vector.columns[i] = *column;
    }
    std::erase_if(out.columns, [&](const Column& c) {
        return std::ranges::any_of(vector.columns, [&](const Column& v) { return v.offset == c.offset; });
    });
    out.vectors.push_back(std::move(vector));
}

}  // namespace

PlyColumns plyColumns(const PlyHeader& header, const PlyElement& element) {
    PlyColumns out;
    bool realColors = false;
    for (const PlyProperty& property : element.properties) {
        if (property.isList) {
            continue;
        }
        Column column;
        column.role = roleOf(property.name);
        column.name = property.name;
        column.type = header.ascii ? ScalarType::Float64 : property.type;
        column.offset = out.stride;
        out.stride += sizeOf(column.type);
        realColors = realColors || (column.role == Role::Red && isFloat(property.type));
        out.columns.push_back(std::move(column));
    }
    out.hasPositions = settleRoles(out.columns);
    out.traits.exactFloats = !header.ascii;
    out.traits.swapped = !header.ascii && header.order != std::endian::native;
    out.traits.colors = realColors ? ColorDepth::Kind::Real : ColorDepth::Kind::Integer;
    for (const PlyFieldNote& note : header.notes) {
        if (note.kind != "float") {
            takeVector(note, out);
        } else if (Column* column = findField(out.columns, note.property)) {
            column->name = note.name;
        }
    }
    return out;
}

}  // namespace ombrix::io::detail
