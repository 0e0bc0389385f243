#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>

#include <limits>

#include <ombrix/core/services/memory_mapped_detail.h>

namespace ombrix::core::detail {

namespace {

DWORD fileFlag(MemoryMapped::CacheHint hint) noexcept {
    switch (hint) {
        case MemoryMapped::Normal:
            return FILE_ATTRIBUTE_NORMAL;
        case MemoryMapped::SequentialScan:
            return FILE_FLAG_SEQUENTIAL_SCAN;
        case MemoryMapped::RandomAccess:
            return FILE_FLAG_RANDOM_ACCESS;
    }
    return 0;
}

}  // namespace

void* openFile(const std::string& filename, MemoryMapped::CacheHint hint) noexcept {
    // A failure gives INVALID_HANDLE_VALUE, which is not null and which closing takes without harm.
    return ::CreateFileA(filename.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                         fileFlag(hint), nullptr);
}

bool fileSize(void* file, std::uint64_t& size) noexcept {
    LARGE_INTEGER result;
    if (!::GetFileSizeEx(file, &result))
        return false;
    size = static_cast<std::uint64_t>(result.QuadPart);
    return true;
}

void* createMapping(void* file) noexcept {
    return ::CreateFileMappingA(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
}

void* mapView(void* mapping, std::uint64_t offset, std::uint64_t bytes,
              MemoryMapped::CacheHint /*hint*/) noexcept {
    if (bytes > std::numeric_limits<SIZE_T>::max())
        return nullptr;
    return ::MapViewOfFile(mapping, FILE_MAP_READ, static_cast<DWORD>(offset >> 32),
                           static_cast<DWORD>(offset & 0xffffffffu), static_cast<SIZE_T>(bytes));
}

void unmapView(const void* view, std::uint64_t /*bytes*/) noexcept {
    ::UnmapViewOfFile(view);
}

void closeMapping(void* mapping) noexcept {
    ::CloseHandle(mapping);
}

void closeFile(void* file) noexcept {
    ::CloseHandle(file);
}

std::uint64_t viewGranularity() noexcept {
    SYSTEM_INFO info;
    ::GetSystemInfo(&info);
    return info.dwAllocationGranularity;
}

MemoryStatus memoryStatus() {
    MEMORYSTATUSEX status;
    status.dwLength = sizeof(status);
    if (!::GlobalMemoryStatusEx(&status))
        return {};
    return {status.ullTotalPhys, status.ullAvailPhys, status.dwMemoryLoad};
}

}  // namespace ombrix::core::detail
