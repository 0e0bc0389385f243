#include <algorithm>
#include <limits>
#include <vector>

#include <ombrix/io/number_text_detail.h>
#include <ombrix/io/ply_columns_detail.h>
#include <ombrix/io/readers_detail.h>
#include <ombrix/io/watch_detail.h>

namespace ombrix::io::detail {

namespace {

// Records of a PLY element that are put in a row before they go to the builder: as many as there are, and
// less where a header has them very long.
std::size_t rowsAtOnce(const PlyElement& element, std::size_t stride) {
    constexpr std::size_t ROWS = 4096;
    constexpr std::size_t BYTES = std::size_t{1} << 20;
    return std::min<std::uint64_t>(element.count, std::clamp<std::size_t>(BYTES / stride, 1, ROWS));
}

std::pair<double, double> limitsOf(ScalarType type) {
    return withType(type, false, []<class T, bool Swap>() {
        return std::pair<double, double>{std::numeric_limits<T>::lowest(), std::numeric_limits<T>::max()};
    });
}

double takeAscii(const char*& at, const char* end, const LineReader& lines) {
    skipBlanks(at, end);
    if (at == end) {
        lines.fail("fewer values than the element has properties");
    }
    double value = 0.0;
    const char* wrong = takeNumber(at, end, value);
    const char* next = at;
    if (wrong == nullptr && next != end && *next != ' ' && *next != '\t') {
        wrong = "not a number: ";
    }
    if (wrong != nullptr) {
        std::string_view rest(at, static_cast<std::size_t>(end - at));
        lines.fail(wrong + inQuotes(takeWord(rest)));
    }
    return value;
}

double takeAscii(const char*& at, const char* end, ScalarType type, const LineReader& lines) {
    const double value = takeAscii(at, end, lines);
    if (!isFloat(type)) {
        const auto [lowest, largest] = limitsOf(type);
        // Colours stored as signed bytes are written as 0 to 255 all the same.
        if (value < lowest || value > (type == ScalarType::Int8 ? 255.0 : largest)) {
            lines.fail("the value is out of its property's range");
        }
    }
    return value;
}

// The scalars of one line's record go to `out`, when given.
void readAsciiRecord(std::string_view line, const PlyElement& element, const LineReader& lines, double* out) {
    const char* at = line.data();
    const char* end = at + line.size();
    for (const PlyProperty& property : element.properties) {
        if (!property.isList) {
            const double value = takeAscii(at, end, property.type, lines);
            if (out != nullptr) {
                *out++ = value;
            }
            continue;
        }
        const double count = takeAscii(at, end, property.countType, lines);
        if (count < 0.0 || count != static_cast<double>(static_cast<std::uint64_t>(count))) {
            lines.fail("no count of a list");
        }
        for (auto left = static_cast<std::uint64_t>(count); left > 0; --left) {
            takeAscii(at, end, property.type, lines);
        }
    }
    skipBlanks(at, end);
    if (at != end) {
        lines.fail("more values than the element has properties");
    }
}

std::string_view nextRecord(LineReader& lines, const PlyElement& element, std::uint64_t missing) {
    std::string_view line;
    do {
        if (!lines.next(line)) {
            lines.fail("the file ends here, but " + std::to_string(missing) + " of " +
                       std::to_string(element.count) + " elements " + inQuotes(element.name) +
                       " are missing");
        }
    } while (line.find_first_not_of(" \t") == std::string_view::npos);
    return line;
}

void readAscii(LineReader& lines, const PlyElement& element, const PlyColumns& columns, const Watch& watch,
               CloudBuilder& builder) {
    const std::size_t most = rowsAtOnce(element, columns.stride);
    std::vector<double> rows(most * columns.stride / sizeof(double));
    for (std::uint64_t done = 0; done < element.count;) {
        const std::size_t n = std::min<std::uint64_t>(most, element.count - done);
        double* row = rows.data();
        for (std::size_t i = 0; i < n; ++i, row += columns.stride / sizeof(double)) {
            readAsciiRecord(nextRecord(lines, element, element.count - done - i), element, lines, row);
        }
        builder.append(reinterpret_cast<const unsigned char*>(rows.data()), columns.stride, n);
        watch.at(done += n, "point");
    }
}

void skipAscii(LineReader& lines, const PlyElement& element, const Watch& watch, std::uint64_t points) {
    for (std::uint64_t i = 0; i < element.count && !element.properties.empty(); ++i) {
        readAsciiRecord(nextRecord(lines, element, element.count - i), element, lines, nullptr);
        if (i % BATCH == BATCH - 1) {
            watch.at(points, "point");
        }
    }
}

std::uint64_t takeListBytes(Cursor& cursor, const PlyProperty& property, bool swapped, ByteSource& source) {
    const std::uint64_t at = cursor.offset();
    const unsigned char* bytes = cursor.take(sizeOf(property.countType));
    const auto count = withType(property.countType, swapped, [&]<class T, bool Swap>() {
        return static_cast<std::int64_t>(load<T, Swap>(bytes));
    });
    if (count < 0) {
        source.fail(at, "a list of negative length");
    }
    return static_cast<std::uint64_t>(count) * sizeOf(property.type);
}

// Records with lists, one after the other; the scalars of each go to `out`, when given.
void walkBinaryRecord(Cursor& cursor, const PlyElement& element, bool swapped, ByteSource& source,
                      unsigned char* out) {
    for (const PlyProperty& property : element.properties) {
        if (property.isList) {
            cursor.skip(takeListBytes(cursor, property, swapped, source));
            continue;
        }
        const std::uint32_t bytes = sizeOf(property.type);
        const unsigned char* at = cursor.take(bytes);
        if (out != nullptr) {
            std::copy_n(at, bytes, out);
            out += bytes;
        }
    }
}

void readBinary(ByteSource& source, Cursor& cursor, const PlyElement& element, const PlyColumns& columns,
                const Watch& watch, CloudBuilder& builder) {
    for (std::uint64_t done = 0; done < element.count;) {
        const auto bytes = source.view(cursor.offset(), columns.stride);
        const std::uint64_t n = std::min({bytes.size() / columns.stride, BATCH, element.count - done});
        builder.append(bytes.data(), columns.stride, n);
        cursor = Cursor(source, cursor.offset() + n * columns.stride);
        watch.at(done += n, "point");
    }
}

void readBinaryWithLists(ByteSource& source, Cursor& cursor, const PlyElement& element,
                         const PlyColumns& columns, const Watch& watch, CloudBuilder& builder) {
    const std::size_t most = rowsAtOnce(element, columns.stride);
    std::vector<unsigned char> rows(most * columns.stride);
    for (std::uint64_t done = 0; done < element.count;) {
        const std::size_t n = std::min<std::uint64_t>(most, element.count - done);
        for (std::size_t i = 0; i < n; ++i) {
            walkBinaryRecord(cursor, element, columns.traits.swapped, source,
                             rows.data() + i * columns.stride);
        }
        builder.append(rows.data(), columns.stride, n);
        watch.at(done += n, "point");
    }
}

void skipBinary(ByteSource& source, Cursor& cursor, const PlyElement& element, bool swapped,
                const Watch& watch, std::uint64_t points) {
    if (!element.hasLists()) {
        cursor.skip(element.count * element.leastSize());  // which the whole file was seen to hold
        return;
    }
    for (std::uint64_t i = 0; i < element.count; ++i) {
        walkBinaryRecord(cursor, element, swapped, source, nullptr);
        if (i % BATCH == BATCH - 1) {
            watch.at(points, "point");
        }
    }
}

// The least that the elements need, against what is there: counts are not trusted before this.
void checkCounts(ByteSource& source, const PlyHeader& header, std::uint64_t offset) {
    std::uint64_t left = source.size() - offset + (header.ascii ? 1 : 0);
    for (const PlyElement& element : header.elements) {
        const std::uint64_t each = header.ascii ? 2 * element.properties.size() : element.leastSize();
        if (each != 0 && element.count > left / each) {
            source.fail(source.size(), "the file ends here, but the header promises " +
                                           std::to_string(element.count) + " elements " +
                                           inQuotes(element.name));
        }
        left -= each * element.count;
    }
}

// Blanks and zeros may follow the last element; anything else tells of wrong counts.
void checkEnd(ByteSource& source, std::uint64_t offset) {
    while (offset < source.size()) {
        for (const unsigned char byte : source.view(offset, 1)) {
            if (byte != 0 && byte != ' ' && byte != '\n' && byte != '\r' && byte != '\t') {
                source.fail(offset, "the file goes on behind the last element that the header promises");
            }
            ++offset;
        }
    }
}

}  // namespace

PointFile readPly(ByteSource& source, const ReadOptions& options) {
    LineReader lines(source);
    const PlyHeader header = readPlyHeader(lines);
    const auto vertex = std::ranges::find(header.elements, std::string("vertex"), &PlyElement::name);
    if (vertex == header.elements.end()) {
        lines.fail("the header has no element 'vertex'");
    }
    PlyColumns columns = plyColumns(header, *vertex);
    if (!columns.hasPositions) {
        lines.fail("the element 'vertex' has no properties x, y and z");
    }
    checkCounts(source, header, lines.offset());

    const Watch watch(options, source.path(), vertex->count);
    watch.at(0, "point");
    CloudBuilder builder(columns.columns, columns.vectors, columns.traits, options);
    builder.expect(vertex->count);
    Cursor cursor(source, lines.offset());
    for (const PlyElement& element : header.elements) {
        const bool wanted = &element == &*vertex;
        if (header.ascii) {
            wanted ? readAscii(lines, element, columns, watch, builder)
                   : skipAscii(lines, element, watch, builder.size());
        } else if (!wanted) {
            skipBinary(source, cursor, element, columns.traits.swapped, watch, builder.size());
        } else if (element.hasLists()) {
            readBinaryWithLists(source, cursor, element, columns, watch, builder);
        } else {
            readBinary(source, cursor, element, columns, watch, builder);
        }
    }
    checkEnd(source, header.ascii ? lines.offset() : cursor.offset());
    PointFile file = builder.finish();
    file.format = PointFormat::PLY;
    return file;
}

}  // namespace ombrix::io::detail
