#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <ombrix/io/byte_source_detail.h>

namespace ombrix::io::detail {

/// Walks through the lines of a source; lines end with LF or CR LF, the last one also without.
class LineReader {
public:
    explicit LineReader(ByteSource& source) : source_(&source) {}

    /// The next line without its end, valid until the next call; false at the end of the file.
    [[nodiscard]] bool next(std::string_view& line);

    /// File offset behind the line that was read last.
    [[nodiscard]] std::uint64_t offset() const { return base_ + used_; }
    /// Number of the line that was read last, from 1.
    [[nodiscard]] std::uint64_t line() const { return line_; }

    /// Throws an `Error` about the line that was read last.
    [[noreturn]] void fail(const std::string& reason) const;

private:
    ByteSource* source_;
    std::uint64_t base_ = 0;
    std::uint64_t used_ = 0;
    std::uint64_t line_ = 0;
    std::span<const unsigned char> bytes_;
};

}  // namespace ombrix::io::detail
