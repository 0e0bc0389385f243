#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <ombrix/io/output_file_detail.h>
#include <ombrix/io/ply_header_detail.h>
#include <ombrix/io/write_points.h>

namespace ombrix::io {

namespace {

using core::FieldArray;
using core::Vector3d;
using core::Vector3f;

constexpr std::size_t ROWS = 4096;

// Names that a property can have: no blanks, printable.
std::string propertyName(const std::string& name) {
    std::string out = name.empty() ? "field" : name;
    std::ranges::replace_if(
        out, [](char c) { return c <= ' ' || c > '~'; }, '_');
    return out;
}

// Names as a line of the header can keep them.
std::string oneLine(std::string name) {
    std::ranges::replace_if(
        name, [](char c) { return c == '\n' || c == '\r'; }, '_');
    return name;
}

/// Builds the header and the writers of the properties together.
class PlyLayout {
public:
    PlyLayout(const core::PointCloud& cloud, const Vector3d& shift);

    [[nodiscard]] std::string header() const;
    [[nodiscard]] std::size_t stride() const { return stride_; }
    /// Stores the properties of `count` points from `first` on.
    void store(std::uint64_t first, std::size_t count, unsigned char* rows) const;

private:
    using Store = std::function<void(std::uint64_t first, std::size_t count, unsigned char* at)>;

    void property(const char* type, const std::string& name, std::size_t bytes);
    template <class T, class Value>
    void column(std::size_t bytes, const std::vector<T>& values, Value value);
    void addField(const std::string& name, const core::FieldType& field);
    template <class Vector>
    void addVectors(const std::string& property, const std::vector<Vector>& values);
    [[nodiscard]] std::string freeName(const std::string& wanted, bool vector);

