#pragma once

#include <cstddef>
#include <cstring>
#include <istream>
#include <memory>
#include <utility>

namespace ombrix::mesh::detail {

/// Bytes read at a time; a longer line makes the buffer grow up to the limit.
inline constexpr std::size_t TEXT_BLOCK = std::size_t{1} << 18;
inline constexpr std::size_t MAX_LINE = std::size_t{1} << 28;

/// Calls `line(first, last)` for every line of a stream, without its end; `*last` is '\n', also where the
/// stream ends without one. Lines beyond `MAX_LINE` bytes are passed as empty ones, so that memory stays
/// bounded whatever the stream holds.
template <class Line>
void forEachLine(std::istream& in, Line&& line) {
    std::size_t capacity = TEXT_BLOCK;
    auto buffer = std::make_unique_for_overwrite<char[]>(capacity + 1);
    std::size_t kept = 0;  // bytes of a line whose end is not read yet
    bool overlong = false;

    while (in) {
        in.read(buffer.get() + kept, static_cast<std::streamsize>(capacity - kept));
        const auto got = static_cast<std::size_t>(in.gcount());
        const char* first = buffer.get();
        char* filled = buffer.get() + kept + got;
        const char* unread = buffer.get() + kept;
        if (!in && filled != first) {
            if (filled[-1] != '\n') {
                *filled++ = '\n';
            }
        }
        while (const void* found = std::memchr(unread, '\n', static_cast<std::size_t>(filled - unread))) {
            const char* last = static_cast<const char*>(found);
            line(overlong ? last : first, last);
            overlong = false;
            first = unread = last + 1;
        }
        kept = static_cast<std::size_t>(filled - first);
        if (kept == capacity && capacity == MAX_LINE) {
            overlong = true;
            kept = 0;
        } else if (kept == capacity) {
            auto larger = std::make_unique_for_overwrite<char[]>(2 * capacity + 1);
            std::memcpy(larger.get(), first, kept);
            buffer = std::move(larger);
            capacity *= 2;
        } else {
            std::memmove(buffer.get(), first, kept);
        }
    }
}

/// `forEachLine` without the byte order mark that some editors put in front of UTF-8.
template <class Line>
void forEachObjLine(std::istream& in, Line&& line) {
    bool start = true;
    forEachLine(in, [&](const char* first, const char* last) {
        if (start && last - first >= 3 && std::memcmp(first, "\xEF\xBB\xBF", 3) == 0) {
            first += 3;
        }
        start = false;
        line(first, last);
    });
}

}  // namespace ombrix::mesh::detail
