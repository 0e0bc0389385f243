#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <ombrix/core/points/point_cloud.h>

namespace ombrix::core::detail {

/// Writes points behind those that a cloud holds, with its predefined fields looked up once.
///
/// The counterpart of `PointReader`. All arrays and fields of the cloud get the new length at once; what a
/// point does not carry stays zero. A field of another element type than the predefined one is not written.
class PointWriter {
public:
    /// Adds `count` points; `flags` names the predefined fields that any of them carries, which are
    /// registered when missing.
    PointWriter(PointCloud& cloud, std::uint64_t count, std::uint8_t flags)
        : normals_(field<Vector3f>(cloud, FIELD_NORMAL, flags & Point::HAS_NORMAL)),
          distances_(field<float>(cloud, FIELD_DISTANCE, flags & Point::HAS_DISTANCE)),
          ambients_(field<float>(cloud, FIELD_AMBIENT, flags & Point::HAS_AMBIENT)) {
        const std::uint64_t first = cloud.size();
        cloud.resize(first + count);
        position_ = cloud.positions().data() + first;
        color_ = cloud.colors().data() + first;
        scalar_ = cloud.scalars().data() + first;
        normal_ = normals_ ? normals_->data().data() + first : nullptr;
        distance_ = distances_ ? distances_->data().data() + first : nullptr;
        ambient_ = ambients_ ? ambients_->data().data() + first : nullptr;
    }

    /// Writes the i-th of the new points.
    void set(std::uint64_t i, const Point& p) const {
        position_[i] = p.position;
        color_[i] = p.color;
        scalar_[i] = p.scalar;
        write(normal_, i, p.flags & Point::HAS_NORMAL, p.normal);
        write(distance_, i, p.flags & Point::HAS_DISTANCE, p.distance);
        write(ambient_, i, p.flags & Point::HAS_AMBIENT, p.ambient);
    }

private:
    template <class T>
    static std::shared_ptr<FieldArray<T>> field(PointCloud& cloud, const std::string& name, bool wanted) {
        if (!wanted) {
            return nullptr;
        }
        auto [added, isNew] = cloud.fields().addField<T>(name);
        return isNew ? added : cloud.fields().get<T>(name);
    }

    template <class T>
    static void write(T* values, std::uint64_t i, bool valid, const T& value) {
        if (values != nullptr && valid) {
            values[i] = value;
        }
    }

    std::shared_ptr<FieldArray<Vector3f>> normals_;
    std::shared_ptr<FieldArray<float>> distances_;
    std::shared_ptr<FieldArray<float>> ambients_;
    Vector3f* position_ = nullptr;
    ColorRGB* color_ = nullptr;
    float* scalar_ = nullptr;
    Vector3f* normal_ = nullptr;
    float* distance_ = nullptr;
    float* ambient_ = nullptr;
};

}  // namespace ombrix::core::detail
