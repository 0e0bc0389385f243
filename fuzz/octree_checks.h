#pragma once

#include <cmath>
#include <set>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/octree.h>

#include "fuzz/fuzz_support.h"

namespace ombrix::fuzz {

/// The scalars of all points, which number them.
using Ids = std::multiset<float>;

inline Ids idsOf(const core::Octree& tree) {
    Ids ids;
    for (const auto& [key, node] : tree.nodes()) {
        if (node.pc) {
            require(node.pc->scalars().size() == node.pc->size(), "a scalar for every point");
            ids.insert(node.pc->scalars().begin(), node.pc->scalars().end());
        }
    }
    return ids;
}

/// Every attribute that a node has is there for all of its points.
inline void requireEven(const core::Octree& tree) {
    for (const auto& [key, node] : tree.nodes()) {
        if (node.pc) {
            require(node.pc->colors().empty() || node.pc->colors().size() == node.pc->size(), "even colours");
            for (const auto& [name, field] : node.pc->fields()) {
                require(field->size() == node.pc->size(), "fields as long as the positions");
            }
        }
    }
}

inline Ids firstIds(std::uint64_t n) {
    Ids ids;
    for (std::uint64_t id = 0; id < n; ++id) {
        ids.insert(static_cast<float>(id));
    }
    return ids;
}

/// The nodes form one tree under `root`.
inline void requireMasks(const core::Octree& tree, std::uint64_t root, unsigned int deepest = 21) {
    for (const auto& [key, node] : tree.nodes()) {
        require(node.key == key && core::node_depth(key) <= deepest, "a node's key");
        if (key != root) {
            const auto parent = tree.nodes().find(core::parent_key(key));
            require(parent != tree.nodes().end() && (parent->second.children >> (key & 7) & 1) != 0,
                    "every node hangs on its parent");
        }
        for (unsigned int octant = 0; octant < 8; ++octant) {
            require((node.children >> octant & 1) == 0 || tree.hasKey(core::child_key(key, octant)),
                    "masks name nodes that are there");
        }
    }
}

/// Points in leaves only, and few in each.
inline void requireFullTree(const core::Octree& tree, std::uint64_t threshold, std::uint64_t root) {
    requireMasks(tree, root);
    for (const auto& [key, node] : tree.nodes()) {
        const std::uint64_t points = node.pc ? node.pc->size() : 0;
        require(node.children == 0 || points == 0, "inner nodes are empty");
        require(points <= threshold || core::node_depth(key) == 21, "leaves are small");
    }
}

/// Finite points that lie in the root cube lie in their node's, up to rounding: of positions to the finest
/// cells, and of the world's coordinates, which are formed in double; and up to `slack`.
inline void requirePointsInBoxes(const core::Octree& tree, float slack = 0.0f) {
    const float edge = tree.extend();
    if (!(edge > 1e-30f && edge < 1e30f)) {
        return;
    }
    const core::Vector3f tolerance =
        tree.origin().cwiseAbs() * 0x1p-51f + core::Vector3f::Constant(edge * 0x1p-21f + slack);
    for (const auto& [key, node] : tree.nodes()) {
        if (!node.pc) {
            continue;
        }
        const core::Octree::Aabb box = tree.node_aabb(node);
        const core::Vector3f offset =
            (node.flags & 8) != 0 ? tree.node_origin(node) : core::Vector3f(core::Vector3f::Zero());
        for (const core::Vector3f& position : node.pc->positions()) {
            const core::Vector3f p = position + offset;
            for (int axis = 0; axis < 3; ++axis) {
                if (p[axis] >= 0.0f && p[axis] <= edge && std::isfinite(tree.origin()[axis])) {
                    require(std::abs(p[axis] - box.center[axis]) <= box.radius + tolerance[axis],
                            "points lie in their nodes");
                }
            }
        }
    }
}

}  // namespace ombrix::fuzz
