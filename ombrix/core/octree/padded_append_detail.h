#pragma once

#include <cstdint>
#include <vector>

#include <ombrix/core/points/point_cloud.h>

namespace ombrix::core::detail {

/// Brings colours, scalars and all fields to the number of positions: what is missing is zero.
inline void padAttributes(PointCloud& cloud) {
    const std::uint64_t n = cloud.size();
    cloud.colors().resize(n);
    cloud.scalars().resize(n);
    for (const auto& [name, field] : cloud.fields()) {
        if (field->size() != n) {
            field->resize(n);
        }
    }
}

/// Registers the fields of `source` that `target` lacks, as zeros for the points it holds.
inline void adoptFields(PointCloud& target, const PointCloud& source) {
    if (source.fields().size() != 0) {
        target.fields().append(source.fields(), std::vector<std::uint64_t>{});
        padAttributes(target);
    }
}

/// Appends all points of `source`, each moved by `shift`, so that every attribute of `target` stays as long
/// as its positions: fields that one side lacks are zero there.
inline void appendPadded(PointCloud& target, const PointCloud& source, const Vector3d& shift) {
    adoptFields(target, source);
    target.push_back(source, shift, false);
    padAttributes(target);
}

/// Has append() append `source` to `target`, between what keeps their attributes even; see `appendEven`.
template <class Append>
void appendEvenBy(PointCloud& target, const PointCloud& source, bool positionsOnly, const Append& append) {
    const auto padFields = [&target] {
        for (const auto& [name, field] : target.fields()) {
            if (field->size() != target.size()) {
                field->resize(target.size());
            }
        }
    };
    if (!source.colors().empty()) {
        target.colors().resize(target.size());
    }
    if (!source.scalars().empty()) {
        target.scalars().resize(target.size());
    }
    if (!positionsOnly) {
        target.fields().append(source.fields(), std::vector<std::uint64_t>{});
        padFields();
    }
    append();
    if (!target.colors().empty()) {
        target.colors().resize(target.size());
    }
    if (!target.scalars().empty()) {
        target.scalars().resize(target.size());
    }
    padFields();
}

/// `appendPadded`, but attributes that neither side has stay absent, and with `positionsOnly` the fields of
/// `source` are left behind.
inline void appendEven(PointCloud& target, const PointCloud& source, const Vector3d& shift,
                       bool positionsOnly) {
    appendEvenBy(target, source, positionsOnly, [&] { target.push_back(source, shift, positionsOnly); });
}

/// `cloud`, or `storage` as a copy of it with all attributes padded where one of them is shorter than the
/// positions and could not be read by index; an array of colours or scalars that is empty may stay so.
inline const PointCloud& evenCloud(const PointCloud& cloud, PointCloud& storage) {
    const auto fits = [&](std::uint64_t length) { return length == cloud.size(); };
    bool even = (cloud.colors().empty() || fits(cloud.colors().size())) &&
                (cloud.scalars().empty() || fits(cloud.scalars().size()));
    for (const auto& [name, field] : cloud.fields()) {
        even = even && fits(field->size());
    }
    if (even) {
        return cloud;
    }
    storage = PointCloud();
    storage.copyFrom(cloud, false);
    padAttributes(storage);
    return storage;
}

}  // namespace ombrix::core::detail
