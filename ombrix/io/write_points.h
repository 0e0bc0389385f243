#pragma once

#include <filesystem>

#include <ombrix/core/points/point_cloud.h>
#include <ombrix/io/error.h>
#include <ombrix/io/io_export.h>

namespace ombrix::io {

/// Writes a cloud with all its fields as binary little-endian PLY.
///
/// Coordinates are position + shift: floats when the shift is zero on all axes, doubles otherwise. Scalars
/// become "intensity", the field "normal" becomes nx, ny, nz, other vector fields NAME_x, NAME_y, NAME_z.
/// Where a field's name or type cannot be told from the properties, a comment line keeps it, and
/// `readPoints` gives the field back as it was. Colours, scalars and fields that are shorter than the
/// positions are continued with zeros; empty ones are left out, but a cloud without points keeps its fields.
///
/// @throws Error  when the file cannot be written in full; what was written of it is removed.
OMBRIX_IO_API void writePly(const std::filesystem::path& path, const core::PointCloud& cloud,
                            const core::Vector3d& shift = core::Vector3d::Zero());

/// Writes a cloud as LAS 1.2, point format 2.
///
/// Coordinates are integer steps from an offset, which is the shift. The step is `scale`, or, when that is
/// 0, the largest power of ten that is at most 0.001 and at most the distance of neighbouring floats at the
/// farthest position (so that nothing is lost), raised as far as 32 bits demand.
///
/// Colours are stored as 256 times the 8-bit value, as the format asks. Scalars become the intensity and
/// the fields "return_number", "number_of_returns", "scan_direction", "edge_of_flight_line",
/// "classification", "classification_flags", "scan_angle", "user_data" and "point_source_id" the attributes
/// of those names: rounded and clamped to what the format holds, NaN as 0. Other fields are not written.
///
/// @throws Error  when the file cannot be written in full (what was written of it is removed), when a
///                position is not finite or does not fit at the given scale, or beyond 4,294,967,295 points.
OMBRIX_IO_API void writeLas(const std::filesystem::path& path, const core::PointCloud& cloud,
                            const core::Vector3d& shift = core::Vector3d::Zero(), double scale = 0.0);

}  // namespace ombrix::io
