#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include <ombrix/mesh/sparse_grid.h>

namespace ombrix::mesh::detail {

/// Keys of the nodes in ascending order, which the hash map does not keep.
[[nodiscard]] inline std::vector<std::uint64_t> sortedKeys(const SparseGrid& grid) {
    std::vector<std::uint64_t> keys;
    keys.reserve(grid.nodes.size());
    for (const auto& entry : grid.nodes) {
        keys.push_back(entry.first);
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

}  // namespace ombrix::mesh::detail
