#pragma once

#include <cstdint>
#include <vector>

#include <ombrix/io/byte_source_detail.h>
#include <ombrix/io/column_detail.h>

namespace ombrix::io::detail {

/// Places of a LAS file's public header block, in bytes; all values are little-endian.
/// Source: ASPRS, "LAS Specification 1.4 - R15".
namespace las {
inline constexpr std::uint32_t VERSION_MAJOR = 24;
inline constexpr std::uint32_t VERSION_MINOR = 25;
inline constexpr std::uint32_t SYSTEM_IDENTIFIER = 26;
inline constexpr std::uint32_t GENERATING_SOFTWARE = 58;
inline constexpr std::uint32_t HEADER_SIZE = 94;
inline constexpr std::uint32_t OFFSET_TO_POINTS = 96;
inline constexpr std::uint32_t RECORD_COUNT = 100;  ///< of variable-length records
inline constexpr std::uint32_t POINT_FORMAT = 104;
inline constexpr std::uint32_t POINT_LENGTH = 105;
inline constexpr std::uint32_t POINT_COUNT_32 = 107;
inline constexpr std::uint32_t RETURN_COUNTS_32 = 111;  ///< five
inline constexpr std::uint32_t SCALE = 131;             ///< x, y, z
inline constexpr std::uint32_t OFFSET = 155;            ///< x, y, z
inline constexpr std::uint32_t BOUNDS = 179;            ///< largest x, smallest x, the same for y, for z
inline constexpr std::uint32_t SIZE_1_2 = 227;          ///< also of 1.0 and 1.1
inline constexpr std::uint32_t WAVEFORM_START = 227;
inline constexpr std::uint32_t SIZE_1_3 = 235;
inline constexpr std::uint32_t EXTENDED_RECORD_START = 235;
inline constexpr std::uint32_t POINT_COUNT_64 = 247;
inline constexpr std::uint32_t SIZE_1_4 = 375;
}  // namespace las

struct LasHeader {
    int minor = 0;
    int pointFormat = 0;
    std::uint32_t pointLength = 0;  ///< of a record, extra bytes included
    std::uint64_t pointsAt = 0;     ///< offset of the first record
    std::uint64_t points = 0;       ///< which the file was seen to hold
    double scale[3] = {};
    double offset[3] = {};
};

/// Reads and checks the header.
/// @throws Error  also when the points are compressed, or the counts are not those of the file.
[[nodiscard]] LasHeader readLasHeader(ByteSource& source);

/// The columns of a point record, positions, colours and all attributes.
[[nodiscard]] std::vector<Column> lasColumns(const LasHeader& header);

}  // namespace ombrix::io::detail
