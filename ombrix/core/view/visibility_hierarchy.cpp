#include <bit>
#include <cmath>
#include <iostream>
#include <queue>
#include <unordered_map>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/view/visibility.h>

namespace ombrix::core {

void Visibility::buildHierarchy(bool onlyLoaded) {
    hierarchy_.clear();
    const Octree& octree = *octree_;
    const std::uint64_t root = octree.rootKey();
    if (!octree.hasKey(root) || !visibleNode(octree.node(root), onlyLoaded)) {
        return;
    }
    std::unordered_map<std::uint64_t, std::uint64_t, Octree::hash> indexOf;
    std::queue<std::uint64_t> queue({root});
    for (; !queue.empty(); queue.pop()) {
        const std::uint64_t key = queue.front();
        const std::uint8_t children = octree.node(key).children;
        std::uint32_t mask = 0;
        for (unsigned int octant = 0; octant < 8 && node_depth(key) < Octree::MAX_DEPTH; ++octant) {
            const std::uint64_t child = child_key(key, octant);
            if ((children >> octant & 1) != 0 && visibleNode(octree.node(child), onlyLoaded)) {
                mask |= 1u << octant;
                queue.push(child);
            }
        }
        indexOf[key] = hierarchy_.size();
        hierarchy_.push_back({key, mask, 0});
    }
    for (std::uint64_t i = 0; i < hierarchy_.size(); ++i) {
        HNode& entry = hierarchy_[i];
        if (entry.childMask != 0) {
            const auto lowest = static_cast<unsigned int>(std::countr_zero(entry.childMask));
            entry.childOffset = indexOf[child_key(entry.key, lowest)] - i;
        }
    }
}

void Visibility::debugHierarchyNodes() {
    for (const HNode& entry : hierarchy_) {
        std::cout << "h " << entry.childMask << " " << entry.childOffset << '\n';
    }
}

// Floats throughout, as in the shader that looks the same hierarchy up.
float Visibility::getVisibleDepth(Vector3f& p) {
    constexpr float MAX_LEVEL = 1000.0f;
    Vector3f origin = Vector3f::Zero();
    float index = 0.0f;
    float depth = 0.0f;
    for (float level = 0.0f; level <= MAX_LEVEL && index < static_cast<float>(hierarchy_.size());) {
        const HNode& entry = hierarchy_[static_cast<std::size_t>(index)];
        const float edge = octree_->extend() / std::pow(2.0f, level);
        Vector3f bit;
        for (int axis = 0; axis < 3; ++axis) {
            const float q = (p[axis] - origin[axis]) / edge;
            bit[axis] = std::floor((q > 0.0f ? q : 0.0f) + 0.5f);
        }
        const float child = 4.0f * bit.x() + 2.0f * bit.y() + bit.z();
        const float mask = static_cast<float>(entry.childMask);
        if (std::fmod(std::floor(mask / std::pow(2.0f, child)), 2.0f) == 0.0f) {
            break;
        }
        depth += 1.0f;
        level += 1.0f;
        index += static_cast<float>(entry.childOffset) + child;
        origin += bit * (edge / 2.0f);
    }
    return depth;
}

}  // namespace ombrix::core
