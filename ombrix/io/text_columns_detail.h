#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <ombrix/io/column_detail.h>

namespace ombrix::io::detail {

/// What separates a text file's columns: ' ' stands for any number of blanks and tabs.
enum class Separator : char { Blank = ' ', Comma = ',', Semicolon = ';' };

/// The separator that a line shows: a semicolon before a comma before blanks.
[[nodiscard]] Separator separatorOf(std::string_view line);

/// The line cut at the separator, blanks and quotes around each piece dropped. A separator at the end of
/// the line is ignored.
[[nodiscard]] std::vector<std::string_view> cutLine(std::string_view line, Separator separator);

/// Columns of doubles by their names; empty when x, y and z are not among them.
[[nodiscard]] std::vector<Column> namedTextColumns(const std::vector<std::string_view>& names);

/// Columns of doubles by the values of the first rows, each of `count` values, three at least; without
/// `colors`, no columns are taken for such.
[[nodiscard]] std::vector<Column> guessedTextColumns(std::span<const double> rows, std::size_t count,
                                                     bool colors);

}  // namespace ombrix::io::detail
