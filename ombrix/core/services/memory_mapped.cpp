#include <ombrix/core/services/memory_mapped.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <ombrix/core/services/memory_mapped_detail.h>

namespace ombrix::core {

MemoryMapped::MemoryMapped(const std::string& filename, std::uint64_t mappedBytes, CacheHint hint)
    : filename_(filename) {
    open(filename, mappedBytes, hint);
}

MemoryMapped::MemoryMapped(MemoryMapped&& other) noexcept {
    *this = std::move(other);
}

MemoryMapped& MemoryMapped::operator=(MemoryMapped&& other) noexcept {
    if (this == &other)
        return *this;
    close();
    filename_.swap(other.filename_);
    filesize_ = std::exchange(other.filesize_, 0);
    hint_ = std::exchange(other.hint_, Normal);
    mappedBytes_ = std::exchange(other.mappedBytes_, 0);
    mappedFile_ = std::exchange(other.mappedFile_, nullptr);
    file_ = std::exchange(other.file_, nullptr);
    mappedView_ = std::exchange(other.mappedView_, nullptr);
    return *this;
}

MemoryMapped::~MemoryMapped() {
    close();
}

bool MemoryMapped::open(const std::string& filename, std::uint64_t mappedBytes, CacheHint hint) {
    if (isValid())
        return false;
    releaseFile();  // an earlier attempt may have left one without a view
    hint_ = hint;
    file_ = detail::openFile(filename, hint);
    if (!file_ || !detail::fileSize(file_, filesize_))
        return false;
    mappedFile_ = detail::createMapping(file_);
    if (!mappedFile_)
        return false;
    return mapView(0, mappedBytes == 0 ? filesize_ : std::min(filesize_, mappedBytes));
}

void MemoryMapped::close() noexcept {
    releaseFile();
    hint_ = Normal;
    filename_.clear();
}

bool MemoryMapped::remap(std::uint64_t offset, std::uint64_t mappedBytes) {
    if (!file_)
        return false;
    unmapView();
    if (offset > filesize_)
        return false;
    const std::uint64_t rest = filesize_ - offset;
    return mapView(offset, mappedBytes == 0 ? rest : std::min(rest, mappedBytes));
}

unsigned char MemoryMapped::at(std::uint64_t i) const {
    if (!isValid())
        throw std::invalid_argument("No view mapped");
    if (i >= filesize_)
        throw std::out_of_range("View is not large enough");
    return mappedView_[i];
}

std::uint64_t MemoryMapped::getpagesize() {
    return detail::viewGranularity();
}
std::uint64_t MemoryMapped::getTotalRAM() {
    return detail::memoryStatus().total;
}
std::uint64_t MemoryMapped::getAvailableRAM() {
    return detail::memoryStatus().available;
}
std::uint32_t MemoryMapped::getMemoryLoad() {
    return detail::memoryStatus().load;
}

bool MemoryMapped::mapView(std::uint64_t offset, std::uint64_t bytes) noexcept {
    // A length of 0 would mean "up to the end" to some systems.
    if (mappedFile_ && bytes > 0)
        mappedView_ = static_cast<const unsigned char*>(detail::mapView(mappedFile_, offset, bytes, hint_));
    mappedBytes_ = mappedView_ ? bytes : 0;
    return isValid();
}

void MemoryMapped::unmapView() noexcept {
    if (mappedView_)
        detail::unmapView(std::exchange(mappedView_, nullptr), mappedBytes_);
    mappedBytes_ = 0;
}

void MemoryMapped::releaseFile() noexcept {
    unmapView();
    if (mappedFile_)
        detail::closeMapping(std::exchange(mappedFile_, nullptr));
    if (file_)
        detail::closeFile(std::exchange(file_, nullptr));
    filesize_ = 0;
}

}  // namespace ombrix::core
