#pragma once

#include <cstdint>
#include <string>

#include <ombrix/core/core_export.h>
#include <ombrix/core/services/memory_mapped.h>

/// The calls that `MemoryMapped` makes to the system, one source per system. A handle is null when there is
/// none; others are the system's own.
namespace ombrix::core::detail {

/// Opens an existing file for reading. What comes back of a failure may be a handle other than null that
/// `fileSize` fails on.
[[nodiscard]] void* openFile(const std::string& filename, MemoryMapped::CacheHint hint) noexcept;
[[nodiscard]] bool fileSize(void* file, std::uint64_t& size) noexcept;
/// Read-only mapping of the whole file; null for an empty one.
[[nodiscard]] void* createMapping(void* file) noexcept;
/// View of the bytes [offset, offset + bytes); null when it cannot be had.
[[nodiscard]] void* mapView(void* mapping, std::uint64_t offset, std::uint64_t bytes,
                            MemoryMapped::CacheHint hint) noexcept;
void unmapView(const void* view, std::uint64_t bytes) noexcept;
void closeMapping(void* mapping) noexcept;
void closeFile(void* file) noexcept;

[[nodiscard]] std::uint64_t viewGranularity() noexcept;

/// Physical memory in bytes, and its used share in percent.
struct MemoryStatus {
    std::uint64_t total = 0;
    std::uint64_t available = 0;
    std::uint32_t load = 0;
};
[[nodiscard]] MemoryStatus memoryStatus();

#ifndef _WIN32
/// As `memoryStatus`, with the system's files looked up below `root`, which is "" for the real ones.
[[nodiscard]] OMBRIX_CORE_API MemoryStatus memoryStatus(const std::string& root);
#endif

}  // namespace ombrix::core::detail
