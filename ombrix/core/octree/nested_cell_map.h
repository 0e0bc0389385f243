#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include <ombrix/core/core_export.h>
#include <ombrix/core/points/point.h>

namespace ombrix::core {

/// Hash map from the key of a grid cell to the point that holds the cell: the sample of a gridded node.
///
/// The interface is that of the standard's maps as far as a grid needs it; entries are never erased one by
/// one. Iteration visits the entries in the order in which they were inserted. Entries stay where they are
/// when others are added, so references to them last until `clear`.
///
/// Inside: open addressing (linear probing) over 32-bit entry numbers, and the entries, of one cache line
/// each, in a pool of blocks. Room that is reserved costs 8 bytes an entry until it is used.
class OMBRIX_CORE_API CellMap {
    template <bool Const>
    class Iterator;

public:
    /// As the standard's associative containers name them.
    using key_type = std::uint64_t;
    using mapped_type = Point;
    using value_type = std::pair<const std::uint64_t, Point>;
    using size_type = std::size_t;
    using difference_type = std::ptrdiff_t;
    using reference = value_type&;
    using const_reference = const value_type&;
    using iterator = Iterator<false>;
    using const_iterator = Iterator<true>;

    CellMap() = default;
    /// Inserts the entries in this order; of several with one key the first.
    CellMap(std::initializer_list<value_type> entries);
    /// Copies are deep; a moved-from map is empty.
    CellMap(const CellMap& other);
    CellMap(CellMap&& other) noexcept;
    CellMap& operator=(CellMap other) noexcept;
    ~CellMap() = default;
    void swap(CellMap& other) noexcept;

    /// Number of entries.
    [[nodiscard]] bool empty() const noexcept { return size_ == 0; }
    [[nodiscard]] std::size_t size() const noexcept { return size_; }

    /// Room for n entries before the table grows.
    void reserve(std::size_t n);
    /// Removes all entries and frees the storage.
    void clear() noexcept;

    /// Number of entries that fit before the table grows; it has a third more places.
    [[nodiscard]] std::size_t bucket_count() const noexcept { return table_.size() / 4 * 3; }
    /// Share of them that are taken.
    [[nodiscard]] float load_factor() const noexcept {
        return table_.empty() ? 0.0f : static_cast<float>(size_) / static_cast<float>(bucket_count());
    }
    [[nodiscard]] float max_load_factor() const noexcept { return 1.0f; }

    /// The entry of a key, or whether there is one; `end()` without.
    [[nodiscard]] bool contains(std::uint64_t key) const noexcept { return positionOf(key) != size_; }
    [[nodiscard]] std::size_t count(std::uint64_t key) const noexcept { return contains(key) ? 1 : 0; }
    [[nodiscard]] iterator find(std::uint64_t key) noexcept;
    [[nodiscard]] const_iterator find(std::uint64_t key) const noexcept;
    /// @throws std::out_of_range ("invalid unordered_map<K, T> key")
    [[nodiscard]] Point& at(std::uint64_t key);
    [[nodiscard]] const Point& at(std::uint64_t key) const;

    /// Stores the point unless the cell is taken.
    /// @return  the cell's entry, and whether the point was stored.
    std::pair<iterator, bool> try_emplace(std::uint64_t key, const Point& point = Point());
    /// The same with the point that make() returns, which is called only if the cell is free.
    template <class Make>
    std::pair<iterator, bool> try_emplace_from(std::uint64_t key, const Make& make);
    std::pair<iterator, bool> emplace(std::uint64_t key, const Point& point);
    std::pair<iterator, bool> insert(const value_type& entry);
    /// The cell's point; a default one is stored first when the cell is free.
    Point& operator[](std::uint64_t key);

    /// The entries, in the order in which they were inserted.
    [[nodiscard]] iterator begin() noexcept;
    [[nodiscard]] iterator end() noexcept;
    [[nodiscard]] const_iterator begin() const noexcept;
    [[nodiscard]] const_iterator end() const noexcept;
    [[nodiscard]] const_iterator cbegin() const noexcept;
    [[nodiscard]] const_iterator cend() const noexcept;

    /// Hints for a lookup to come: fetch the key's place in the table, then the entry that it names.
    void prefetchPlace(std::uint64_t key) const noexcept {
        if (!table_.empty()) {
            fetch(&table_[place(key)]);
        }
    }
    void prefetchEntry(std::uint64_t key) const noexcept {
        if (!table_.empty() && table_[place(key)] != 0) {
            fetch(&entry(table_[place(key)] - 1));
        }
    }

private:
    static void fetch([[maybe_unused]] const void* memory) noexcept {
#if defined(__GNUC__)
        __builtin_prefetch(memory);
#endif
    }

