#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include <ombrix/core/services/memory_mapped_detail.h>

namespace ombrix::core::detail {

namespace {

// A file's handle is its descriptor + 1, so that 0, a descriptor like others, is not null.
void* toHandle(int descriptor) noexcept {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): never dereferenced
    return reinterpret_cast<void*>(std::intptr_t{descriptor} + 1);
}

int toDescriptor(void* handle) noexcept {
    return static_cast<int>(reinterpret_cast<std::intptr_t>(handle) - 1);
}

static_assert(sizeof(off_t) == 8, "build with 64-bit file offsets");

}  // namespace

void* openFile(const std::string& filename, MemoryMapped::CacheHint hint) noexcept {
    // Opening can block on a pipe and has effects on some devices: look first.
    struct stat status {};
    if (::stat(filename.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return nullptr;
    int descriptor = -1;
    do
        descriptor = ::open(filename.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    while (descriptor < 0 && errno == EINTR);
#ifdef POSIX_FADV_SEQUENTIAL
    // Advice alone: reading works without.
    if (descriptor >= 0 && hint == MemoryMapped::SequentialScan)
        (void)::posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
    if (descriptor >= 0 && hint == MemoryMapped::RandomAccess)
        (void)::posix_fadvise(descriptor, 0, 0, POSIX_FADV_RANDOM);
#endif
    return toHandle(descriptor);
}

bool fileSize(void* file, std::uint64_t& size) noexcept {
    struct stat status {};
    if (::fstat(toDescriptor(file), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    size = static_cast<std::uint64_t>(status.st_size);
    return true;
}

void* createMapping(void* file) noexcept {
    // Views are made from the descriptor itself.
    std::uint64_t size = 0;
    return fileSize(file, size) && size > 0 ? file : nullptr;
}

void* mapView(void* mapping, std::uint64_t offset, std::uint64_t bytes,
              MemoryMapped::CacheHint hint) noexcept {
    // A range that the file has lost since it was opened could be mapped but not read.
    std::uint64_t size = 0;
    if (!fileSize(mapping, size) || offset > size || bytes > size - offset ||
        bytes > std::numeric_limits<std::size_t>::max())
        return nullptr;
    const auto length = static_cast<std::size_t>(bytes);
    // A private view can be had from file systems that refuse shared ones; nobody writes either.
    void* const view =
        ::mmap(nullptr, length, PROT_READ, MAP_PRIVATE, toDescriptor(mapping), static_cast<off_t>(offset));
    if (view == MAP_FAILED)
        return nullptr;
    if (hint == MemoryMapped::SequentialScan)
        (void)::posix_madvise(view, length, POSIX_MADV_SEQUENTIAL);
    if (hint == MemoryMapped::RandomAccess)
        (void)::posix_madvise(view, length, POSIX_MADV_RANDOM);
    return view;
}

void unmapView(const void* view, std::uint64_t bytes) noexcept {
    ::munmap(const_cast<void*>(view), static_cast<std::size_t>(bytes));
}

void closeMapping(void* /*mapping*/) noexcept {}

void closeFile(void* file) noexcept {
    ::close(toDescriptor(file));
}

std::uint64_t viewGranularity() noexcept {
    return static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

}  // namespace ombrix::core::detail
