#pragma once

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>

namespace ombrix::mesh::detail {

/// Powers of ten that a double holds exactly, as far as they are needed here.
inline constexpr double POWERS_OF_TEN[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                           1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

[[nodiscard]] constexpr bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

/// `parseFloat` for every form of number, without its fast path.
const char* parseFloatGeneral(const char* first, const char* last, float& value) noexcept;

/// Reads the number that starts at `first`, correctly rounded, as `std::from_chars` does, and besides: a
/// leading '+', numbers beyond the range of float (infinite, or zero when tiny), and the "1.#INF" and
/// "1.#IND" that some C libraries print. `*last` must be readable and part of no number.
/// @return the end of the number; `first` when there is none, then `value` is unchanged.
inline const char* parseFloat(const char* first, const char* last, float& value) noexcept {
    const char* p = first;
    const bool negative = *p == '-';
    if (negative || *p == '+') {
        ++p;
    }
    const char* digits = p;
    std::uint64_t mantissa = 0;
    for (; isDigit(*p); ++p) {
        mantissa = mantissa * 10 + static_cast<std::uint64_t>(*p - '0');
    }
    auto count = p - digits;
    std::ptrdiff_t decimals = 0;
    if (*p == '.') {
        const char* point = ++p;
        for (; isDigit(*p); ++p) {
            mantissa = mantissa * 10 + static_cast<std::uint64_t>(*p - '0');
        }
        decimals = p - point;
        count += decimals;
    }
    // Up to 15 digits and their power of ten are exact in double, so the quotient is rounded once. Rounding
    // it again to float is right unless it lies halfway between two floats (or leaves the normal range).
    if (count > 0 && count <= 15 && *p != 'e' && *p != 'E' && *p != '#') {
        const double number = static_cast<double>(mantissa) / POWERS_OF_TEN[decimals];
        constexpr std::uint64_t BELOW_FLOAT = (std::uint64_t{1} << 29) - 1;
        constexpr std::uint64_t HALFWAY = std::uint64_t{1} << 28;
        const bool halfway = (std::bit_cast<std::uint64_t>(number) & BELOW_FLOAT) == HALFWAY;
        if (!halfway && (mantissa == 0 || number >= FLT_MIN)) {
            value = static_cast<float>(negative ? -number : number);
            return p;
        }
    }
    return parseFloatGeneral(first, last, value);
}

/// Longest text of `formatFloat`: sign, nine digits, point, three zeros or an exponent.
inline constexpr std::size_t MAX_FLOAT_TEXT = 24;

/// Writes a number as "%.<digits>g" does in the "C" locale, digits from 1 to 9.
/// @param out  room for `MAX_FLOAT_TEXT` characters.
/// @return     the end of the text.
char* formatFloat(char* out, float value, int digits) noexcept;

}  // namespace ombrix::mesh::detail
