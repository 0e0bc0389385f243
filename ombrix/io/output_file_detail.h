#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <ombrix/io/column_detail.h>

namespace ombrix::io::detail {

/// A file that is written front to back. Unless `close` succeeds, it is removed.
class OutputFile {
public:
    /// @throws Error  when the file cannot be made.
    explicit OutputFile(const std::filesystem::path& path);
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile();

    /// @throws Error  when the system does not take all of it.
    void write(const void* bytes, std::size_t count);
    void write(const std::string& text) { write(text.data(), text.size()); }

    /// Hands everything to the system and closes the file.
    /// @throws Error  when that fails.
    void close();

private:
    void remove() const;
    [[noreturn]] void failAsSystem(const char* place) const;

    std::filesystem::path path_;
    std::FILE* file_ = nullptr;
};

/// Stores a value in little-endian order at an address of any alignment.
template <class T>
void storeLittle(unsigned char* at, T value) {
    if constexpr (std::endian::native == std::endian::big && sizeof(T) > 1) {
        const auto bits = reversed(std::bit_cast<typename UnsignedOf<sizeof(T)>::type>(value));
        std::memcpy(at, &bits, sizeof bits);
    } else {
        std::memcpy(at, &value, sizeof value);
    }
}

}  // namespace ombrix::io::detail
