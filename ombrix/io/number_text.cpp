#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>

#include <ombrix/core/decimal_size_detail.h>
#include <ombrix/io/number_text_detail.h>

namespace ombrix::io::detail {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

const char* takeNumber(const char*& at, const char* end, double& value) {
    const char* begin = at;
    if (begin != end && *begin == '+') {
        ++begin;
    }
    const char* first = begin != end && *begin == '-' && begin == at ? begin + 1 : begin;
    if (first == end || !(isDigit(*first) || *first == '.')) {
        const std::string_view rest(first, static_cast<std::size_t>(end - first));
        const auto spells = [&](std::string_view word) {
            return rest.size() >= word.size() &&
                   std::ranges::equal(rest.substr(0, word.size()), word,
                                      [](char a, char b) { return (a | 0x20) == b; });
        };
        return spells("nan") || spells("inf") ? "not a finite number: " : "not a number: ";
    }
    const auto [stop, code] = std::from_chars(begin, end, value);
    if (code == std::errc::result_out_of_range) {
        if (!core::detail::isTinyDecimal({begin, static_cast<std::size_t>(stop - begin)})) {
            return "number out of range: ";
        }
        value = 0.0;
    } else if (code != std::errc()) {
        return "not a number: ";
    }
    at = stop;
    return nullptr;
}

std::string inQuotes(std::string_view text) {
    constexpr std::size_t LONGEST = 40;
    std::string out = "'";
    for (const char c : text.substr(0, LONGEST)) {
        out += c >= ' ' && c <= '~' ? c : '?';
    }
    return out + (text.size() > LONGEST ? "...'" : "'");
}

std::string_view takeWord(std::string_view& text) {
    const std::size_t begin = std::min(text.find_first_not_of(" \t"), text.size());
    text.remove_prefix(begin);
    const std::size_t length = std::min(text.find_first_of(" \t"), text.size());
    const std::string_view word = text.substr(0, length);
    text.remove_prefix(length);
    return word;
}

}  // namespace ombrix::io::detail
