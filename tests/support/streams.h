#pragma once

#include <clocale>
#include <locale>
#include <string>

#include <gtest/gtest.h>

namespace ombrix::test {

/// What action() prints on the standard output.
template <class Action>
std::string printedBy(const Action& action) {
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}

/// A locale with a decimal comma and grouped thousands, for C++ streams and, where installed, for C.
class CommaLocale {
public:
    CommaLocale() {
        struct Comma : std::numpunct<char> {
            char do_decimal_point() const override { return ','; }
            char do_thousands_sep() const override { return '.'; }
            std::string do_grouping() const override { return "\3"; }
        };
        std::locale::global(std::locale(std::locale::classic(), new Comma));
        for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8", "de_DE"}) {
            if (std::setlocale(LC_ALL, name) != nullptr) {
                break;
            }
        }
    }
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;
    ~CommaLocale() {
        std::locale::global(std::locale::classic());
        std::setlocale(LC_ALL, "C");
    }
};

}  // namespace ombrix::test
