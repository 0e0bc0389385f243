#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include <ombrix/core/octree/aabb.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/services/work_context.h>
#include <ombrix/io/error.h>
#include <ombrix/io/io_export.h>

namespace ombrix::io {

/// How `readPoints` reads; the defaults suit most callers.
struct ReadOptions {
    /// The shift to use in place of a chosen one, so that several files share it.
    std::optional<core::Vector3d> shift;

    /// Whether attributes beyond colours, intensity and normals become fields. Each costs 4 bytes a point.
    bool fields = true;

    /// Names of a text file's columns, in place of a header line: "x", "y", "z", "red", "green", "blue",
    /// "intensity", "nx", "ny", "nz", anything else for a field. A header line in the file is then skipped.
    std::vector<std::string> columns;

    /// Called on the reading thread with what is done and the total: points for PLY and LAS, bytes for text
    /// and OBJ. The last call has both equal. What it throws passes through `readPoints`.
    std::function<void(std::uint64_t done, std::uint64_t total)> progress;

    /// Asked several times a second; a request makes `readPoints` throw `Stopped`.
    std::stop_token stop;

    /// How much of the file is mapped at a time, in bytes; at least a page, more where a single record or
    /// line needs it.
    std::uint64_t viewBytes = std::uint64_t{64} << 20;
};

/// The forms of point files that are told apart.
enum class PointFormat { PLY, LAS, TEXT, OBJ };

/// What a point file holds.
struct PointFile {
    PointFormat format = PointFormat::TEXT;  ///< of the file

    /// The points, in file order; a point's place in the world is position + shift, formed in double.
    /// Colours and scalars are empty when the file has none.
    core::PointCloud cloud;

    /// What was subtracted from the file's coordinates; see `readPoints`.
    core::Vector3d shift = core::Vector3d::Zero();

    /// Corners of the finite world coordinates. Without any: +3.4028235e38 and -3.4028235e38.
    core::Aabb box;

    bool hasColors = false;   ///< in the cloud's colours
    bool hasScalars = false;  ///< intensities, in the file's own unit
    bool hasNormals = false;  ///< in the field "normal", as the file has them
    std::vector<std::string>
        fields;  ///< names of the further fields, all of float or of what `writePly` kept
};

/// Reads the points of a PLY, LAS, OBJ or text file. What the file is, its first bytes tell; the name's
/// ending decides only between OBJ and other text.
///
/// - PLY: ASCII or binary of either byte order; the element "vertex", properties in any order. Lists and
///   other elements are skipped, but must be there in full.
/// - LAS 1.0 to 1.4, point formats 0 to 10, not compressed. Attributes become fields "return_number",
///   "number_of_returns", "scan_direction", "edge_of_flight_line", "classification",
///   "classification_flags", "scanner_channel", "scan_angle" (degrees), "user_data", "point_source_id",
///   "gps_time" and "nir"; those that are 0 in every point are left out. Single precision is coarse for
///   times: what it drops is in "gps_time_rest", so that the sum of both in double is the file's time.
/// - Text: one point a line, columns separated by blanks, commas or semicolons (the first data line tells
///   which), lines that start with # or // are comments. Columns are named by a header line, by a comment
///   in its place, by `ReadOptions::columns`, or told by the values of the first 4096 points: x, y, z, then
///   three values of unit length are a normal, three integers of 0 to 65535 or three values of 0 to 1 a
///   colour, a single value before a colour or at the end is the intensity, others are "column_N". A first
///   line of one number is the count of points.
/// - OBJ: the vertices, with colours where a vertex has six or seven numbers.
///
/// **Shift.** On each axis it is 0 when the first finite coordinate is below 10,000 in magnitude, or when
/// the file itself holds single-precision floats, which lose nothing; otherwise that coordinate rounded to
/// the nearest hundred. Positions are float(coordinate - shift) with the difference formed in double.
///
/// **Colours.** Integers above 255 anywhere in the file make all of them 16-bit values, of which the high
/// byte is kept; otherwise they are 8-bit values, whatever their type. Floats are of 0 to 1 unless one is
/// larger. Text colours without any fraction are integers.
///
/// **Bad input.** Missing, empty and truncated files, wrong counts, compressed points, NaN or infinity
/// spelt out in text, and whatever else is no such file throw `Error`. Coordinates of binary files that are
/// not finite are kept as they are. Memory is bounded by what the file's size can hold, not by what its
/// header says. The file must not be shortened by others meanwhile: it is read through a mapping.
///
/// @throws Error    naming the file, the place and the reason.
/// @throws Stopped  when the caller asks for it; nothing read so far is returned.
[[nodiscard]] OMBRIX_IO_API PointFile readPoints(const std::filesystem::path& path,
                                                 const ReadOptions& options = {});

/// The same within a context, whose stop token and progress count beside those of the options. Reads on one
/// thread.
[[nodiscard]] OMBRIX_IO_API PointFile readPoints(const std::filesystem::path& path,
                                                 const ReadOptions& options,
                                                 const core::WorkContext& context);

}  // namespace ombrix::io
