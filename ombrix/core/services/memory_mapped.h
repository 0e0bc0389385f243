#pragma once

#include <cstdint>
#include <string>

#include <ombrix/core/core_export.h>

namespace ombrix::core {

/// Read-only access to the bytes of a file through a mapped view of all of it or of a range, and static
/// queries about the machine's memory.
///
/// Owns the file and the view: moved, not copied. A moved-from or closed object answers like a new one.
/// The size is that of the moment of opening. On systems that let others shorten a mapped file (all but
/// Windows), reading a page of the view past the new end stops the process with SIGBUS; `remap` fails on
/// ranges that are gone.
class OMBRIX_CORE_API MemoryMapped {
public:
    /// How the file will be read: announced to the system, without effect on what is read. Any other value
    /// announces nothing.
    enum CacheHint : std::int32_t {
        Normal = 0,
        SequentialScan = 1,
        RandomAccess = 2,
    };

    MemoryMapped() noexcept = default;
    /// As `open`; `isValid` tells whether it succeeded.
    explicit MemoryMapped(const std::string& filename, std::uint64_t mappedBytes = 0,
                          CacheHint hint = Normal);
    MemoryMapped(const MemoryMapped&) = delete;
    MemoryMapped& operator=(const MemoryMapped&) = delete;
    MemoryMapped(MemoryMapped&& other) noexcept;
    MemoryMapped& operator=(MemoryMapped&& other) noexcept;
    ~MemoryMapped();

    /// Opens a file and maps its first `mappedBytes` bytes; 0 or more than the file has: all of it.
    ///
    /// An object that has a view keeps it and returns false: `close` it first.
    /// @return  whether a view exists: false for a missing or unreadable file, for what is no regular file,
    ///          and for an empty one, which cannot be mapped. When the file was opened but a view of that
    ///          size could not be had, `size` is known and a smaller `remap` may succeed.
    bool open(const std::string& filename, std::uint64_t mappedBytes = 0, CacheHint hint = Normal);

    /// Releases the view and the file; nothing happens when there is none.
    void close() noexcept;

    /// Replaces the view by another range of the open file.
    ///
    /// @param offset       first byte of the view, a multiple of `getpagesize`.
    /// @param mappedBytes  length of the view, cut at the end of the file; 0: up to the end.
    /// @return             false when no file is open, the offset is misaligned or not inside the file, or
    ///                     the system refuses: there is no view then.
    bool remap(std::uint64_t offset, std::uint64_t mappedBytes);

    /// Byte i of the view, counted from the view's start.
    ///
    /// The bound is the size of the file, not of the view: with a view of a part of the file, an index from
    /// `mappedSize` to `size` - 1 passes the check and reads outside of the view.
    /// @throws std::invalid_argument  "No view mapped".
    /// @throws std::out_of_range      "View is not large enough", for i >= `size`.
    [[nodiscard]] unsigned char at(std::uint64_t i) const;

    /// Byte i of the view, unchecked.
    [[nodiscard]] unsigned char operator[](std::uint64_t i) const noexcept { return mappedView_[i]; }

    /// First byte of the view; null when nothing is mapped.
    [[nodiscard]] const unsigned char* getData() const noexcept { return mappedView_; }
    /// Size of the file in bytes.
    [[nodiscard]] std::uint64_t size() const noexcept { return filesize_; }
    /// Size of the view in bytes.
    [[nodiscard]] std::uint64_t mappedSize() const noexcept { return mappedBytes_; }
    /// Whether a view exists.
    [[nodiscard]] bool isValid() const noexcept { return mappedView_ != nullptr; }
    /// The path given to the constructor; `open` stores none.
    [[nodiscard]] const std::string& filename() const noexcept { return filename_; }

    /// What offsets of views must be a multiple of, in bytes: the page size, on Windows the allocation
    /// granularity, which is larger.
    [[nodiscard]] static std::uint64_t getpagesize();

    /// Physical memory in bytes. On Linux the limit of the process's control group (version 1 or 2), where
    /// it is lower; 0 when the system does not tell.
    [[nodiscard]] static std::uint64_t getTotalRAM();
    /// Physical memory in bytes that can be had without swapping, cached file pages included. On Linux no
    /// more than the control group has left.
    [[nodiscard]] static std::uint64_t getAvailableRAM();
    /// Percentage of the total that is not available, 0 to 100.
    [[nodiscard]] static std::uint32_t getMemoryLoad();

private:
    bool mapView(std::uint64_t offset, std::uint64_t bytes) noexcept;
    void unmapView() noexcept;
    void releaseFile() noexcept;

    std::string filename_;
    std::uint64_t filesize_ = 0;
    CacheHint hint_ = Normal;
    std::uint64_t mappedBytes_ = 0;
    void* mappedFile_ = nullptr;  // handle of the file's mapping, in the form of the system's source
    void* file_ = nullptr;        // handle of the file, likewise
    const unsigned char* mappedView_ = nullptr;
};

}  // namespace ombrix::core
