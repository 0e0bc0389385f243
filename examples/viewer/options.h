#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include <examples/common/arguments.h>

namespace examples::viewer {

struct Options {
    bool help = false;
    std::vector<std::filesystem::path> files;  ///< empty: the shipped cloud
    std::string host = "127.0.0.1";
    int port = 8765;                   ///< 0: any that is free
    std::uint64_t budget = 1'000'000;  ///< points that a page draws unless its user changes it
};

/// Points that a page's budget may be.
inline constexpr std::uint64_t LEAST_BUDGET = 100'000;
inline constexpr std::uint64_t MOST_BUDGET = 20'000'000;

/// Reads a command line, program name first.
/// @throws UsageError
[[nodiscard]] Options parseOptions(int count, const char* const* arguments);

void printHelp(std::ostream& out);

}  // namespace examples::viewer
