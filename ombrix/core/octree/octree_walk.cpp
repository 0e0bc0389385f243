#include <queue>

#include <ombrix/core/octree/octree_walk_detail.h>

namespace ombrix::core {

void Octree::set_hierarchy(const std::vector<std::uint64_t>& keys, const std::vector<std::uint64_t>& sizes) {
    nodes_.clear();
    for (std::size_t i = 0; i < keys.size(); ++i) {
        add_node(keys[i]).size = i < sizes.size() ? sizes[i] : 0;
    }
    if (!hasKey(rootKey())) {
        add_node(rootKey());
    }
    std::queue<std::uint64_t> queue({rootKey()});
    for (; !queue.empty(); queue.pop()) {
        const std::uint64_t key = queue.front();
        std::uint8_t mask = 0;
        detail::forEachChildKey(*this, key, 0xff, [&](std::uint64_t child, unsigned int octant) {
            queue.push(child);
            mask |= static_cast<std::uint8_t>(1u << octant);
        });
        node(key).children |= mask;
    }
}

std::vector<std::uint64_t> Octree::branch(std::uint64_t key, unsigned int depth) const {
    std::vector<std::uint64_t> result;
    if (!hasKey(key) || node_depth(key) > depth) {
        return result;
    }
    result.push_back(key);
    for (std::size_t i = 0; i < result.size(); ++i) {
        const std::uint64_t parent = result[i];
        if (node_depth(parent) < depth) {
            detail::forEachChildKey(*this, parent, node(parent).children,
                                    [&](std::uint64_t child, unsigned int) { result.push_back(child); });
        }
    }
    return result;
}

std::vector<std::uint64_t> Octree::branch(std::uint64_t key) const {
    return branch(key, max_depth());
}

std::vector<std::uint64_t> Octree::remove_branch(std::uint64_t key) {
    if (!hasKey(key)) {
        return {};
    }
    if (const auto parent = nodes_.find(parent_key(key)); key != rootKey() && parent != nodes_.end()) {
        parent->second.children &= static_cast<std::uint8_t>(~(1u << (key & 7)));
    }
    std::vector<std::uint64_t> erased = branch(key, MAX_DEPTH);
    for (const std::uint64_t gone : erased) {
        nodes_.erase(gone);
    }
    return erased;
}

void Octree::back_and_front(int depth, std::list<std::uint64_t>& back,
                            std::list<std::uint64_t>& front) const {
    std::queue<std::uint64_t> queue({rootKey()});
    for (; !queue.empty(); queue.pop()) {
        const std::uint64_t key = queue.front();
        const std::uint8_t mask = node(key).children;
        const unsigned int level = node_depth(key);
        if (mask != 0 && level < MAX_DEPTH && static_cast<int>(level) != depth) {
            back.push_back(key);
            detail::forEachChildKey(*this, key, mask,
                                    [&](std::uint64_t child, unsigned int) { queue.push(child); });
        } else {
            front.push_back(key);
        }
    }
}

std::list<std::uint64_t> Octree::front(int depth) const {
    std::list<std::uint64_t> back;
    std::list<std::uint64_t> result;
    back_and_front(depth, back, result);
    return result;
}

}  // namespace ombrix::core
