#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace examples {

/// A command line that cannot be followed; the text names the option and says what it takes.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What a program's command line may hold.
struct Arguments {
    using Flag = std::function<void()>;
    using Setter = std::function<void(std::string_view option, std::string_view value)>;

    std::map<std::string_view, Flag> flags;            ///< options without a value
    std::map<std::string_view, Setter> values;         ///< --option value, or --option=value
    std::function<void(std::string_view)> positional;  ///< all others, and whatever follows "--"

    /// Reads a command line, program name first.
    /// @throws UsageError
    void read(int count, const char* const* arguments) const;
};

/// Runs a program and gives its exit status: 0, 2 for a command line that cannot be followed, 1 for any other
/// exception, whose text it writes to standard error after the program's name.
[[nodiscard]] int runProgram(const std::string& name, const std::function<void()>& program);

/// @throws UsageError "bad value 'VALUE' for OPTION: expected EXPECTED"
[[noreturn]] void refuse(std::string_view option, std::string_view value, const std::string& expected);

/// A whole number in [low, high].
[[nodiscard]] std::uint64_t whole(std::string_view option, std::string_view value, std::uint64_t low,
                                  std::uint64_t high);

/// A number in [low, high]; the limits are whole.
[[nodiscard]] float real(std::string_view option, std::string_view value, int low, int high);

/// Names that an option takes, and what they stand for.
template <class Value>
using Names = std::vector<std::pair<std::string_view, Value>>;

/// The value of a name.
template <class Value>
[[nodiscard]] Value choose(std::string_view option, std::string_view value, const Names<Value>& names) {
    std::string expected;
    for (const auto& [text, result] : names) {
        if (text == value)
            return result;
        expected += (expected.empty() ? "" : ", ") + std::string(text);
    }
    refuse(option, value, "one of " + expected);
}

/// The name of a value; empty when it has none.
template <class Value>
[[nodiscard]] std::string nameIn(const Names<Value>& names, Value wanted) {
    for (const auto& [text, value] : names)
        if (value == wanted)
            return std::string(text);
    return {};
}

}  // namespace examples
