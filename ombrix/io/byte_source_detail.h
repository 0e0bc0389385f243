#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include <ombrix/core/services/memory_mapped.h>

namespace ombrix::io::detail {

/// The bytes of a file, of which a window is mapped at a time.
class ByteSource {
public:
    /// @throws Error  when the path is no readable regular file, or an empty one.
    ByteSource(const std::filesystem::path& path, std::uint64_t windowBytes);

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::uint64_t size() const { return file_.size(); }

    /// The bytes from `offset` on: at least `need`, as many as the window holds. Valid until the next call.
    /// @throws Error  when the file ends before.
    [[nodiscard]] std::span<const unsigned char> view(std::uint64_t offset, std::uint64_t need);

    /// Throws an `Error` about byte `offset`.
    [[noreturn]] void fail(std::uint64_t offset, const std::string& reason) const;

private:
    std::string path_;
    core::MemoryMapped file_;
    std::uint64_t window_;
    std::uint64_t base_ = 0;  // file offset of the mapped window
};

/// Walks forward through a source.
class Cursor {
public:
    Cursor(ByteSource& source, std::uint64_t offset) : source_(&source), base_(offset) {}

    /// File offset of the next byte.
    [[nodiscard]] std::uint64_t offset() const { return base_ + used_; }

    /// The next n bytes, valid until the next call.
    [[nodiscard]] const unsigned char* take(std::uint64_t n) {
        if (bytes_.size() - used_ < n) {
            refill(n);
        }
        const unsigned char* at = bytes_.data() + used_;
        used_ += n;
        return at;
    }

    /// Moves on; the bytes must be there, but are not looked at.
    void skip(std::uint64_t n);

private:
    void refill(std::uint64_t n);

    ByteSource* source_;
    std::uint64_t base_;
    std::uint64_t used_ = 0;
    std::span<const unsigned char> bytes_;
};

}  // namespace ombrix::io::detail
