#pragma once

#include <algorithm>
#include <charconv>
#include <string_view>
#include <system_error>

namespace ombrix::core::detail {

/// Whether a decimal number that no double holds is too small rather than too large: the sign of the power
/// of ten that its first digit stands for.
[[nodiscard]] inline bool isTinyDecimal(std::string_view number) noexcept {
    const std::size_t e = std::min(number.find_first_of("eE"), number.size());
    const std::string_view mantissa = number.substr(0, e);
    std::string_view digits = number.substr(std::min(e + 1, number.size()));
    const bool negative = digits.starts_with('-');
    digits.remove_prefix(negative || digits.starts_with('+') ? 1 : 0);

    constexpr long long ENOUGH = 1'000'000'000'000'000;  // longer than any text
    long long exponent = 0;
    if (std::from_chars(digits.data(), digits.data() + digits.size(), exponent).ec ==
        std::errc::result_out_of_range) {
        exponent = ENOUGH;
    }
    exponent = std::min(exponent, ENOUGH) * (negative ? -1 : 1);
    const std::size_t point = std::min(mantissa.find('.'), mantissa.size());
    const std::size_t first = std::min(mantissa.find_first_of("123456789"), mantissa.size());
    return static_cast<long long>(point) - static_cast<long long>(first) + exponent < 0;
}

}  // namespace ombrix::core::detail
