#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string>

#include <ombrix/io/las_header_detail.h>

namespace ombrix::io::detail {

namespace {

constexpr std::uint32_t VARIABLE_RECORD_HEADER = 54;
constexpr std::array<std::uint32_t, 11> POINT_LENGTHS = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};

// Compressed files announce themselves by high bits of the point format, or by a record alone.
void refuseCompression(ByteSource& source, int pointFormat, std::uint64_t headerSize,
                       std::uint64_t pointsAt) {
    constexpr char REASON[] = "LAZ: compressed points are not read, decompress the file to LAS first";
    if ((pointFormat & 0xC0) != 0) {
        source.fail(las::POINT_FORMAT, REASON);
    }
    const std::uint32_t records = loadLittle<std::uint32_t>(source.view(las::RECORD_COUNT, 4).data());
    std::uint64_t at = headerSize;
    for (std::uint32_t i = 0; i < records && at + VARIABLE_RECORD_HEADER <= pointsAt; ++i) {
        const unsigned char* record = source.view(at, VARIABLE_RECORD_HEADER).data();
        if (std::memcmp(record + 2, "laszip encoded", 15) == 0) {
            source.fail(at, REASON);
        }
        at += VARIABLE_RECORD_HEADER + loadLittle<std::uint16_t>(record + 20);
    }
}

std::uint64_t readCount(ByteSource& source, int minor) {
    const std::uint64_t legacy = loadLittle<std::uint32_t>(source.view(las::POINT_COUNT_32, 4).data());
    if (minor < 4) {
        return legacy;
    }
    const auto count = loadLittle<std::uint64_t>(source.view(las::POINT_COUNT_64, 8).data());
    if (legacy != 0 && count != 0 && legacy != count) {
        source.fail(las::POINT_COUNT_64, "the two counts of points differ: " + std::to_string(legacy) +
                                             " and " + std::to_string(count));
    }
    return count != 0 ? count : legacy;
}

// Where the points' part of the file ends: the waveforms and extended records of later versions follow it.
std::uint64_t endOfPoints(ByteSource& source, const LasHeader& header) {
    std::uint64_t end = source.size();
    const auto cut = [&](std::uint32_t place) {
        const auto start = loadLittle<std::uint64_t>(source.view(place, 8).data());
        const bool behind = header.points == 0 ? start >= header.pointsAt : start > header.pointsAt;
        end = behind ? std::min(end, start) : end;
    };
    if (loadLittle<std::uint16_t>(source.view(las::HEADER_SIZE, 2).data()) >= las::SIZE_1_3 &&
        header.minor >= 3) {
        cut(las::WAVEFORM_START);
    }
    if (header.minor >= 4) {
        cut(las::EXTENDED_RECORD_START);
    }
    return end;
}

void checkPoints(ByteSource& source, LasHeader& header) {
    const std::uint64_t end = endOfPoints(source, header);
    // LAS 1.0 has two bytes, DD CC, in front of the points, which some writers do not count to the offset.
    const std::uint64_t room = end - header.pointsAt;
    if (header.minor == 0 && room % header.pointLength != 0 &&
        room >= 2 + header.points * header.pointLength) {
        const unsigned char* mark = source.view(header.pointsAt, 2).data();
        header.pointsAt += mark[0] == 0xDD && mark[1] == 0xCC ? 2 : 0;
    }
    const std::uint64_t held = (end - header.pointsAt) / header.pointLength;
    if (header.points > held) {
        source.fail(end, "the points end here: the file holds " + std::to_string(held) +
                             ", its header promises " + std::to_string(header.points));
    }
    // A header that was never completed says 0; some files are padded with zeros.
    std::uint64_t at = header.pointsAt + header.points * header.pointLength;
    for (std::uint64_t left = held > header.points ? end - at : 0; left > 0;) {
        const auto bytes = source.view(at, 1).first(std::min<std::uint64_t>(left, source.view(at, 1).size()));
        if (std::ranges::any_of(bytes, [](unsigned char b) { return b != 0; })) {
            source.fail(at, "more points follow: the file holds " + std::to_string(held) +
                                ", its header promises " + std::to_string(header.points));
        }
        at += bytes.size();
        left -= bytes.size();
    }
}

}  // namespace

