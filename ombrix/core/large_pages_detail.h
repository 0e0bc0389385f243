#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace ombrix::core::detail {

/// Asks the system to back a large array that was not touched yet by large pages: fewer page faults when it
/// is filled, and fewer address look-ups when it is read in random order. Only a hint.
inline void adviseLargePages([[maybe_unused]] void* data, [[maybe_unused]] std::size_t bytes) {
#if defined(__linux__)
    constexpr std::uintptr_t LARGE_PAGE = std::uintptr_t{1} << 21;
    const auto start = reinterpret_cast<std::uintptr_t>(data);
    const auto first = (start + LARGE_PAGE - 1) & ~(LARGE_PAGE - 1);
    const auto end = (start + bytes) & ~(LARGE_PAGE - 1);
    if (first < end) {
        madvise(static_cast<char*>(data) + (first - start), end - first, MADV_HUGEPAGE);
    }
#endif
}

}  // namespace ombrix::core::detail
