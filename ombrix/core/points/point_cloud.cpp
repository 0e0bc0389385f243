#include <algorithm>
#include <limits>
#include <utility>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/points/point_reader_detail.h>

namespace ombrix::core {
namespace {

constexpr float FLOAT_MAX = std::numeric_limits<float>::max();

/// The normals' field; null without one, and where the field of that name holds something else.
std::shared_ptr<FieldArray<Vector3f>> normalField(const FieldContainer& fields) {
    return fields.contains(FIELD_NORMAL) ? fields.get<Vector3f>(FIELD_NORMAL) : nullptr;
}

template <class Map>
void mapInParallel(std::vector<Vector3f>& values, const Map& map) {
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, values.size()),
                      [&](const tbb::blocked_range<std::size_t>& range) {
                          for (std::size_t i = range.begin(); i != range.end(); ++i) {
                              values[i] = (map(values[i].template cast<double>())).template cast<float>();
                          }
                      });
}

}  // namespace

std::uint64_t PointCloud::raw_size() const {
    return sizeof(Vector3f) * positions_.size() + sizeof(ColorRGB) * colors_.size() +
           sizeof(float) * scalars_.size();
}

void PointCloud::reserve(std::uint64_t n) {
    positions_.reserve(n);
    colors_.reserve(n);
    scalars_.reserve(n);
    fields_.reserve(n);
}

void PointCloud::resize(std::uint64_t n) {
    positions_.resize(n);
    colors_.resize(n);
    scalars_.resize(n);
    fields_.resize(n);
}

void PointCloud::clearArrays() {
    positions_.clear();
    colors_.clear();
    scalars_.clear();
}

void PointCloud::clear() {
    clearArrays();
    fields_.clear();
}

void PointCloud::free() {
    clear();
    positions_.shrink_to_fit();
    colors_.shrink_to_fit();
    scalars_.shrink_to_fit();
    fields_.release();
}

Point PointCloud::point(std::uint64_t i) const {
    return detail::PointReader(*this).point(i);
}

Pointd PointCloud::pointd(std::uint64_t i) const {
    Point p = point(i);
    Pointd out;
    out.index = p.index;
    out.position = p.position.cast<double>();
    out.color = p.color.RGBtoRGB_16();
    out.scalar = p.scalar;
    out.normal = p.normal.cast<double>();
    out.distance = p.distance;
    out.ambient = p.ambient;
    out.flags = p.flags;
    return out;
}

bool PointCloud::hasNormals() const {
    return fields_.contains(FIELD_NORMAL);
}

std::vector<Vector3f>& PointCloud::normals() {
    fields_.addField<Vector3f>(FIELD_NORMAL);
    return static_cast<FieldArray<Vector3f>&>(*fields_.get(FIELD_NORMAL)).data();
}

const std::vector<Vector3f>& PointCloud::normals() const {
    fields_.addField<Vector3f>(FIELD_NORMAL);
    return static_cast<const FieldArray<Vector3f>&>(*fields_.get(FIELD_NORMAL)).data();
}

Vector3f PointCloud::aabb_min() const {
    Vector3f corner = Vector3f::Constant(FLOAT_MAX);
    for (const Vector3f& p : positions_) {
        for (int axis = 0; axis < 3; ++axis) {
            corner[axis] = p[axis] < corner[axis] ? p[axis] : corner[axis];
        }
    }
    return corner;
}

Vector3f PointCloud::aabb_max() const {
    Vector3f corner = Vector3f::Constant(-FLOAT_MAX);
    for (const Vector3f& p : positions_) {
        for (int axis = 0; axis < 3; ++axis) {
            corner[axis] = p[axis] > corner[axis] ? p[axis] : corner[axis];
        }
    }
    return corner;
}

float PointCloud::scalarfield_min() const {
    return scalars_.empty() ? FLOAT_MAX : *std::min_element(scalars_.begin(), scalars_.end());
}

float PointCloud::scalarfield_max() const {
    return scalars_.empty() ? -FLOAT_MAX : *std::max_element(scalars_.begin(), scalars_.end());
}

void PointCloud::invertYZ() {
    const auto swapYZ = [](std::vector<Vector3f>& values) {
        for (Vector3f& value : values) {
            std::swap(value.y(), value.z());
        }
    };
    swapYZ(positions_);
    if (const auto normals = normalField(fields_)) {
        swapYZ(normals->data());
    }
}

void PointCloud::transform(const Eigen::Transform<double, 3, Eigen::Affine>& transform) {
    mapInParallel(positions_, [&](const Vector3d& p) -> Vector3d { return transform * p; });
    if (const auto normals = normalField(fields_)) {
        const Eigen::Matrix3d linear = transform.linear();
        mapInParallel(normals->data(), [&](const Vector3d& n) -> Vector3d { return linear * n; });
    }
}

}  // namespace ombrix::core