LasHeader readLasHeader(ByteSource& source) {
    static_cast<void>(source.view(0, las::SIZE_1_2));
    const auto at = [&](std::uint32_t place) { return source.view(place, 8).data(); };
    LasHeader header;
    const int major = at(las::VERSION_MAJOR)[0];
    header.minor = at(las::VERSION_MINOR)[0];
    if (major != 1 || header.minor > 4) {
        source.fail(las::VERSION_MAJOR,
                    "no known LAS version: " + std::to_string(major) + "." + std::to_string(header.minor));
    }
    const std::uint32_t least = header.minor == 4 ? las::SIZE_1_4 : las::SIZE_1_2;
    static_cast<void>(source.view(0, least));
    const std::uint32_t headerSize = loadLittle<std::uint16_t>(at(las::HEADER_SIZE));
    if (headerSize < least) {
        source.fail(las::HEADER_SIZE, "a header of " + std::to_string(headerSize) + " bytes is too short");
    }
    header.pointsAt = loadLittle<std::uint32_t>(at(las::OFFSET_TO_POINTS));
    if (header.pointsAt < headerSize || header.pointsAt > source.size()) {
        source.fail(las::OFFSET_TO_POINTS, "the points' offset " + std::to_string(header.pointsAt) +
                                               " is not between the header and the end of the file");
    }
    header.pointFormat = at(las::POINT_FORMAT)[0];
    refuseCompression(source, header.pointFormat, headerSize, header.pointsAt);
    if (header.pointFormat >= static_cast<int>(POINT_LENGTHS.size())) {
        source.fail(las::POINT_FORMAT, "no known point format: " + std::to_string(header.pointFormat));
    }
    header.pointLength = loadLittle<std::uint16_t>(at(las::POINT_LENGTH));
    if (header.pointLength < POINT_LENGTHS[static_cast<std::size_t>(header.pointFormat)]) {
        source.fail(las::POINT_LENGTH, "point records of " + std::to_string(header.pointLength) +
                                           " bytes are too short for their format");
    }
    for (std::uint32_t i = 0; i < 3; ++i) {
        header.scale[i] = loadLittle<double>(at(las::SCALE + 8 * i));
        header.offset[i] = loadLittle<double>(at(las::OFFSET + 8 * i));
        if (!std::isfinite(header.scale[i]) || header.scale[i] == 0.0 || !std::isfinite(header.offset[i])) {
            source.fail(las::SCALE + 8 * i, "no usable scale and offset of the coordinates");
        }
    }
    header.points = readCount(source, header.minor);
    checkPoints(source, header);
    return header;
}

std::vector<Column> lasColumns(const LasHeader& header) {
    std::vector<Column> columns;
    const auto add = [&](Role role, ScalarType type, std::uint32_t offset, const char* name) -> Column& {
        columns.push_back({role, type, offset, name});
        columns.back().sparse = true;
        return columns.back();
    };
    const auto bits = [&](std::uint32_t offset, std::uint32_t shift, std::uint32_t mask, const char* name) {
        Column& column = add(Role::Field, ScalarType::UInt8, offset, name);
        column.shift = shift;
        column.mask = mask;
    };
    for (std::uint32_t i = 0; i < 3; ++i) {
        Column& column = add(static_cast<Role>(i), ScalarType::Int32, 4 * i, "");
        column.scale = header.scale[i];
        column.add = header.offset[i];
    }
    add(Role::Intensity, ScalarType::UInt16, 12, "intensity");
    const int format = header.pointFormat;
    const bool extended = format >= 6;
    if (extended) {
        bits(14, 0, 15, "return_number");
        bits(14, 4, 15, "number_of_returns");
        bits(15, 6, 1, "scan_direction");
        bits(15, 7, 1, "edge_of_flight_line");
        bits(16, 0, 255, "classification");
        bits(15, 0, 15, "classification_flags");
        bits(15, 4, 3, "scanner_channel");
        add(Role::Field, ScalarType::Int16, 18, "scan_angle").scale = 0.006;  // stored in these steps
        add(Role::Field, ScalarType::UInt8, 17, "user_data");
        add(Role::Field, ScalarType::UInt16, 20, "point_source_id");
    } else {
        bits(14, 0, 7, "return_number");
        bits(14, 3, 7, "number_of_returns");
        bits(14, 6, 1, "scan_direction");
        bits(14, 7, 1, "edge_of_flight_line");
        bits(15, 0, 31, "classification");
        bits(15, 5, 7, "classification_flags");
        add(Role::Field, ScalarType::Int8, 16, "scan_angle");
        add(Role::Field, ScalarType::UInt8, 17, "user_data");
        add(Role::Field, ScalarType::UInt16, 18, "point_source_id");
    }
    const bool hasTime = extended || (format != 0 && format != 2);
    if (hasTime) {
        const std::uint32_t time = extended ? 22 : 20;
        add(Role::Field, ScalarType::Float64, time, "gps_time");
        add(Role::Field, ScalarType::Float64, time, "gps_time_rest").rest = true;
    }
    if (format == 2 || format == 3 || format == 5 || format == 7 || format == 8 || format == 10) {
        const std::uint32_t color = format == 2 ? 20 : extended ? 30 : 28;
        add(Role::Red, ScalarType::UInt16, color, "red");
        add(Role::Green, ScalarType::UInt16, color + 2, "green");
        add(Role::Blue, ScalarType::UInt16, color + 4, "blue");
    }
    if (format == 8 || format == 10) {
        add(Role::Field, ScalarType::UInt16, 36, "nir");
    }
    return columns;
}

}  // namespace ombrix::io::detail
