#pragma once

#include <cstdint>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/octree.h>

namespace ombrix::core::detail {

/// Calls visit(child key, octant) for the children of `key` that `mask` names and the tree holds, in octant
/// order. A node at depth 21 has none: its children's keys would wrap around, as would those of some keys
/// that no node of a tree can have.
template <class Visit>
void forEachChildKey(const Octree& octree, std::uint64_t key, std::uint8_t mask, const Visit& visit) {
    if (key == 0 || key >> 61 != 0) {
        return;
    }
    for (unsigned int octant = 0; octant < 8; ++octant) {
        const std::uint64_t child = child_key(key, octant);
        if ((mask >> octant & 1u) != 0 && octree.hasKey(child)) {
            visit(child, octant);
        }
    }
}

}  // namespace ombrix::core::detail
