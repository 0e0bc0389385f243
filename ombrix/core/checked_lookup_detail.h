#pragma once

#include <stdexcept>

namespace ombrix::core::detail {

/// The mapped value of `key`.
/// @throws std::out_of_range "invalid unordered_map<K, T> key" when the key is absent,
///         the same text whatever the standard library.
template <class Map, class Key>
[[nodiscard]] auto& checkedLookup(Map& map, const Key& key) {
    const auto found = map.find(key);
    if (found == map.end()) {
        throw std::out_of_range("invalid unordered_map<K, T> key");
    }
    return found->second;
}

}  // namespace ombrix::core::detail
