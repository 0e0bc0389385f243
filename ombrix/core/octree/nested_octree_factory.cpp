#include <algorithm>

#include <ombrix/core/octree/nested_octree_factory.h>

namespace ombrix::core {

NestedOctreeFactory::NestedOctreeFactory(const Vector3f& origin, const Vector3f& top)
    : OctreeFactory(origin, top) {
    node(1);
}

NestedOctreeFactory::NestedOctreeFactory(const Vector3f& origin, float size) : OctreeFactory(origin, size) {
    node(1);
}

void NestedOctreeFactory::clear() {
    nodes_.clear();
}

std::uint64_t NestedOctreeFactory::size() const {
    std::uint64_t total = 0;
    for (const auto& [key, n] : nodes_) {
        const std::uint64_t held = n.expanded ? n.grid.size() : n.points.size();
        total += std::max(n.pointCount, held);
    }
    return total;
}

std::uint64_t NestedOctreeFactory::maxDepth() const {
    std::uint64_t deepest = 0;
    for (const auto& [key, n] : nodes_) {
        if (n.expanded) {
            deepest = std::max<std::uint64_t>(deepest, node_depth(n.key));
        }
    }
    return deepest;
}

void NestedOctreeFactory::setColor(ColorRGB& color) {
    for (auto& [key, n] : nodes_) {
        for (Point& p : n.points) {
            p.color = color;
        }
        for (auto& [cell, p] : n.grid) {
            p.color = color;
        }
    }
}

void NestedOctreeFactory::setChild(Node& node, std::uint8_t i) {
    node.children = static_cast<std::uint8_t>(node.children | 1u << i);
}

void NestedOctreeFactory::clearChild(Node& node, std::uint8_t i) {
    node.children = static_cast<std::uint8_t>(node.children & ~(1u << i));
}

NestedOctreeFactory::Node& NestedOctreeFactory::node(std::uint64_t key) {
    const auto found = nodes_.find(key);
    if (found != nodes_.end()) {
        return found->second;
    }
    Node& created = nodes_[key];
    created.key = key;
    return created;
}

NestedOctreeFactory::Node& NestedOctreeFactory::child(Node& parent, unsigned int octant) {
    Node*& link = parent.links_.child[octant];
    bool isNew = false;
    if (link == nullptr) {
        const std::uint64_t key = child_key(parent.key, octant);
        isNew = nodes_.find(key) == nodes_.end();
        link = &node(key);
    }
    // Also for a child that was there already but not in the mask: nothing may become unreachable
    if (isNew || (parent.children >> octant & 1u) == 0) {
        setChild(parent, static_cast<std::uint8_t>(octant));
    }
    return *link;
}

}  // namespace ombrix::core
