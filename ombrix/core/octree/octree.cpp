#include <algorithm>

#include <ombrix/core/checked_lookup_detail.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/octree/octree_geometry_detail.h>

namespace ombrix::core {
namespace {

std::uint64_t pointCount(const Octree::Node& node) {
    return node.pc ? node.pc->size() : node.size;
}

}  // namespace

Octree::Octree() : nodes_(8) {}

Octree::~Octree() = default;

std::uint64_t Octree::size() const {
    std::uint64_t count = 0;
    for (const auto& [key, node] : nodes_) {
        count += pointCount(node);
    }
    return count;
}

std::uint64_t Octree::size(unsigned int depth) const {
    std::uint64_t count = 0;
    for (const auto& [key, node] : nodes_) {
        if (node_depth(key) <= depth) {
            count += pointCount(node);
        }
    }
    return count;
}

void Octree::setOrigin(const Vector3f& origin) {
    origin_ = origin;
    extend_ = detail::largestSide(origin_, top_);
}

void Octree::setTop(const Vector3f& top) {
    top_ = top;
    extend_ = detail::largestSide(origin_, top_);
}

void Octree::setOriginTop(const Vector3f& origin, const Vector3f& top) {
    const Vector3f upper = top;  // may be a corner that is replaced
    origin_ = origin;
    top_ = upper;
    extend_ = detail::largestSide(origin_, top_);
}

void Octree::setScalarFieldMinMax(float min, float max) {
    scalarMin_ = min;
    scalarMax_ = max;
}

void Octree::copyBox(const Octree& other) {
    origin_ = other.origin_;
    top_ = other.top_;
    extend_ = other.extend_;
}

const Octree::Node& Octree::node(std::uint64_t key) const {
    return detail::checkedLookup(nodes_, key);
}

Octree::Node& Octree::node(std::uint64_t key) {
    return detail::checkedLookup(nodes_, key);
}

std::shared_ptr<PointCloud> Octree::node_pc(std::uint64_t key) {
    return node(key).pc;
}

void Octree::clear_node(std::uint64_t key) {
    Node& cleared = node(key);
    cleared.pc.reset();
    cleared.compressed.reset();
    cleared.size = 0;
}

void Octree::free_node(std::uint64_t key) {
    Node& freed = node(key);
    freed.size = pointCount(freed);
    freed.pc.reset();
    freed.compressed.reset();
}

Octree::Node& Octree::add_node(std::uint64_t key) {
    Node& added = nodes_[key];
    added.key = key;
    return added;
}

void Octree::delete_node(std::uint64_t key) {
    nodes_.erase(key);
}

void Octree::update_node(std::uint64_t) {}

void Octree::recycle_node(std::uint64_t) {}

void Octree::compress_node_pc(std::uint64_t) {}

void Octree::finalize(bool, std::uint64_t) {}

std::vector<std::uint64_t> Octree::keys() const {
    std::vector<std::uint64_t> keys;
    keys.reserve(nodes_.size());
    for (const auto& [key, node] : nodes_) {
        keys.push_back(key);
    }
    return keys;
}

std::vector<std::uint64_t> Octree::leaves() const {
    std::vector<std::uint64_t> keys;
    for (const auto& [key, node] : nodes_) {
        if (node.children == 0) {
            keys.push_back(key);
        }
    }
    return keys;
}

std::uint64_t Octree::first_leaf() const {
    const auto leaf = std::find_if(nodes_.begin(), nodes_.end(),
                                   [](const auto& entry) { return entry.second.children == 0; });
    return leaf == nodes_.end() ? 0 : leaf->first;
}

unsigned int Octree::max_depth() const {
    unsigned int deepest = 0;
    for (const auto& [key, node] : nodes_) {
        if (node.children == 0) {
            deepest = std::max(deepest, node_depth(key));
        }
    }
    return deepest;
}

unsigned int Octree::max_depth(float spacing) const {
    const float edge = 2.0f * node_aabb(node(rootKey())).radius;
    const unsigned int deepest = max_depth();
    float share = 0.0078125f;  // 1 / 128, a cell of the sample grid of nested trees
    unsigned int depth = 0;
    while (depth < deepest && edge * share > spacing) {
        ++depth;
        share *= 0.5f;
    }
    return depth;
}

bool Octree::visible_node_pc(std::uint64_t key) const {
    const Node& asked = node(key);
    return asked.pc != nullptr && (asked.flags & 2) != 0;
}

Octree::Aabb Octree::node_aabb(const Node& node) const {
    const unsigned int depth = node_depth(node.key);
    std::uint32_t x = 0;
    std::uint32_t y = 0;
    std::uint32_t z = 0;
    morton3d<std::uint64_t>(node.key ^ std::uint64_t{1} << (3 * depth)).decode(x, y, z);

    const float cell = extend_ / static_cast<float>(1u << depth);
    const Vector3f corner(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z));
    return {(corner + Vector3f::Constant(0.5f)) * cell, cell * 0.5f};
}

Vector3f Octree::node_origin(const Node& node) const {
    const Aabb box = node_aabb(node);
    return box.center - Vector3f::Constant(box.radius);
}

Vector3f Octree::node_top(const Node& node) const {
    const Aabb box = node_aabb(node);
    return box.center + Vector3f::Constant(box.radius);
}

}  // namespace ombrix::core
