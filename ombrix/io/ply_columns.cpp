#include <array>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <ombrix/io/ply_columns_detail.h>

namespace ombrix::io::detail {

namespace {

// What the notes of a header say about the columns that are fields.
class Notes {
public:
    explicit Notes(PlyColumns& out) : out_(out), taken_(out.columns.size()) {
        for (std::size_t i = 0; i < out.columns.size(); ++i) {
            if (out.columns[i].role == Role::Field) {
                fields_.emplace(out.columns[i].name, i);
            }
        }
    }

    void apply(const PlyFieldNote& note) {
        if (note.kind != "float") {
            takeVector(note);
        } else if (const auto field = fields_.find(note.property); field != fields_.end()) {
            out_.columns[field->second].name = note.name;
            fields_.erase(field);
        }
    }

    // Drops the columns that have become parts of vectors.
    void finish() {
        std::vector<Column> kept;
        for (std::size_t i = 0; i < out_.columns.size(); ++i) {
            if (!taken_[i]) {
                kept.push_back(std::move(out_.columns[i]));
            }
        }
        out_.columns = std::move(kept);
    }

private:
    void takeVector(const PlyFieldNote& note) {
        VectorColumns vector{note.name, note.kind == "vector3d", {}};
        const std::array<std::string, 3> names = {note.property + "_x", note.property + "_y",
                                                  note.property + "_z"};
        for (std::size_t i = 0; i < 3; ++i) {
            const auto field = fields_.find(names[i]);
            if (field == fields_.end()) {
                return;
            }
            vector.columns[i] = out_.columns[field->second];
        }
        for (const std::string& name : names) {
            taken_[fields_.at(name)] = true;
            fields_.erase(name);
        }
        out_.vectors.push_back(std::move(vector));
    }

    PlyColumns& out_;
    std::unordered_map<std::string, std::size_t> fields_;  // by property, the first of each name
    std::vector<bool> taken_;
};

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
    Notes notes(out);
    for (const PlyFieldNote& note : header.notes) {
        notes.apply(note);
    }
    notes.finish();
    return out;
}

}  // namespace ombrix::io::detail
