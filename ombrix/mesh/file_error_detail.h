#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace ombrix::mesh::detail {

/// "cannot <action> <path>", and the system's reason when errno holds one; callers set errno to 0 before.
[[nodiscard]] inline std::string fileError(const char* action, const std::string& path) {
    const int reason = errno;
    std::string text = std::string("cannot ") + action + ' ' + path;
    if (reason != 0) {
        text += ": " + std::generic_category().message(reason);
    }
    return text;
}

}  // namespace ombrix::mesh::detail
