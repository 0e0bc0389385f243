#include <charconv>
#include <limits>
#include <string_view>
#include <system_error>

#include <ombrix/core/decimal_size_detail.h>
#include <ombrix/mesh/obj_number_detail.h>

namespace ombrix::mesh::detail {

namespace {

/// A number that not even double can hold: infinite, or 0 when the power of ten that its first digit stands
/// for is negative.
float beyondDouble(std::string_view text) noexcept {
    const bool negative = text.starts_with('-');
    text.remove_prefix(negative ? 1 : 0);
    const float size = core::detail::isTinyDecimal(text) ? 0.0f : std::numeric_limits<float>::infinity();
    return negative ? -size : size;
}

/// What stands behind "1." in the texts that some C libraries print for values that are no numbers.
const char* parseSpecial(const char* first, const char* last, float& value) noexcept {
    const std::string_view rest(first, static_cast<std::size_t>(last - first));
    if (rest.starts_with("#INF")) {
        value = std::copysign(std::numeric_limits<float>::infinity(), value);
        return first + 4;
    }
    for (const std::string_view name : {"#IND", "#QNAN", "#SNAN"}) {
        if (rest.starts_with(name)) {
            value = std::copysign(std::numeric_limits<float>::quiet_NaN(), value);
            return first + name.size();
        }
    }
    return first;
}

}  // namespace

const char* parseFloatGeneral(const char* first, const char* last, float& value) noexcept {
    const char* start = first;
    if (start != last && *start == '+') {
        ++start;
        if (start != last && *start == '-') {
            return first;
        }
    }
    float number = 0;
    auto [end, error] = std::from_chars(start, last, number);
    if (error == std::errc::invalid_argument) {
        return first;
    }
    if (error == std::errc::result_out_of_range) {
        double wide = 0;
        const bool held = std::from_chars(start, last, wide).ec == std::errc();
        number =
            held ? static_cast<float>(wide) : beyondDouble({start, static_cast<std::size_t>(end - start)});
    }
    if (end != last && *end == '#') {
        end = parseSpecial(end, last, number);
    }
    value = number;
    return end;
}

char* formatFloat(char* out, float value, int digits) noexcept {
    const double size = std::abs(static_cast<double>(value));
    // Decimal exponent e with 10^e <= size < 10^(e + 1). The product with 10^(digits - 1 - e), at most
    // 10^12, is exact: 24 bits of a float times 28 of 5^12. So it is rounded once, to the nearest integer,
    // half to even, and the text is that of the exact value.
    if (size >= 1e-4 && size < POWERS_OF_TEN[digits]) {
        int exponent = -4;
        for (constexpr double STEPS[] = {1e-3, 1e-2, 1e-1}; exponent < -1 && size >= STEPS[exponent + 4];) {
            ++exponent;
        }
        if (size >= 1) {
            exponent = 0;
            while (size >= POWERS_OF_TEN[exponent + 1]) {
                ++exponent;
            }
        }
        auto scaled = static_cast<std::uint64_t>(std::nearbyint(size * POWERS_OF_TEN[digits - 1 - exponent]));
        if (scaled == static_cast<std::uint64_t>(POWERS_OF_TEN[digits])) {
            scaled /= 10;
            ++exponent;
        }
        if (exponent < digits) {
            int kept = digits;
            while (scaled % 10 == 0) {
                scaled /= 10;
                --kept;
            }
            if (std::signbit(value)) {
                *out++ = '-';
            }
            // Integer part, padded where trailing zeros were cut, or the zeros that lead the decimals.
            char text[16] = {};
            std::to_chars(text, text + sizeof text, scaled);
            const char* digit = text;
            int left = kept;
            if (exponent < 0) {
                *out++ = '0';
                *out++ = '.';
                for (int zero = exponent + 1; zero < 0; ++zero) {
                    *out++ = '0';
                }
            } else {
                for (int place = 0; place <= exponent; ++place) {
                    *out++ = left > 0 ? *digit++ : '0';
                    --left;
                }
                if (left > 0) {
                    *out++ = '.';
                }
            }
            for (; left > 0; --left) {
                *out++ = *digit++;
            }
            return out;
        }
    }
    return std::to_chars(out, out + MAX_FLOAT_TEXT, value, std::chars_format::general, digits).ptr;
}

}  // namespace ombrix::mesh::detail
