#include <algorithm>
#include <cmath>

#include <ombrix/io/text_columns_detail.h>

namespace ombrix::io::detail {

namespace {

std::string_view trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) {
        return {};
    }
    text = text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
        text = text.substr(1, text.size() - 2);
    }
    return text;
}

Column textColumn(Role role, std::size_t index, std::string name) {
    Column column;
    column.role = role;
    column.offset = static_cast<std::uint32_t>(index * sizeof(double));
    column.name = std::move(name);
    return column;
}

// What three values in a row are likely to be.
bool areChannels(const double* v) {
    return std::all_of(v, v + 3, [](double c) { return c >= 0.0 && c <= 65535.0 && c == std::trunc(c); });
}

bool areUnitChannels(const double* v) {
    return std::all_of(v, v + 3, [](double c) { return c >= 0.0 && c <= 1.0; });
}

bool isUnitVector(const double* v) {
    return std::abs(v[0] * v[0] + v[1] * v[1] + v[2] * v[2] - 1.0) < 0.02;
}

}  // namespace

Separator separatorOf(std::string_view line) {
    if (line.find(';') != std::string_view::npos) {
        return Separator::Semicolon;
    }
    return line.find(',') != std::string_view::npos ? Separator::Comma : Separator::Blank;
}

std::vector<std::string_view> cutLine(std::string_view line, Separator separator) {
    std::vector<std::string_view> pieces;
    if (separator == Separator::Blank) {
        for (std::size_t begin = line.find_first_not_of(" \t"); begin != std::string_view::npos;
             begin = line.find_first_not_of(" \t", begin)) {
            const std::size_t end = std::min(line.find_first_of(" \t", begin), line.size());
            pieces.push_back(trimmed(line.substr(begin, end - begin)));
            begin = end;
        }
        return pieces;
    }
    line = line.substr(0, line.find_last_not_of(" \t") + 1);
    while (line.find_first_not_of(" \t") != std::string_view::npos) {
        const std::size_t end = std::min(line.find(static_cast<char>(separator)), line.size());
        pieces.push_back(trimmed(line.substr(0, end)));
        line.remove_prefix(std::min(end + 1, line.size()));
    }
    return pieces;
}

std::vector<Column> namedTextColumns(const std::vector<std::string_view>& names) {
    std::vector<Column> columns;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string name = names[i].empty() ? "column_" + std::to_string(i + 1) : std::string(names[i]);
        columns.push_back(textColumn(roleOf(name), i, name));
    }
    return settleRoles(columns) ? columns : std::vector<Column>{};
}

std::vector<Column> guessedTextColumns(std::span<const double> rows, std::size_t count, bool colors) {
    std::vector<Column> columns;
    const auto add = [&](Role role, std::size_t times) {
        for (std::size_t i = 0; i < times; ++i) {
            const std::size_t index = columns.size();
            columns.push_back(textColumn(static_cast<Role>(static_cast<std::size_t>(role) + i), index,
                                         "column_" + std::to_string(index + 1)));
        }
    };
    // Whether the three values at a place are such in every row.
    const auto all = [&](std::size_t place, auto&& are) {
        for (std::size_t row = 0; row < rows.size(); row += count) {
            if (!are(rows.data() + row + place)) {
                return false;
            }
        }
        return true;
    };
    add(Role::X, 3);
    bool color = !colors;
    bool normal = false;
    bool intensity = false;
    bool field = false;
    while (columns.size() < count) {
        const std::size_t at = columns.size();
        const std::size_t left = count - at;
        // x y z intensity red green blue is how scanners' own text files go.
        const bool intensityFirst = left == 4 && !intensity && !color && all(at + 1, areChannels);
        const bool three = left >= 3 && !intensityFirst;
        if (three && !normal && all(at, isUnitVector)) {
            add(Role::NormalX, 3);
            normal = true;
        } else if (three && !color && (all(at, areChannels) || all(at, areUnitChannels))) {
            add(Role::Red, 3);
            color = true;
        } else if (!intensity && !field && (intensityFirst || left == 1)) {
            add(Role::Intensity, 1);
            intensity = true;
        } else {
            add(Role::Field, 1);
            field = true;
        }
    }
    return columns;
}

}  // namespace ombrix::io::detail
