#include <algorithm>
#include <cerrno>
#include <system_error>

#include <ombrix/io/byte_source_detail.h>
#include <ombrix/io/error.h>

namespace ombrix::io::detail {

ByteSource::ByteSource(const std::filesystem::path& path, std::uint64_t windowBytes)
    : path_(path.string()), window_(std::max(windowBytes, core::MemoryMapped::getpagesize())) {
    std::error_code code;
    const std::filesystem::file_status status = std::filesystem::status(path, code);
    if (!std::filesystem::exists(status)) {
        throw Error(path_, "opening", code ? code.message() : "no such file");
    }
    if (!std::filesystem::is_regular_file(status)) {
        throw Error(path_, "opening",
                    std::filesystem::is_directory(status) ? "is a directory" : "is no regular file");
    }
    if (std::filesystem::file_size(path, code) == 0 && !code) {
        throw Error(path_, "byte 0", "the file is empty");
    }
    errno = 0;
    if (!file_.open(path_, window_, core::MemoryMapped::SequentialScan)) {
        throw Error(path_, "opening",
                    errno != 0 ? std::generic_category().message(errno) : "cannot be mapped");
    }
}

std::span<const unsigned char> ByteSource::view(std::uint64_t offset, std::uint64_t need) {
    if (offset > size() || need > size() - offset) {
        fail(size(), "the file ends here, but " + std::to_string(need) + " bytes are needed from byte " +
                         std::to_string(offset) + " on");
    }
    if (offset == size()) {
        return {};
    }
    if (offset < base_ || offset + need > base_ + file_.mappedSize()) {
        base_ = offset - offset % core::MemoryMapped::getpagesize();
        if (!file_.remap(base_, std::max(window_, offset - base_ + need))) {
            fail(offset, "cannot be mapped");
        }
    }
    return {file_.getData() + (offset - base_), file_.mappedSize() - (offset - base_)};
}

void ByteSource::fail(std::uint64_t offset, const std::string& reason) const {
    throw Error(path_, "byte " + std::to_string(offset), reason);
}

void Cursor::skip(std::uint64_t n) {
    if (n <= bytes_.size() - used_) {
        used_ += n;
        return;
    }
    const std::uint64_t at = offset();
    if (n > source_->size() - at) {
        source_->fail(source_->size(), "the file ends here, but " + std::to_string(n) +
                                           " bytes are needed from byte " + std::to_string(at) + " on");
    }
    base_ = at + n;
    used_ = 0;
    bytes_ = {};
}

void Cursor::refill(std::uint64_t n) {
    base_ += used_;
    used_ = 0;
    bytes_ = {};
    bytes_ = source_->view(base_, n);
}

}  // namespace ombrix::io::detail
