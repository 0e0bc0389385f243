#include "tests/faults/failing_new.h"

#include <atomic>
#include <cstdlib>

namespace {

std::atomic<std::int64_t> live{0};
std::atomic<std::int64_t> untilFailure{0};

/// Null when this is the allocation that fails, or memory is out.
void* allocateOrNull(std::size_t size, std::size_t alignment) noexcept {
    if (untilFailure.load(std::memory_order_relaxed) > 0 && untilFailure.fetch_sub(1) == 1) {
        return nullptr;
    }
    // A multiple of the alignment, as std::aligned_alloc wants it, and never none
    const std::size_t bytes = (size + alignment) / alignment * alignment;
    void* const block =
        alignment > alignof(std::max_align_t) ? std::aligned_alloc(alignment, bytes) : std::malloc(bytes);
    if (block != nullptr) {
        live.fetch_add(1, std::memory_order_relaxed);
    }
    return block;
}

void* allocate(std::size_t size, std::size_t alignment) {
    void* const block = allocateOrNull(size, alignment);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void release(void* block) noexcept {
    if (block != nullptr) {
        live.fetch_sub(1, std::memory_order_relaxed);
        std::free(block);
    }
}

}  // namespace

namespace ombrix::test {

std::int64_t liveBlocks() {
    return live.load();
}

void failAllocation(std::int64_t n) {
    untilFailure.store(n);
}

bool allocationCame() {
    return untilFailure.load() == 0;
}

}  // namespace ombrix::test

// The forms for arrays call these. Those that do not throw would, too, but for sanitizers, which bring their
// own.
void* operator new(std::size_t size) {
    return allocate(size, 1);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocateOrNull(size, 1);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocateOrNull(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* block) noexcept {
    release(block);
}
void operator delete(void* block, std::size_t) noexcept {
    release(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
    release(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    release(block);
}