    std::uint64_t points_;
    std::string properties_;
    std::string notes_;
    std::set<std::string> names_;
    std::size_t stride_ = 0;
    std::vector<Store> stores_;
};

void PlyLayout::property(const char* type, const std::string& name, std::size_t bytes) {
    properties_ += std::string("property ") + type + " " + name + "\n";
    names_.insert(name);
    stride_ += bytes;
}

// Stores value(element, row) of each element in the last `bytes` bytes of the record so far; elements that
// the points have beyond the array's end are zero.
template <class T, class Value>
void PlyLayout::column(std::size_t bytes, const std::vector<T>& values, Value value) {
    const std::size_t offset = stride_ - bytes;
    stores_.push_back(
        [this, offset, bytes, &values, value](std::uint64_t first, std::size_t count, unsigned char* rows) {
            const std::uint64_t held = values.size() > first ? values.size() - first : 0;
            const std::size_t n = std::min<std::uint64_t>(count, held);
            unsigned char* at = rows + offset;
            for (std::size_t i = 0; i < n; ++i, at += stride_) {
                value(values[first + i], at);
            }
            for (std::size_t i = n; i < count; ++i, at += stride_) {
                std::fill_n(at, bytes, static_cast<unsigned char>(0));
            }
        });
}

PlyLayout::PlyLayout(const core::PointCloud& cloud, const Vector3d& shift) : points_(cloud.size()) {
    const bool shifted = shift != Vector3d::Zero();
    const std::size_t bytes = shifted ? sizeof(double) : sizeof(float);
    for (const char* name : {"x", "y", "z"}) {
        property(shifted ? "double" : "float", name, bytes);
    }
    if (shifted) {
        column(3 * bytes, cloud.positions(), [shift](const Vector3f& position, unsigned char* at) {
            for (Eigen::Index i = 0; i < 3; ++i) {
                detail::storeLittle(at + 8 * i, static_cast<double>(position[i]) + shift[i]);
            }
        });
    } else {
        column(3 * bytes, cloud.positions(), [](const Vector3f& position, unsigned char* at) {
            for (Eigen::Index i = 0; i < 3; ++i) {
                detail::storeLittle(at + 4 * i, position[i]);
            }
        });
    }
    if (!cloud.colors().empty()) {
        for (const char* name : {"red", "green", "blue"}) {
            property("uchar", name, 1);
        }
        column(3, cloud.colors(),
               [](const core::ColorRGB& color, unsigned char* at) { std::copy_n(color.data(), 3, at); });
    }
    if (!cloud.scalars().empty()) {
        property("float", "intensity", 4);
        column(4, cloud.scalars(), [](float value, unsigned char* at) { detail::storeLittle(at, value); });
    }
    // Sorted, so that the same cloud gives the same file.
    const std::map<std::string, std::shared_ptr<core::FieldType>> fields(cloud.fields().begin(),
                                                                         cloud.fields().end());
    for (const auto& [name, field] : fields) {
        if (!field->empty() || points_ == 0) {
            addField(name, *field);
        }
    }
}

std::string PlyLayout::freeName(const std::string& wanted, bool vector) {
    const char* endings[] = {"_x", "_y", "_z"};
    const auto taken = [&](const std::string& name) {
        return detail::roleOf(name) != detail::Role::Field || names_.contains(name);
    };
    std::string name = wanted;
    for (int number = 2;; ++number) {
        const bool free = vector ? std::ranges::none_of(endings, [&](auto end) { return taken(name + end); })
                                 : !taken(name);
        if (free) {
            return name;
        }
        name = "field_" + wanted;
        if (number > 2) {
            name.append("_").append(std::to_string(number));
        }
    }
}

template <class Vector>
void PlyLayout::addVectors(const std::string& property, const std::vector<Vector>& values) {
    using Scalar = typename Vector::Scalar;
    for (const char* ending : {"x", "y", "z"}) {
        this->property(sizeof(Scalar) == 8 ? "double" : "float", property + ending, sizeof(Scalar));
    }
    column(3 * sizeof(Scalar), values, [](const Vector& vector, unsigned char* at) {
        for (Eigen::Index i = 0; i < 3; ++i) {
            detail::storeLittle(at + sizeof(Scalar) * static_cast<std::size_t>(i), vector[i]);
        }
    });
}

void PlyLayout::addField(const std::string& name, const core::FieldType& field) {
    const auto* floats = dynamic_cast<const FieldArray<float>*>(&field);
    const auto* vectors = dynamic_cast<const FieldArray<Vector3f>*>(&field);
    const auto* doubles = dynamic_cast<const FieldArray<Vector3d>*>(&field);
    if (vectors != nullptr && name == core::FIELD_NORMAL) {
        addVectors("n", vectors->data());
        return;
    }
    const std::string free = freeName(propertyName(name), floats == nullptr);
    const char* kind = floats != nullptr ? "float" : vectors != nullptr ? "vector3f" : "vector3d";
    if (floats == nullptr || free != name) {
        notes_ += "comment " + std::string(detail::PLY_FIELD_NOTE) + " " + free + " " + kind + " " +
                  oneLine(name) + "\n";
    }
    if (floats != nullptr) {
        property("float", free, 4);
        column(4, floats->data(), [](float value, unsigned char* at) { detail::storeLittle(at, value); });
    } else if (vectors != nullptr) {
        addVectors(free + "_", vectors->data());
    } else if (doubles != nullptr) {
        addVectors(free + "_", doubles->data());
    }
}

std::string PlyLayout::header() const {
    return "ply\nformat binary_little_endian 1.0\n" + notes_ + "element vertex " + std::to_string(points_) +
           "\n" + properties_ + "end_header\n";
}

void PlyLayout::store(std::uint64_t first, std::size_t count, unsigned char* rows) const {
    for (const Store& store : stores_) {
        store(first, count, rows);
    }
}

}  // namespace

void writePly(const std::filesystem::path& path, const core::PointCloud& cloud, const core::Vector3d& shift) {
    const PlyLayout layout(cloud, shift);
    detail::OutputFile file(path);
    file.write(layout.header());
    std::vector<unsigned char> rows(ROWS * layout.stride());
    for (std::uint64_t first = 0; first < cloud.size(); first += ROWS) {
        const std::size_t count = std::min<std::uint64_t>(ROWS, cloud.size() - first);
        layout.store(first, count, rows.data());
        file.write(rows.data(), count * layout.stride());
    }
    file.close();
}

}  // namespace ombrix::io
