#include <vector>

#include <ombrix/io/cloud_builder_detail.h>
#include <ombrix/io/line_reader_detail.h>
#include <ombrix/io/number_text_detail.h>
#include <ombrix/io/readers_detail.h>
#include <ombrix/io/watch_detail.h>

namespace ombrix::io::detail {

namespace {

constexpr std::size_t ROWS = 4096;
constexpr std::size_t MOST = 7;  // x y z w red green blue

struct Vertex {
    double values[MOST] = {};
    std::size_t count = 0;
};

// The numbers behind the keyword `v`; those beyond the seventh say nothing about points.
Vertex readVertex(std::string_view text, const LineReader& lines) {
    Vertex vertex;
    const char* at = text.data();
    const char* end = at + text.size();
    for (skipBlanks(at, end); at != end && *at != '#' && vertex.count < MOST; skipBlanks(at, end)) {
        const char* begin = at;
        const char* wrong = takeNumber(at, end, vertex.values[vertex.count++]);
        if (wrong == nullptr && at != end && *at != ' ' && *at != '\t') {
            wrong = "not a number: ";
        }
        if (wrong != nullptr) {
            std::string_view rest(begin, static_cast<std::size_t>(end - begin));
            lines.fail(wrong + inQuotes(takeWord(rest)));
        }
    }
    if (vertex.count < 3) {
        lines.fail("a vertex needs three coordinates");
    }
    return vertex;
}

CloudBuilder makeBuilder(const ReadOptions& options) {
    std::vector<Column> columns(6);
    for (std::uint32_t i = 0; i < 6; ++i) {
        columns[i].role = static_cast<Role>(i);  // X, Y, Z, Red, Green, Blue
        columns[i].offset = i * sizeof(double);
    }
    RecordTraits traits;
    traits.colors = ColorDepth::Kind::Real;
    return {columns, {}, traits, options};
}

}  // namespace

PointFile readObj(ByteSource& source, const ReadOptions& options) {
    const Watch watch(options, source.path(), source.size());
    watch.at(0, "byte");
    LineReader lines(source);
    CloudBuilder builder = makeBuilder(options);
    std::vector<double> rows;
    const auto flush = [&] {
        builder.append(reinterpret_cast<const unsigned char*>(rows.data()), 6 * sizeof(double),
                       rows.size() / 6);
        rows.clear();
    };
    bool colored = false;
    std::uint64_t reported = 0;
    for (std::string_view line; lines.next(line);) {
        if (lines.offset() - reported >= BATCH_BYTES) {
            watch.at(reported = lines.offset(), "byte");
        }
        if (takeWord(line) != "v") {
            continue;
        }
        const Vertex vertex = readVertex(line, lines);
        rows.insert(rows.end(), vertex.values, vertex.values + 3);
        const double* color = vertex.values + (vertex.count == MOST ? 4 : 3);
        if (vertex.count >= 6) {
            rows.insert(rows.end(), color, color + 3);
            colored = true;
        } else {
            rows.insert(rows.end(), 3, 0.0);
        }
        if (rows.size() == 6 * ROWS) {
            flush();
        }
    }
    flush();
    if (builder.size() == 0) {
        lines.fail("the file holds no vertices");
    }
    watch.at(source.size(), "byte");
    PointFile file = builder.finish();
    file.format = PointFormat::OBJ;
    if (!colored) {
        file.hasColors = false;
        file.cloud.colors() = {};
    }
    return file;
}

}  // namespace ombrix::io::detail
