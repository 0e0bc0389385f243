#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

#include <ombrix/core/large_pages_detail.h>

namespace ombrix::core::detail {

/// Iterates over values[index] for a list of indices, so that containers can be filled from it in place.
template <class T>
class GatherIterator {
public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = const T*;
    using reference = const T&;

    GatherIterator() = default;
    GatherIterator(const T* values, const std::uint64_t* index) : values_(values), index_(index) {}

    reference operator*() const { return values_[*index_]; }
    pointer operator->() const { return values_ + *index_; }
    reference operator[](difference_type n) const { return values_[index_[n]]; }
    GatherIterator& operator++() { return ++index_, *this; }
    GatherIterator& operator--() { return --index_, *this; }
    GatherIterator operator++(int) { return {values_, index_++}; }
    GatherIterator operator--(int) { return {values_, index_--}; }
    GatherIterator& operator+=(difference_type n) { return index_ += n, *this; }
    GatherIterator& operator-=(difference_type n) { return index_ -= n, *this; }
    friend GatherIterator operator+(GatherIterator it, difference_type n) { return it += n; }
    friend GatherIterator operator+(difference_type n, GatherIterator it) { return it += n; }
    friend GatherIterator operator-(GatherIterator it, difference_type n) { return it -= n; }
    friend difference_type operator-(GatherIterator a, GatherIterator b) { return a.index_ - b.index_; }
    friend auto operator<=>(GatherIterator a, GatherIterator b) { return a.index_ <=> b.index_; }
    friend bool operator==(GatherIterator a, GatherIterator b) { return a.index_ == b.index_; }

private:
    const T* values_ = nullptr;
    const std::uint64_t* index_ = nullptr;
};

/// Makes room for `count` more elements. Growth stays geometric, so that appending in small portions is
/// linear in all; a vector that was empty gets exactly what it needs.
template <class T>
void makeRoom(std::vector<T>& values, std::size_t count) {
    const std::size_t needed = values.size() + count;
    if (needed > values.capacity()) {
        values.reserve(values.empty() ? needed : std::max(needed, 2 * values.capacity()));
        adviseLargePages(values.data() + values.size(), (values.capacity() - values.size()) * sizeof(T));
    }
}

/// Appends source[i] for every i of `indices`; source may be `target`.
template <class T>
void appendSelected(std::vector<T>& target, const std::vector<T>& source,
                    const std::vector<std::uint64_t>& indices) {
    makeRoom(target, indices.size());  // from here on a source that is the target stays in place
    const GatherIterator<T> first(source.data(), indices.data());
    if (&target == &source) {
        for (const std::uint64_t index : indices) {
            target.push_back(source[index]);
        }
    } else {
        target.insert(target.end(), first, first + static_cast<std::ptrdiff_t>(indices.size()));
    }
}

/// Appends source[first] to source[last], both included, and nothing where `last` is `first` - 1; source may
/// be `target`.
template <class T>
void appendRange(std::vector<T>& target, const std::vector<T>& source, std::uint64_t first,
                 std::uint64_t last) {
    const std::size_t count = last - first + 1;
    if (count == 0) {
        return;
    }
    assert(first <= last && last < source.size());
    makeRoom(target, count);
    if (&target == &source) {
        for (std::uint64_t i = first; i <= last; ++i) {
            target.push_back(source[i]);
        }
    } else {
        const auto from = source.begin() + static_cast<std::ptrdiff_t>(first);
        target.insert(target.end(), from, from + static_cast<std::ptrdiff_t>(count));
    }
}

}  // namespace ombrix::core::detail
