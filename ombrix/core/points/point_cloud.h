#pragma once

#include <cstdint>
#include <vector>

#include <Eigen/Geometry>

#include <ombrix/core/core_export.h>
#include <ombrix/core/points/fields.h>
#include <ombrix/core/points/point.h>

namespace ombrix::core {

/// Points as parallel arrays: positions, colours and scalars, and any number of named fields.
///
/// The operations keep the three arrays at one length; a caller may leave colours or scalars shorter.
/// Copying a cloud copies the three arrays but shares the fields: a field changed through one of the
/// copies is changed in the other, too. An empty cloud filled with `copyFrom` gets fields of its own.
/// Indices are not checked. A cloud has no lock: concurrent readers are safe, a writer needs it alone.
class OMBRIX_CORE_API PointCloud {
public:
    /// Number of positions.
    [[nodiscard]] std::uint64_t size() const { return positions_.size(); }
    /// Bytes of positions (12 each), colours (3) and scalars (4), each array by its own length.
    [[nodiscard]] std::uint64_t raw_size() const;

    /// Capacity for n points in every array and field.
    /// @throws std::length_error beyond the arrays' maximum length.
    void reserve(std::uint64_t n);
    /// Length n for every array and field. New colours, scalars and field elements are zero, new positions
    /// are not set.
    /// @throws std::length_error beyond the arrays' maximum length.
    void resize(std::uint64_t n);
    /// Length 0 for every array and field; storage is kept and fields stay registered.
    void clear();
    /// Like `clear`, and frees the storage.
    void free();

    /// Appends one point. Unless `positionsOnly`, the values whose flag bits are set go to the fields
    /// "normal", "distance" and "ambient"; a field whose bit is not set stays one element short, which is
    /// the caller's to care for.
    /// @throws std::out_of_range when a field whose bit is set was never added.
    void push_back(const Point& point, bool positionsOnly);

    /// Appends all points of another cloud (or of this one) and, unless `positionsOnly`, its fields: fields
    /// missing here are added first, fields of another element type are skipped. What the other cloud
    /// lacks, stays shorter than the positions here.
    void push_back(const PointCloud& other, bool positionsOnly);
    /// The points first to last, both included; none where `last` is `first` - 1.
    void push_back(const PointCloud& other, std::uint64_t first, std::uint64_t last, bool positionsOnly);
    /// The points with the listed indices, in list order.
    void push_back(const PointCloud& other, const std::vector<std::uint64_t>& indices, bool positionsOnly);
    /// The points with the listed indices, each position moved by `offset`.
    void push_back(const PointCloud& other, const std::vector<std::uint64_t>& indices, Vector3f offset,
                   bool positionsOnly);
    /// All points, each position moved by `shift` (sum in double, stored as float).
    void push_back(const PointCloud& other, const Vector3d& shift, bool positionsOnly);

    /// `clear`, then `push_back` of the other cloud. A field that both clouds share holds the content
    /// already and stays as it is; a cloud copied from itself stays as it is.
    void copyFrom(const PointCloud& other, bool positionsOnly);
    /// `clear`, then `push_back` of the listed points. A field that both clouds share is replaced by one of
    /// this cloud's own.
    void copyFrom(const PointCloud& other, const std::vector<std::uint64_t>& indices, bool positionsOnly);

    /// Point i with the predefined fields that hold values.
    [[nodiscard]] Point point(std::uint64_t i) const;
    [[nodiscard]] Pointd pointd(std::uint64_t i) const;

    /// Whether there is a field "normal".
    [[nodiscard]] bool hasNormals() const;
    /// The elements of the field "normal". A missing field is added first, even to a const cloud, which
    /// makes both forms writers then. The field must hold `Vector3f`.
    std::vector<Vector3f>& normals();
    const std::vector<Vector3f>& normals() const;

    /// Lower and upper corner over all positions; NaN coordinates do not count.
    /// Empty cloud: +3.4028235e38 and -3.4028235e38 in each component.
    [[nodiscard]] Vector3f aabb_min() const;
    [[nodiscard]] Vector3f aabb_max() const;

    /// Smallest and largest scalar, by strict comparison; there must be scalars
    /// (without: +3.4028235e38 and -3.4028235e38).
    [[nodiscard]] float scalarfield_min() const;
    [[nodiscard]] float scalarfield_max() const;

    /// Swaps y and z of every position and normal; no sign changes, so the cloud is mirrored.
    void invertYZ();

    /// Maps positions by the transform and normals by its linear part, in double, on several threads.
    /// Normals are not scaled back to unit length.
    void transform(const Eigen::Transform<double, 3, Eigen::Affine>& transform);

    /// The arrays and fields themselves; their lengths are then the caller's to care for.
    [[nodiscard]] std::vector<Vector3f>& positions() { return positions_; }
    [[nodiscard]] const std::vector<Vector3f>& positions() const { return positions_; }
    [[nodiscard]] std::vector<ColorRGB>& colors() { return colors_; }
    [[nodiscard]] const std::vector<ColorRGB>& colors() const { return colors_; }
    [[nodiscard]] std::vector<float>& scalars() { return scalars_; }
    [[nodiscard]] const std::vector<float>& scalars() const { return scalars_; }
    [[nodiscard]] FieldContainer& fields() { return fields_; }
    [[nodiscard]] const FieldContainer& fields() const { return fields_; }

private:
    void appendColorsAndScalars(const PointCloud& other);
    void appendColorsAndScalars(const PointCloud& other, const std::vector<std::uint64_t>& indices);
    void clearArrays();

    std::vector<Vector3f> positions_;
    std::vector<ColorRGB> colors_;  ///< one per point, or shorter
    std::vector<float> scalars_;    ///< one per point, or shorter
    mutable FieldContainer fields_;
};

}  // namespace ombrix::core