    static_assert(sizeof(value_type) == 64 && std::is_trivially_destructible_v<value_type>);

    static constexpr std::size_t SMALLEST_TABLE = 16;
    static constexpr std::size_t BLOCK = 1024;  ///< entries of one block of the pool, 64 KiB
    static constexpr std::size_t CACHE_LINE = 64;

    struct FreeBlock {
        void operator()(value_type* block) const noexcept {
            ::operator delete (static_cast<void*>(block), std::align_val_t{CACHE_LINE});
        }
    };

    [[nodiscard]] value_type& entry(std::size_t i) const noexcept {
        return blocks_[i / BLOCK].get()[i % BLOCK];
    }

    // The high bits of the product with 2^64 / golden ratio spread neighbouring cells over the table.
    // Source: Knuth, "The Art of Computer Programming", volume 3, 6.4 (Fibonacci hashing).
    [[nodiscard]] std::size_t place(std::uint64_t key) const noexcept {
        return static_cast<std::size_t>(key * 0x9e3779b97f4a7c15u >> shift_);
    }

    /// The place in the table that holds the key, or the free one where it belongs.
    [[nodiscard]] std::size_t probe(std::uint64_t key) const noexcept {
        std::size_t i = place(key);
        while (table_[i] != 0 && entry(table_[i] - 1).first != key) {
            i = (i + 1) & (table_.size() - 1);
        }
        return i;
    }

    [[nodiscard]] std::size_t positionOf(std::uint64_t key) const noexcept;
    void rebuild(std::size_t places);
    void addBlock();

    std::vector<std::uint32_t> table_;  ///< a power of two long; entry number + 1, or 0 for a free place
    std::vector<std::unique_ptr<value_type, FreeBlock>> blocks_;
    std::size_t size_ = 0;
    int shift_ = 63;  ///< 64 - log2 of the table's length
};

/// Forward iterator over (key, point) entries.
template <bool Const>
class CellMap::Iterator {
    using Map = std::conditional_t<Const, const CellMap, CellMap>;

public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = CellMap::value_type;
    using difference_type = std::ptrdiff_t;
    using reference = std::conditional_t<Const, const value_type&, value_type&>;
    using pointer = std::conditional_t<Const, const value_type*, value_type*>;

    Iterator() = default;
    Iterator(Map& map, std::size_t i) noexcept : map_(&map), i_(i) {}
    /// A constant iterator out of a mutable one.
    template <bool Other>
    requires(Const && !Other) Iterator(const Iterator<Other>& other)
    noexcept : map_(other.map_), i_(other.i_) {}

    reference operator*() const noexcept { return map_->entry(i_); }
    pointer operator->() const noexcept { return &map_->entry(i_); }
    Iterator& operator++() noexcept { return ++i_, *this; }
    Iterator operator++(int) noexcept {
        const Iterator old = *this;
        ++i_;
        return old;
    }
    friend bool operator==(const Iterator& a, const Iterator& b) noexcept { return a.i_ == b.i_; }

private:
    template <bool>
    friend class Iterator;

    Map* map_ = nullptr;
    std::size_t i_ = 0;
};

template <class Make>
std::pair<CellMap::iterator, bool> CellMap::try_emplace_from(std::uint64_t key, const Make& make) {
    if (table_.empty()) {
        rebuild(SMALLEST_TABLE);
    }
    const std::size_t i = probe(key);
    if (table_[i] != 0) {
        return {iterator(*this, table_[i] - 1), false};
    }
    if (size_ == blocks_.size() * BLOCK) {
        addBlock();
    }
    ::new (static_cast<void*>(&entry(size_))) value_type(key, make());
    table_[i] = static_cast<std::uint32_t>(++size_);
    if (size_ > bucket_count()) {
        rebuild(table_.size() * 2);
    }
    return {iterator(*this, size_ - 1), true};
}

inline CellMap::iterator CellMap::find(std::uint64_t key) noexcept {
    return {*this, positionOf(key)};
}
inline CellMap::const_iterator CellMap::find(std::uint64_t key) const noexcept {
    return {*this, positionOf(key)};
}
inline CellMap::iterator CellMap::begin() noexcept {
    return {*this, 0};
}
inline CellMap::iterator CellMap::end() noexcept {
    return {*this, size_};
}
inline CellMap::const_iterator CellMap::begin() const noexcept {
    return {*this, 0};
}
inline CellMap::const_iterator CellMap::end() const noexcept {
    return {*this, size_};
}
inline CellMap::const_iterator CellMap::cbegin() const noexcept {
    return begin();
}
inline CellMap::const_iterator CellMap::cend() const noexcept {
    return end();
}

}  // namespace ombrix::core
