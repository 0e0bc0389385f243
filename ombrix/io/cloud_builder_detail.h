#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include <ombrix/io/color_depth_detail.h>
#include <ombrix/io/column_detail.h>
#include <ombrix/io/read_points.h>

namespace ombrix::io::detail {

/// Where the records come from, as far as it changes what their values mean.
struct RecordTraits {
    bool swapped = false;     ///< stored in the other byte order than the machine's
    bool exactFloats = true;  ///< whether Float32 coordinates are all that the file has
    ColorDepth::Kind colors = ColorDepth::Kind::Integer;
};

/// Three columns that become one field of `Vector3f`, or of `Vector3d`.
struct VectorColumns {
    std::string name;
    bool isDouble = false;
    std::array<Column, 3> columns;
};

/// Makes a cloud out of records, column by column.
class CloudBuilder {
public:
    /// The columns must have passed `settleRoles`.
    CloudBuilder(const std::vector<Column>& columns, const std::vector<VectorColumns>& vectors,
                 RecordTraits traits, const ReadOptions& options);

    /// Announces the number of points, which the file must have been seen to hold.
    void expect(std::uint64_t points);

    /// Appends the points of `count` records of `stride` bytes.
    void append(const unsigned char* records, std::size_t stride, std::size_t count);

    [[nodiscard]] std::uint64_t size() const { return file_.cloud.size(); }

    /// The file without its format; the builder is used up.
    [[nodiscard]] PointFile finish();

private:
    struct Axis {
        double lower;
        double upper;
        std::optional<double> shift;
    };
    struct ScalarField {
        Column column;
        std::vector<float>* values = nullptr;  // null until a sparse column has a value
    };
    struct VectorField {
        std::array<Column, 3> columns;
        std::vector<core::Vector3f>* floats = nullptr;  // one of the two
        std::vector<core::Vector3d>* doubles = nullptr;
    };

    void appendBlock(const unsigned char* records, std::size_t stride, std::size_t count);
    void appendAxis(int axis, const unsigned char* records, std::size_t stride, std::size_t count);
    void appendColors(const unsigned char* records, std::size_t stride, std::size_t count);
    void appendField(ScalarField& field, std::span<const float> block);
    template <class Vector>
    void appendVectors(const std::array<Column, 3>& columns, std::vector<Vector>& out,
                       const unsigned char* records, std::size_t stride, std::size_t count) const;
    void addVectors(const VectorColumns& vectors);
    void activate(ScalarField& field);
    [[nodiscard]] std::string freeName(const std::string& wanted);

    RecordTraits traits_;
    std::uint64_t expected_ = 0;
    std::array<Column, 3> position_;
    std::array<Axis, 3> axes_;
    std::array<Column, 3> color_;
    std::optional<Column> intensity_;
    std::vector<ScalarField> fields_;
    std::vector<VectorField> vectors_;
    std::unordered_map<std::string, unsigned int> lastNumbers_;  // behind names that come again
    ColorDepth depth_;
    std::vector<float> scratch_;  // three values for each record of a block
    PointFile file_;
};

}  // namespace ombrix::io::detail
