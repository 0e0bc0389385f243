#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include <ombrix/io/cloud_builder_detail.h>

namespace ombrix::io::detail {

namespace {

// Records per block: their columns and what they become stay in the second-level cache.
constexpr std::size_t BLOCK = 2048;

// Below this magnitude a float tells half-thousandths apart, and a shift would only surprise.
constexpr double UNSHIFTED = 10'000.0;

double shiftFor(double coordinate) {
    if (std::abs(coordinate) < UNSHIFTED) {
        return 0.0;
    }
    const double rounded = std::round(coordinate / 100.0) * 100.0;
    return std::isfinite(rounded) ? rounded : coordinate;
}

template <class T, bool Swap>
std::optional<double> firstFinite(const Column& column, const unsigned char* records, std::size_t stride,
                                  std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const double value =
            static_cast<double>(load<T, Swap>(records + i * stride)) * column.scale + column.add;
        if (std::isfinite(value)) {
            return value;
        }
    }
    return std::nullopt;
}

struct Range {
    double lower = std::numeric_limits<double>::infinity();
    double upper = -std::numeric_limits<double>::infinity();
};

// Integers: the range is taken before the scale, which is cheaper and the same.
template <std::integral T, bool Swap>
Range placeAxis(const Column& column, double shift, const unsigned char* records, std::size_t stride,
                std::size_t count, float* out) {
    T lower = std::numeric_limits<T>::max();
    T upper = std::numeric_limits<T>::min();
    const double add = column.add - shift;
    for (std::size_t i = 0; i < count; ++i) {
        const T stored = load<T, Swap>(records + i * stride);
        lower = std::min(lower, stored);
        upper = std::max(upper, stored);
        out[3 * i] = static_cast<float>(static_cast<double>(stored) * column.scale + add);
    }
    const double a = static_cast<double>(lower) * column.scale + column.add;
    const double b = static_cast<double>(upper) * column.scale + column.add;
    return {std::min(a, b), std::max(a, b)};
}

template <std::floating_point T, bool Swap>
Range placeAxis(const Column&, double shift, const unsigned char* records, std::size_t stride,
                std::size_t count, float* out) {
    Range range;
    for (std::size_t i = 0; i < count; ++i) {
        const double value = static_cast<double>(load<T, Swap>(records + i * stride));
        if (std::isfinite(value)) {
            range.lower = value < range.lower ? value : range.lower;
            range.upper = value > range.upper ? value : range.upper;
        }
        out[3 * i] = static_cast<float>(value - shift);
    }
    return range;
}

// The column's values go to out[0], out[step], ...
template <class Out>
void readColumn(const Column& column, bool swapped, const unsigned char* records, std::size_t stride,
                std::size_t count, Out* out, std::size_t step = 1) {
    withType(column.type, swapped, [&]<class T, bool Swap>() {
        const unsigned char* at = records + column.offset;
        const auto each = [&](auto&& valueOf) {
            for (std::size_t i = 0; i < count; ++i) {
                out[i * step] = static_cast<Out>(valueOf(load<T, Swap>(at + i * stride)));
            }
        };
        if (column.mask != 0) {
            if constexpr (std::is_integral_v<T>) {
                each([&](T stored) {
                    return static_cast<std::uint32_t>(stored) >> column.shift & column.mask;
                });
            }
        } else if (column.rest) {
            each([](T stored) {
                return static_cast<double>(stored) - static_cast<double>(static_cast<float>(stored));
            });
        } else if (column.scale != 1.0 || column.add != 0.0) {
            each([&](T stored) { return static_cast<double>(stored) * column.scale + column.add; });
        } else {
            each([](T stored) { return stored; });
        }
    });
}

}  // namespace

