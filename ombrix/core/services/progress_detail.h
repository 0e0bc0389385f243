#pragma once

#include <chrono>

#include <ombrix/core/core_export.h>

namespace ombrix::core::detail {

/// The clock of all progress bars, `std::chrono::steady_clock::now`: a test can set it to one of its own.
OMBRIX_CORE_API extern std::chrono::steady_clock::time_point (*progressClock)();

}  // namespace ombrix::core::detail
