#pragma once

#include <cstddef>
#include <memory>

#include <ombrix/core/large_pages_detail.h>

namespace ombrix::core::detail {

/// An array of trivial elements whose storage is not initialised.
template <class Element>
class RawArray {
public:
    explicit RawArray(std::size_t count) : bytes_(new std::byte[count * sizeof(Element)]), size_(count) {
        adviseLargePages(bytes_.get(), count * sizeof(Element));
    }
    [[nodiscard]] Element* data() const { return reinterpret_cast<Element*>(bytes_.get()); }
    [[nodiscard]] std::size_t size() const { return size_; }

private:
    std::unique_ptr<std::byte[]> bytes_;
    std::size_t size_;
};

}  // namespace ombrix::core::detail
