#include <algorithm>
#include <utility>

#include <ombrix/core/checked_lookup_detail.h>
#include <ombrix/core/octree/nested_cell_map.h>

namespace ombrix::core {

CellMap::CellMap(std::initializer_list<value_type> entries) {
    for (const value_type& entry : entries) {
        insert(entry);
    }
}

CellMap::CellMap(const CellMap& other) {
    reserve(other.size());
    for (const value_type& entry : other) {
        insert(entry);
    }
}

CellMap::CellMap(CellMap&& other) noexcept {
    swap(other);
}

CellMap& CellMap::operator=(CellMap other) noexcept {
    swap(other);
    return *this;
}

void CellMap::swap(CellMap& other) noexcept {
    std::swap(table_, other.table_);
    std::swap(blocks_, other.blocks_);
    std::swap(size_, other.size_);
    std::swap(shift_, other.shift_);
}

void CellMap::reserve(std::size_t n) {
    const std::size_t places = std::bit_ceil(std::max(n + n / 3 + 1, SMALLEST_TABLE));
    if (places > table_.size()) {
        rebuild(places);
    }
}

void CellMap::rebuild(std::size_t places) {
    table_.assign(places, 0);
    table_.shrink_to_fit();
    shift_ = 64 - std::countr_zero(places);
    for (std::size_t i = 0; i < size_; ++i) {
        table_[probe(entry(i).first)] = static_cast<std::uint32_t>(i + 1);
    }
}

void CellMap::clear() noexcept {
    CellMap().swap(*this);
}

std::size_t CellMap::positionOf(std::uint64_t key) const noexcept {
    if (table_.empty()) {
        return size_;
    }
    const std::uint32_t number = table_[probe(key)];
    return number == 0 ? size_ : number - 1;
}

Point& CellMap::at(std::uint64_t key) {
    return detail::checkedLookup(*this, key);
}
const Point& CellMap::at(std::uint64_t key) const {
    return detail::checkedLookup(*this, key);
}

void CellMap::addBlock() {
    // Owned before the list grows, which may fail
    decltype(blocks_)::value_type block(
        static_cast<value_type*>(::operator new (BLOCK * sizeof(value_type), std::align_val_t{CACHE_LINE})));
    blocks_.push_back(std::move(block));
}

std::pair<CellMap::iterator, bool> CellMap::try_emplace(std::uint64_t key, const Point& point) {
    return try_emplace_from(key, [&]() -> const Point& { return point; });
}

std::pair<CellMap::iterator, bool> CellMap::emplace(std::uint64_t key, const Point& point) {
    return try_emplace(key, point);
}

std::pair<CellMap::iterator, bool> CellMap::insert(const value_type& entry) {
    return try_emplace(entry.first, entry.second);
}

Point& CellMap::operator[](std::uint64_t key) {
    return try_emplace(key).first->second;
}

}  // namespace ombrix::core
