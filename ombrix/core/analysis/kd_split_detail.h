#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace ombrix::core::detail {

/// A point and its index, moved together, so that every level of a tree reads its points as a stream.
template <class Index>
struct KdEntry {
    float at[3];
    Index index;
};

struct Interval {
    float low;
    float high;
};

/// What the coordinates of one or more entries span. `check` is called every 2^16 entries and may throw.
template <class Entry, class Check>
Interval intervalOf(const Entry* first, const Entry* last, std::size_t axis, const Check& check) {
    constexpr std::ptrdiff_t EVERY = 1 << 16;
    Interval found{first->at[axis], first->at[axis]};
    while (first != last) {
        const Entry* const end = first + std::min(EVERY, last - first);
        for (; first != end; ++first) {
            found.low = std::min(found.low, first->at[axis]);
            found.high = std::max(found.high, first->at[axis]);
        }
        check();
    }
    return found;
}

/// Moves the entries whose coordinate comes `before` to the front and returns where they end. As Hoare does,
/// the n-th from the left that does not belong there and the n-th from the right change places; they are
/// found a block at a time without branches, which no processor could foresee (Edelkamp and Weiß,
/// BlockQuicksort, 2016). `check` is called every 2^16 entries and may throw.
template <class Entry, class Before, class Check>
Entry* splitEntries(Entry* first, Entry* last, std::size_t axis, const Before& before, const Check& check) {
    constexpr std::ptrdiff_t BLOCK = 64;
    constexpr unsigned int EVERY = (1 << 16) / BLOCK;
    struct Misplaced {
        std::array<std::uint16_t, BLOCK> offsets;
        std::size_t next = 0;
        std::size_t end = 0;
    };
    Misplaced left;
    Misplaced right;
    for (unsigned int rounds = 1; last - first > 2 * BLOCK; ++rounds) {
        if (left.next == left.end) {
            left.next = left.end = 0;
            for (std::ptrdiff_t i = 0; i < BLOCK; ++i) {
                left.offsets[left.end] = static_cast<std::uint16_t>(i);
                left.end += before(first[i].at[axis]) ? 0 : 1;
            }
        }
        if (right.next == right.end) {
            right.next = right.end = 0;
            for (std::ptrdiff_t i = 0; i < BLOCK; ++i) {
                right.offsets[right.end] = static_cast<std::uint16_t>(i);
                right.end += before(last[-1 - i].at[axis]) ? 1 : 0;
            }
        }
        for (std::size_t n = std::min(left.end - left.next, right.end - right.next); n > 0; --n) {
            std::swap(first[left.offsets[left.next++]], last[-1 - right.offsets[right.next++]]);
        }
        first += left.next == left.end ? BLOCK : 0;
        last -= right.next == right.end ? BLOCK : 0;
        if (rounds % EVERY == 0) {
            check();
        }
    }
    for (;; ++first, --last) {
        while (first != last && before(first->at[axis])) {
            ++first;
        }
        while (first != last && !before(last[-1].at[axis])) {
            --last;
        }
        if (first == last) {
            return first;
        }
        std::swap(*first, last[-1]);
    }
}

}  // namespace ombrix::core::detail
