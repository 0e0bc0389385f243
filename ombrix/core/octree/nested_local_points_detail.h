#pragma once

#include <cstdint>

#include <ombrix/core/octree/octree_factory.h>
#include <ombrix/core/points/point_reader_detail.h>

namespace ombrix::core::detail {

/// The points of a cloud as a nested factory keeps them: relative to its origin and with their codes.
class LocalPoints {
public:
    /// Origin subtracted in single precision.
    LocalPoints(const PointCloud& cloud, const Vector3f& origin, float extend)
        : reader_(cloud), size_(cloud.size()), origin_(origin), extend_(extend) {}
    /// `offset`, from the cloud to the origin, added in double; codes are taken before rounding.
    LocalPoints(const PointCloud& cloud, const Vector3d& offset, float extend)
        : reader_(cloud), size_(cloud.size()), offset_(offset), inDouble_(true), extend_(extend) {}

    [[nodiscard]] std::uint64_t size() const { return size_; }

    [[nodiscard]] Point point(std::uint64_t i) const {
        Point p = reader_.point(i);
        if (inDouble_) {
            const Vector3d local = p.position.cast<double>() + offset_;
            p.position = local.cast<float>();
            p.index = OctreeFactory::morton_keyd(local, extend_).key;
        } else {
            p.position -= origin_;
            p.index = OctreeFactory::morton_keyd(p.position.cast<double>(), extend_).key;
        }
        return p;
    }

    /// Reads the predefined fields alone.
    void readFields(std::uint64_t i, Point& p) const { reader_.readFields(i, p); }

private:
    PointReader reader_;
    std::uint64_t size_;
    Vector3f origin_ = Vector3f::Zero();
    Vector3d offset_ = Vector3d::Zero();
    bool inDouble_ = false;
    double extend_;
};

}  // namespace ombrix::core::detail
