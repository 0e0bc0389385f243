#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ombrix/io/cloud_builder_detail.h>
#include <ombrix/io/line_reader_detail.h>
#include <ombrix/io/number_text_detail.h>
#include <ombrix/io/readers_detail.h>
#include <ombrix/io/text_columns_detail.h>
#include <ombrix/io/watch_detail.h>

namespace ombrix::io::detail {

namespace {

// Points that go to the builder at a time; the first of these groups also tells what the columns are.
constexpr std::size_t ROWS = 4096;

// Values that the first rows showed to be colours, and a later row does not.
struct NoColors {};

class TextReader {
public:
    TextReader(ByteSource& source, const ReadOptions& options, bool guessColors)
        : source_(&source),
          options_(&options),
          guessColors_(guessColors),
          lines_(source),
          watch_(options, source.path(), source.size()) {}

    PointFile read();

private:
    [[nodiscard]] bool nextLine(std::string_view& line);
    void readStart();
    [[nodiscard]] bool takesHeader(std::string_view line);
    void setColumns(std::vector<Column> columns);
    void nameColumns(const std::vector<std::string_view>& names, const char* what);
    void readRow(std::string_view line);
    double takeValue(const char*& at, const char* end);
    void flush();
    void startBuilder();

    ByteSource* source_;
    const ReadOptions* options_;
    bool guessColors_;
    bool guessed_ = false;
    LineReader lines_;
    Watch watch_;
    Separator separator_ = Separator::Blank;
    std::string comment_;                // the last one before the points
    std::optional<double> promised_;     // points, by a count in front of them
    std::size_t count_ = 0;              // columns
    std::vector<Column> columns_;        // empty until they are known
    std::vector<std::size_t> channels_;  // columns that hold colours
    std::vector<double> rows_;
    std::optional<CloudBuilder> builder_;
    std::uint64_t reported_ = 0;
};

// The next line that is neither blank nor a comment.
bool TextReader::nextLine(std::string_view& line) {
    while (lines_.next(line)) {
        if (lines_.line() == 1 && line.starts_with("\xEF\xBB\xBF")) {
            line.remove_prefix(3);
        }
        if (lines_.offset() - reported_ >= BATCH_BYTES) {
            reported_ = lines_.offset();
            watch_.at(reported_, "byte");
        }
        const std::size_t begin = line.find_first_not_of(" \t");
        if (begin == std::string_view::npos) {
            continue;
        }
        if (line[begin] != '#' && !line.substr(begin).starts_with("//")) {
            return true;
        }
        if (count_ == 0) {
            comment_ = line.substr(std::min(line.find_first_not_of("#/ \t"), line.size()));
        }
    }
    return false;
}

void TextReader::setColumns(std::vector<Column> columns) {
    columns_ = std::move(columns);
    for (const Column& column : columns_) {
        if (column.role == Role::Red || column.role == Role::Green || column.role == Role::Blue) {
            channels_.push_back(column.offset / sizeof(double));
        }
    }
}

void TextReader::nameColumns(const std::vector<std::string_view>& names, const char* what) {
    setColumns(namedTextColumns(names));
    if (columns_.empty()) {
        lines_.fail(std::string(what) + " without x, y and z");
    }
    count_ = columns_.size();
}

// Whether the line names the columns; they are taken from it unless the caller gave them.
bool TextReader::takesHeader(std::string_view line) {
    const std::vector<std::string_view> pieces = cutLine(line, separator_);
    const std::string_view first = pieces.empty() ? line : pieces.front();
    const char* at = first.data();
    double value = 0.0;
    const char* wrong = takeNumber(at, at + first.size(), value);
    const bool isWord = wrong != nullptr && std::string_view(wrong).starts_with("not a number");
    if (!isWord && std::ranges::none_of(pieces, [](std::string_view p) { return roleOf(p) == Role::X; })) {
        return false;
    }
    if (options_->columns.empty()) {
        nameColumns(pieces, "a header");
    }
    return true;
}

// Everything up to the first point: header, count, columns.
void TextReader::readStart() {
    if (!options_->columns.empty()) {
        nameColumns({options_->columns.begin(), options_->columns.end()}, "columns");
    }
    std::string_view line;
    bool header = false;
    while (nextLine(line)) {
        separator_ = separatorOf(line);
        if (!header && !promised_ && takesHeader(line)) {
            header = true;
            continue;
        }
        const std::size_t pieces = cutLine(line, separator_).size();
        if (pieces == 1 && !header && !promised_) {
            const char* at = line.data();
            promised_ = takeValue(at, at + line.size());
            continue;
        }
        if (count_ == 0) {
            if (pieces < 3) {
                lines_.fail("a point needs three columns");
            }
            const std::vector<std::string_view> names = cutLine(comment_, separatorOf(comment_));
            if (names.size() == pieces) {
                setColumns(namedTextColumns(names));
            }
            count_ = pieces;
        }
        readRow(line);
        return;
    }
    lines_.fail("the file holds no points");
}

double TextReader::takeValue(const char*& at, const char* end) {
    skipBlanks(at, end);
    const char* begin = at;
    const bool quote = at != end && *at == '"';
    at += quote ? 1 : 0;
    double value = 0.0;
    const char* wrong = takeNumber(at, end, value);
    if (wrong == nullptr && quote) {
        wrong = at != end && *at == '"' ? nullptr : "a quote is not closed: ";
        at += wrong == nullptr ? 1 : 0;
    }
    if (wrong == nullptr) {
        const char* after = at;
        skipBlanks(at, end);
        const bool ends =
            at == end ||
            (separator_ == Separator::Blank ? at != after : *at == static_cast<char>(separator_));
        wrong = ends ? nullptr : "not a number: ";
    }
    if (wrong != nullptr) {
        const char stops[] = {static_cast<char>(separator_), '\t', '\0'};
        const char* stop = std::find_first_of(begin, end, stops, stops + 2);
        lines_.fail(begin == stop ? "a column is empty"
                                  : wrong + inQuotes({begin, static_cast<std::size_t>(stop - begin)}));
    }
    return value;
}

void TextReader::readRow(std::string_view line) {
    const char* at = line.data();
    const char* end = at + line.size();
    for (std::size_t i = 0; i < count_; ++i) {
        skipBlanks(at, end);
        if (at == end) {
            lines_.fail("only " + std::to_string(i) + " of " + std::to_string(count_) + " columns");
        }
        rows_.push_back(takeValue(at, end));
        if (separator_ != Separator::Blank && at != end) {
            ++at;
        }
    }
    skipBlanks(at, end);
    if (at != end) {
        lines_.fail("more than " + std::to_string(count_) + " columns");
    }
    const double* row = rows_.data() + rows_.size() - count_;
    for (const std::size_t channel : channels_) {
        if (row[channel] < 0.0 || row[channel] > 65535.0) {
            if (guessed_) {
                throw NoColors();
            }
            lines_.fail("a colour is not between 0 and 65535");
        }
    }
}

void TextReader::startBuilder() {
    if (columns_.empty()) {
        setColumns(guessedTextColumns(rows_, count_, guessColors_));
        guessed_ = true;
    }
    RecordTraits traits;
    traits.colors = ColorDepth::Kind::Text;
    builder_.emplace(columns_, std::vector<VectorColumns>{}, traits, *options_);
    // The rest is likely to be as long as the first rows are; no more than a value takes two bytes.
    const std::uint64_t rows = rows_.size() / count_;
    const double share = static_cast<double>(source_->size()) / static_cast<double>(lines_.offset());
    builder_->expect(std::min(static_cast<std::uint64_t>(1.02 * share * static_cast<double>(rows)),
                              source_->size() / (2 * count_) + 1));
}

void TextReader::flush() {
    if (!builder_) {
        startBuilder();
    }
    builder_->append(reinterpret_cast<const unsigned char*>(rows_.data()), count_ * sizeof(double),
                     rows_.size() / count_);
    rows_.clear();
}

PointFile TextReader::read() {
    watch_.at(0, "byte");
    readStart();
    std::string_view line;
    while (nextLine(line)) {
        readRow(line);
        if (rows_.size() >= ROWS * count_) {
            flush();
        }
    }
    flush();
    if (promised_ && *promised_ != static_cast<double>(builder_->size())) {
        lines_.fail("the file holds " + std::to_string(builder_->size()) +
                    " points, which is not the count in front of them");
    }
    watch_.at(source_->size(), "byte");
    PointFile file = builder_->finish();
    file.format = PointFormat::TEXT;
    return file;
}

}  // namespace

PointFile readText(ByteSource& source, const ReadOptions& options) {
    try {
        return TextReader(source, options, true).read();
    } catch (const NoColors&) {
        return TextReader(source, options, false).read();
    }
}

}  // namespace ombrix::io::detail
