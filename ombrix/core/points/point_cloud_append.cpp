#include <ombrix/core/points/append_detail.h>
#include <ombrix/core/points/point_cloud.h>

namespace ombrix::core {
namespace {

using Indices = std::vector<std::uint64_t>;

template <class T>
void appendAll(std::vector<T>& target, const std::vector<T>& source) {
    if (!source.empty()) {
        detail::appendRange(target, source, 0, source.size() - 1);
    }
}

template <class T>
void appendListed(std::vector<T>& target, const std::vector<T>& source, const Indices& indices) {
    if (!source.empty()) {
        detail::appendSelected(target, source, indices);
    }
}

}  // namespace

void PointCloud::push_back(const Point& point, bool positionsOnly) {
    positions_.push_back(point.position);
    colors_.push_back(point.color);
    scalars_.push_back(point.scalar);
    if (positionsOnly) {
        return;
    }
    const auto append = [&]<class T>(std::uint8_t flag, const std::string& name, const T& value) {
        if (point.flags & flag) {
            if (const auto field = fields_.get<T>(name)) {
                field->data().push_back(value);
            }
        }
    };
    append(Point::HAS_NORMAL, FIELD_NORMAL, point.normal);
    append(Point::HAS_DISTANCE, FIELD_DISTANCE, point.distance);
    append(Point::HAS_AMBIENT, FIELD_AMBIENT, point.ambient);
}

void PointCloud::push_back(const PointCloud& other, bool positionsOnly) {
    appendAll(positions_, other.positions_);
    appendColorsAndScalars(other);
    if (!positionsOnly) {
        fields_.append(other.fields_);
    }
}

void PointCloud::push_back(const PointCloud& other, std::uint64_t first, std::uint64_t last,
                           bool positionsOnly) {
    detail::appendRange(positions_, other.positions_, first, last);
    if (!other.colors_.empty()) {
        detail::appendRange(colors_, other.colors_, first, last);
    }
    if (!other.scalars_.empty()) {
        detail::appendRange(scalars_, other.scalars_, first, last);
    }
    if (!positionsOnly) {
        fields_.append(other.fields_, first, last);
    }
}

void PointCloud::push_back(const PointCloud& other, const Indices& indices, bool positionsOnly) {
    appendListed(positions_, other.positions_, indices);
    appendColorsAndScalars(other, indices);
    if (!positionsOnly) {
        fields_.append(other.fields_, indices);
    }
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): callers were given this signature
void PointCloud::push_back(const PointCloud& other, const Indices& indices, Vector3f offset,
                           bool positionsOnly) {
    const std::size_t first = positions_.size();
    push_back(other, indices, positionsOnly);
    for (std::size_t i = first; i < positions_.size(); ++i) {
        positions_[i] += offset;
    }
}

void PointCloud::push_back(const PointCloud& other, const Vector3d& shift, bool positionsOnly) {
    const std::size_t first = positions_.size();
    const std::size_t count = other.positions_.size();
    detail::makeRoom(positions_, count);
    positions_.resize(first + count);
    for (std::size_t i = 0; i < count; ++i) {
        positions_[first + i] = (other.positions_[i].cast<double>() + shift).cast<float>();
    }
    appendColorsAndScalars(other);
    if (!positionsOnly) {
        fields_.append(other.fields_);
    }
}

void PointCloud::copyFrom(const PointCloud& other, bool positionsOnly) {
    if (this == &other) {
        return;
    }
    clearArrays();
    push_back(other, true);
    if (positionsOnly) {
        fields_.clearUnshared(other.fields_);
    } else {
        fields_.assign(other.fields_);
    }
}

void PointCloud::copyFrom(const PointCloud& other, const Indices& indices, bool positionsOnly) {
    if (this == &other) {
        PointCloud selected;
        selected.push_back(other, indices, positionsOnly);
        positions_ = std::move(selected.positions_);
        colors_ = std::move(selected.colors_);
        scalars_ = std::move(selected.scalars_);
        if (!positionsOnly) {
            fields_.assign(fields_, indices);
        } else {
            fields_.clear();
        }
        return;
    }
    clearArrays();
    push_back(other, indices, true);
    if (positionsOnly) {
        fields_.clearUnshared(other.fields_);
    } else {
        fields_.assign(other.fields_, indices);
    }
}

void PointCloud::appendColorsAndScalars(const PointCloud& other) {
    appendAll(colors_, other.colors_);
    appendAll(scalars_, other.scalars_);
}

void PointCloud::appendColorsAndScalars(const PointCloud& other, const Indices& indices) {
    appendListed(colors_, other.colors_, indices);
    appendListed(scalars_, other.scalars_, indices);
}

}  // namespace ombrix::core
