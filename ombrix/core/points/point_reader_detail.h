#pragma once

#include <vector>

#include <ombrix/core/points/point_cloud.h>

namespace ombrix::core::detail {

/// Reads points out of a cloud with its predefined fields looked up once.
///
/// Keeps references into the cloud, which must stay as it is meanwhile. Missing colours and scalars read as
/// zero, so that a cloud of positions alone can be read, too.
class PointReader {
public:
    explicit PointReader(const PointCloud& cloud)
        : cloud_(&cloud),
          normals_(values<Vector3f>(FIELD_NORMAL)),
          distances_(values<float>(FIELD_DISTANCE)),
          ambients_(values<float>(FIELD_AMBIENT)) {}

    [[nodiscard]] Point point(std::uint64_t i) const {
        Point p;
        p.index = i;
        p.position = cloud_->positions()[i];
        if (i < cloud_->colors().size()) {
            p.color = cloud_->colors()[i];
        }
        if (i < cloud_->scalars().size()) {
            p.scalar = cloud_->scalars()[i];
        }
        readFields(i, p);
        return p;
    }

    /// Reads the predefined fields alone.
    void readFields(std::uint64_t i, Point& p) const {
        read(normals_, i, Point::HAS_NORMAL, p.normal, p.flags);
        read(distances_, i, Point::HAS_DISTANCE, p.distance, p.flags);
        read(ambients_, i, Point::HAS_AMBIENT, p.ambient, p.flags);
    }

private:
    template <class T>
    const std::vector<T>* values(const std::string& name) const {
        if (cloud_->fields().size() == 0 || !cloud_->fields().contains(name)) {
            return nullptr;
        }
        const auto field = cloud_->fields().get<T>(name);
        return field && !field->empty() ? &field->data() : nullptr;
    }

    template <class T>
    static void read(const std::vector<T>* values, std::uint64_t i, std::uint8_t flag, T& value,
                     std::uint8_t& flags) {
        if (values != nullptr && i < values->size()) {
            value = (*values)[i];
            flags |= flag;
        }
    }

    const PointCloud* cloud_;
    const std::vector<Vector3f>* normals_;
    const std::vector<float>* distances_;
    const std::vector<float>* ambients_;
};

}  // namespace ombrix::core::detail
