#pragma once

#include <string>
#include <string_view>

namespace ombrix::io::detail {

/// Takes a number off the front of a text, whatever the locale: sign (also +), digits, point, exponent.
/// Values too small for a double are 0.
///
/// @return  null when it was taken, else what is wrong with it, to be followed by the text in question.
[[nodiscard]] const char* takeNumber(const char*& at, const char* end, double& value);

/// A piece of a file's text that is fit for a message: quoted, printable, short.
[[nodiscard]] std::string inQuotes(std::string_view text);

/// Drops blanks and tabs at the front.
inline void skipBlanks(const char*& at, const char* end) {
    while (at != end && (*at == ' ' || *at == '\t')) {
        ++at;
    }
}

/// Takes the characters up to the next blank or tab off the front, after blanks; empty at the end.
[[nodiscard]] std::string_view takeWord(std::string_view& text);

}  // namespace ombrix::io::detail
