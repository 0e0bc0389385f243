#pragma once

#include <cstdint>
#include <vector>

#include <ombrix/core/core_export.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/types.h>

namespace ombrix::core {

/// Merges clouds on a grid: one point for each occupied cell, whichever clouds it comes from.
///
/// The grid is anchored at multiples of the cell's edge in the world, so the order in which clouds are added
/// changes ties only. Points with coordinates that are not finite count as lying in cell 0 on these axes.
/// Holds copies of all points until `clear`.
class OMBRIX_CORE_API Merge {
public:
    /// Where a point of the result comes from.
    struct Source {
        std::uint64_t cloud;  ///< number of the cloud, in the order of `add`
        std::uint64_t index;  ///< of the point in that cloud

        friend bool operator==(const Source&, const Source&) = default;
    };

    /// @param cell  edge of the cells, in units of position; at or below 0, or NaN, nothing is merged.
    explicit Merge(float cell) : cell_(cell) {}

    /// Whether a result's point is the mean of its cell's points (position, colour, scalar and fields; values
    /// that are not finite do not count beside others). Off at first: it is then the point nearest to the
    /// cell's centre, and of equally near ones the first that was added.
    void setAveraging(bool on) { averaging_ = on; }
    /// What the positions of results are relative to, in the world; zero at first. With coordinates in the
    /// millions, an origin close by keeps their precision.
    void setOrigin(const Vector3d& origin) { origin_ = origin; }

    /// Adds all points of a cloud; each stands at position + shift (in double) in the world.
    void add(const PointCloud& cloud, const Vector3d& shift);

    /// Number of points added.
    [[nodiscard]] std::uint64_t size() const { return points_.size(); }
    /// Forgets all points; settings stay.
    void clear();

    /// The merged cloud becomes the content of `out`, ascending by cell: by x, then y, then z.
    ///
    /// Holds the union of the fields, zero where a source has no value; a field that clouds hold with
    /// different element types keeps the first. Without merging: all points in the order they were added.
    void result(PointCloud& out) const;
    /// The same; `sources` becomes the origin of each point (when averaging: of the one nearest to the
    /// centre).
    void result(PointCloud& out, std::vector<Source>& sources) const;

private:
    /// One cloud that was added.
    struct Part {
        std::uint64_t first;  ///< its first point among all
        Vector3d shift;
    };
    float cell_;
    bool averaging_ = false;
    Vector3d origin_ = Vector3d::Zero();
    PointCloud points_;  ///< all points as they were given; attributes are absent, or padded
    std::vector<Part> parts_;
};

}  // namespace ombrix::core
