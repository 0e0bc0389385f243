// Sequences of views of a file, the file being cut and extended by others meanwhile.

#include <algorithm>
#include <utility>

#include <ombrix/core/services/memory_mapped.h>

#include "fuzz/fuzz_support.h"

namespace {

using namespace ombrix;
using fuzz::require;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzz::InputFile file(".bytes");
    static const std::uint64_t page = core::MemoryMapped::getpagesize();
    fuzz::Input input(data, size);

    std::vector<std::uint8_t> content;
    const auto grow = [&](std::size_t n) {
        content.resize(n);
        for (std::size_t i = 0; i < n; ++i) {
            content[i] = static_cast<std::uint8_t>(i * 31 + i / 251);
        }
        file.write(content.data(), n);
    };
    grow(input.take<std::uint16_t>() * std::size_t{3});

    core::MemoryMapped mapped;
    std::uint64_t sizeAtOpening = 0;
    bool open = false;        // a file is open, with or without a view
    std::uint64_t first = 0;  // of the view, in the file
    std::uint64_t length = 0;
    const auto number = [&]() -> std::uint64_t {
        switch (input.below(4)) {
            case 0:
                return page * input.below(64);
            case 1:
                return input.take<std::uint16_t>();
            case 2:
                return content.size() - input.below(4);
            default:
                return input.take<std::uint64_t>();
        }
    };
    while (!input.empty()) {
        switch (input.below(5)) {
            case 0: {
                const std::uint64_t bytes = number();
                const bool had = mapped.isValid();
                const bool opened = mapped.open(file.path(), bytes,
                                                static_cast<core::MemoryMapped::CacheHint>(input.below(4)));
                require(opened == (!had && !content.empty()), "a file that holds bytes is opened, once");
                if (!had) {
                    open = !content.empty();
                    sizeAtOpening = content.size();
                    first = 0;
                    length = open ? (bytes == 0 ? sizeAtOpening : std::min(bytes, sizeAtOpening)) : 0;
                }
                break;
            }
            case 1: {
                const std::uint64_t offset = number();
                const std::uint64_t bytes = number();
                const std::uint64_t rest = offset <= sizeAtOpening ? sizeAtOpening - offset : 0;
                length = bytes == 0 ? rest : std::min(bytes, rest);
                first = offset;
                const bool possible = open && offset % page == 0 && length > 0 && offset <= content.size() &&
                                      length <= content.size() - offset;
                require(mapped.remap(offset, bytes) == possible, "views of what is there, and of no more");
                length = possible ? length : 0;
                break;
            }
            case 2:
                mapped.close();
                open = false;
                length = 0;
                break;
            case 3: {
                core::MemoryMapped other(std::move(mapped));
                // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): what is promised
                require(!mapped.isValid() && mapped.size() == 0, "a moved-from object is like new");
                mapped = std::move(other);
                break;
            }
            default:
                grow(input.take<std::uint16_t>() * std::size_t{3});
        }
        require(mapped.isValid() == (length > 0) && mapped.mappedSize() == length, "the view's size");
        for (const std::uint64_t i : {std::uint64_t{0}, length / 2, length - 1}) {
            if (length > 0 && i < length && first + i < content.size()) {
                require(mapped.at(i) == content[first + i] && mapped[i] == content[first + i],
                        "the file's bytes");
            }
        }
        try {
            static_cast<void>(mapped.at(std::max<std::uint64_t>(mapped.size(), 1)));
            require(false, "reading past the end is refused");
        } catch (const std::exception&) {
        }
    }
    return 0;
}
