#include <examples/common/arguments.h>

#include <charconv>
#include <exception>
#include <iostream>

namespace examples {

void Arguments::read(int count, const char* const* arguments) const {
    bool onlyPositional = false;
    for (int i = 1; i < count; ++i) {
        const std::string_view argument = arguments[i];
        if (onlyPositional || argument.size() < 2 || argument[0] != '-') {
            positional(argument);
            continue;
        }
        if (argument == "--") {
            onlyPositional = true;
            continue;
        }
        if (const auto flag = flags.find(argument); flag != flags.end()) {
            flag->second();
            continue;
        }
        const auto equals = argument.find('=');
        const std::string_view option = argument.substr(0, equals);
        const auto setter = values.find(option);
        if (setter == values.end())
            throw UsageError("unknown option '" + std::string(option) + "'");
        if (equals != std::string_view::npos)
            setter->second(option, argument.substr(equals + 1));
        else if (++i < count)
            setter->second(option, arguments[i]);
        else
            throw UsageError("option " + std::string(option) + " needs a value");
    }
}

int runProgram(const std::string& name, const std::function<void()>& program) {
    try {
        program();
        return 0;
    } catch (const UsageError& error) {
        std::cerr << name << ": " << error.what() << "\nTry '" << name << " --help'.\n";
        return 2;
    } catch (const std::exception& error) {
        std::cerr << name << ": " << error.what() << '\n';
        return 1;
    }
}

void refuse(std::string_view option, std::string_view value, const std::string& expected) {
    throw UsageError("bad value '" + std::string(value) + "' for " + std::string(option) + ": expected " +
                     expected);
}

std::uint64_t whole(std::string_view option, std::string_view value, std::uint64_t low, std::uint64_t high) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc{} || end != value.data() + value.size() || number < low || number > high)
        refuse(option, value, "a whole number from " + std::to_string(low) + " to " + std::to_string(high));
    return number;
}

float real(std::string_view option, std::string_view value, int low, int high) {
    float number = 0.0f;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    const bool inside = number >= static_cast<float>(low) && number <= static_cast<float>(high);
    if (error != std::errc{} || end != value.data() + value.size() || !inside)
        refuse(option, value, "a number from " + std::to_string(low) + " to " + std::to_string(high));
    return number;
}

}  // namespace examples