CloudBuilder::CloudBuilder(const std::vector<Column>& columns, const std::vector<VectorColumns>& vectors,
                           RecordTraits traits, const ReadOptions& options)
    : traits_(traits), depth_(traits.colors), scratch_(3 * BLOCK) {
    for (std::size_t i = 0; i < 3; ++i) {
        axes_[i] = {Range{}.lower, Range{}.upper, std::nullopt};
        if (options.shift) {
            axes_[i].shift = (*options.shift)[static_cast<Eigen::Index>(i)];
        }
    }
    bool hasNormals = false;
    VectorColumns normals{core::FIELD_NORMAL, false, {}};
    for (const Column& column : columns) {
        const auto index = static_cast<std::size_t>(column.role) % 3;
        switch (column.role) {
            case Role::X:
            case Role::Y:
            case Role::Z:
                position_[index] = column;
                if (!options.shift && column.type == ScalarType::Float32 && traits.exactFloats) {
                    axes_[index].shift = 0.0;
                }
                break;
            case Role::Red:
            case Role::Green:
            case Role::Blue:
                file_.hasColors = true;
                color_[index] = column;
                if (column.type == ScalarType::Int8) {
                    color_[index].type = ScalarType::UInt8;  // channels are never negative
                }
                break;
            case Role::NormalX:
            case Role::NormalY:
            case Role::NormalZ:
                hasNormals = true;
                normals.columns[index] = column;
                break;
            case Role::Intensity:
                file_.hasScalars = true;
                intensity_ = column;
                break;
            case Role::Field:
                if (options.fields) {
                    fields_.push_back({column});
                }
                break;
        }
    }
    if (hasNormals) {
        addVectors(normals);
    }
    for (const VectorColumns& vector : options.fields ? vectors : std::vector<VectorColumns>{}) {
        addVectors(vector);
    }
    for (ScalarField& field : fields_) {
        if (!field.column.sparse) {
            activate(field);
        }
    }
}

void CloudBuilder::expect(std::uint64_t points) {
    expected_ = points;
    file_.cloud.positions().reserve(points);
    if (file_.hasColors) {
        file_.cloud.colors().reserve(points);
    }
    if (file_.hasScalars) {
        file_.cloud.scalars().reserve(points);
    }
    file_.cloud.fields().reserve(points);
}

void CloudBuilder::append(const unsigned char* records, std::size_t stride, std::size_t count) {
    while (count > 0) {
        const std::size_t n = std::min(count, BLOCK);
        appendBlock(records, stride, n);
        records += n * stride;
        count -= n;
    }
}

void CloudBuilder::appendBlock(const unsigned char* records, std::size_t stride, std::size_t count) {
    const std::size_t before = size();
    file_.cloud.positions().resize(before + count);
    for (int axis = 0; axis < 3; ++axis) {
        appendAxis(axis, records, stride, count);
    }
    if (file_.hasColors) {
        appendColors(records, stride, count);
    }
    if (intensity_) {
        file_.cloud.scalars().resize(before + count);
        readColumn(*intensity_, traits_.swapped, records, stride, count,
                   file_.cloud.scalars().data() + before);
    }
    for (VectorField& field : vectors_) {
        if (field.floats != nullptr) {
            appendVectors(field.columns, *field.floats, records, stride, count);
        } else {
            appendVectors(field.columns, *field.doubles, records, stride, count);
        }
    }
    for (ScalarField& field : fields_) {
        readColumn(field.column, traits_.swapped, records, stride, count, scratch_.data());
        appendField(field, std::span(scratch_).first(count));
    }
}

void CloudBuilder::appendAxis(int index, const unsigned char* records, std::size_t stride,
                              std::size_t count) {
    Axis& axis = axes_[static_cast<std::size_t>(index)];
    const Column& column = position_[static_cast<std::size_t>(index)];
    float* out = (file_.cloud.positions().end() - static_cast<std::ptrdiff_t>(count))->data() + index;
    const Range range = withType(column.type, traits_.swapped, [&]<class T, bool Swap>() {
        const unsigned char* first = records + column.offset;
        if (!axis.shift) {
            if (const auto value = firstFinite<T, Swap>(column, first, stride, count)) {
                axis.shift = shiftFor(*value);
            }
        }
        return placeAxis<T, Swap>(column, axis.shift.value_or(0.0), first, stride, count, out);
    });
    axis.lower = std::min(axis.lower, range.lower);
    axis.upper = std::max(axis.upper, range.upper);
}

void CloudBuilder::appendColors(const unsigned char* records, std::size_t stride, std::size_t count) {
    std::vector<core::ColorRGB>& colors = file_.cloud.colors();
    const std::size_t before = colors.size();
    colors.resize(before + count);
    for (std::size_t c = 0; c < 3; ++c) {
        readColumn(color_[c], traits_.swapped, records, stride, count, scratch_.data() + c * count);
    }
    depth_.observe(std::span(scratch_).first(3 * count), std::span(colors).first(before));
    for (std::size_t c = 0; c < 3; ++c) {
        depth_.convert(std::span(scratch_).subspan(c * count, count), colors.data() + before,
                       static_cast<int>(c));
    }
}

void CloudBuilder::appendField(ScalarField& field, std::span<const float> block) {
    if (field.values == nullptr) {
        if (std::ranges::all_of(block, [](float v) { return v == 0.0f; })) {
            return;
        }
        activate(field);
        field.values->resize(size() - block.size());
    }
    field.values->insert(field.values->end(), block.begin(), block.end());
}

template <class Vector>
void CloudBuilder::appendVectors(const std::array<Column, 3>& columns, std::vector<Vector>& out,
                                 const unsigned char* records, std::size_t stride, std::size_t count) const {
    out.resize(out.size() + count);
    for (std::size_t c = 0; c < 3; ++c) {
        readColumn(columns[c], traits_.swapped, records, stride, count,
                   (out.end() - static_cast<std::ptrdiff_t>(count))->data() + c, 3);
    }
}

void CloudBuilder::addVectors(const VectorColumns& vectors) {
    core::FieldContainer& fields = file_.cloud.fields();
    const bool normals =
        vectors.name == core::FIELD_NORMAL && !vectors.isDouble && !fields.contains(core::FIELD_NORMAL);
    const std::string name = normals ? vectors.name : freeName(vectors.name);
    VectorField field{vectors.columns};
    if (vectors.isDouble) {
        field.doubles = &fields.addField<core::Vector3d>(name).first->data();
    } else {
        field.floats = &fields.addField<core::Vector3f>(name).first->data();
    }
    vectors_.push_back(field);
    if (normals) {
        file_.hasNormals = true;
    } else {
        file_.fields.push_back(name);
    }
}

void CloudBuilder::activate(ScalarField& field) {
    const std::string name = freeName(field.column.name);
    const auto added = file_.cloud.fields().addField<float>(name).first;
    added->reserve(expected_);
    field.values = &added->data();
    file_.fields.push_back(name);
}

std::string CloudBuilder::freeName(const std::string& wanted) {
    // "normal" is to hold vectors: a scalar of that name would be in the way.
    const std::string base = wanted == core::FIELD_NORMAL ? "scalar_" + wanted : wanted;
    std::string name = base;
    unsigned int& number = lastNumbers_.try_emplace(base, 1).first->second;
    while (file_.cloud.fields().contains(name)) {
        name = base + "_" + std::to_string(++number);
    }
    return name;
}

PointFile CloudBuilder::finish() {
    depth_.finish(file_.cloud.colors());
    const double none = std::numeric_limits<float>::max();
    for (Eigen::Index i = 0; i < 3; ++i) {
        const Axis& axis = axes_[static_cast<std::size_t>(i)];
        const bool any = axis.lower <= axis.upper;
        file_.box.min[i] = any ? axis.lower : none;
        file_.box.max[i] = any ? axis.upper : -none;
        file_.shift[i] = axis.shift.value_or(0.0);
    }
    return std::move(file_);
}

}  // namespace ombrix::io::detail
