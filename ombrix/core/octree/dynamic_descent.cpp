#include <algorithm>
#include <array>
#include <utility>

#include <ombrix/core/octree/dynamic_descent_detail.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/node_frame_detail.h>
#include <ombrix/core/octree/prefetch_detail.h>

namespace ombrix::core::detail {
namespace {

constexpr std::size_t FEW = 1u << 13;            // arrivals that are not worth a task of their own
constexpr std::size_t MAX_PREFETCHED = 1u << 6;  // arrivals, more would not stay in the caches

/// Has the memory of the arriving points fetched: they lie anywhere in their cloud.
void prefetch(const Arrivals& arrivals) {
    for (const Arrivals::Pair* pair = arrivals.first; pair != arrivals.last; ++pair) {
        prefetchPoint(*arrivals.cloud, pair->first);
    }
}

/// Has the places fetched where points are going to be appended.
void prefetchEnds(const PointCloud& cloud) {
    const auto fetch = [](const auto& values) { __builtin_prefetch(values.data() + values.size(), 1); };
    fetch(cloud.positions());
    fetch(cloud.colors());
    fetch(cloud.scalars());
}

}  // namespace

bool shareFields(const PointCloud& a, const PointCloud& b) {
    return std::any_of(a.fields().begin(), a.fields().end(), [&](const auto& entry) {
        const auto& [name, field] = entry;
        return field.use_count() > 1 && b.fields().contains(name) && b.fields().get(name) == field;
    });
}

Octree::Node* Descent::find(const Octree::Node& parent, unsigned int octant) const {
    const auto found = octree_.nodes().find(child_key(parent.key, octant));
    return found != octree_.nodes().end() ? &found->second : nullptr;
}

void Descent::descend(Octree::Node& node, const Arrivals& arrivals, std::vector<Stop>* stops) {
    const unsigned int depth = node_depth(node.key);
    const bool leaf = node.children == 0 || depth > DEEPEST_LEAF;
    if (stops != nullptr && (leaf || arrivals.size() <= FEW)) {
        stops->push_back({&node, arrivals});
        return;
    }
    if (leaf) {
        return fill(node, arrivals);
    }

    // Memory is what this waits for, so ask for all children at once before going on to any of them
    std::array<Octree::Node*, 8> children{};
    const auto ends = octantEnds(arrivals, depth);
    if (arrivals.size() <= MAX_PREFETCHED) {
        prefetch(arrivals);
    }
    const auto forEachOctant = [&](const auto& work) {
        const Arrivals::Pair* first = arrivals.first;
        for (unsigned int octant = 0; octant < 8; ++octant) {
            if (ends[octant] != first) {
                work(octant, arrivals.part(first, ends[octant]));
            }
            first = ends[octant];
        }
    };
    forEachOctant([&](unsigned int octant, const Arrivals&) { children[octant] = find(node, octant); });
    for (const Octree::Node* child : children) {
        if (child != nullptr) {
            __builtin_prefetch(child->pc.get());
        }
    }
    for (const Octree::Node* child : children) {
        if (child != nullptr && child->children == 0 && child->pc) {
            prefetchEnds(*child->pc);
        }
    }
    forEachOctant([&](unsigned int octant, const Arrivals& part) {
        if (children[octant] == nullptr) {
            create(node, octant, part);
            return;
        }
        if ((node.children >> octant & 1) == 0) {
            adoptions_.push_back({&node, octant});
        }
        descend(*children[octant], part, stops);
    });
}

void Descent::fill(Octree::Node& leaf, const Arrivals& arrivals) {
    PointCloud* cloud = leaf.pc.get();
    if (cloud == nullptr || (leaf.flags & NODE_RELATIVE) == 0 || cloud == arrivals.cloud ||
        shareFields(*cloud, *arrivals.cloud)) {
        deferred_.push_back({&leaf, arrivals});
    } else if (cloud->size() + arrivals.size() > maxPoints_ && node_depth(leaf.key) < DEEPEST_LEAF) {
        splitLeaf(octree_, {leaf.key, cloud, arrivals}, maxPoints_, DEEPEST_LEAF, scratch_, nodes_, work_);
    } else {
        remember(leaf, *arrivals.cloud);
        append(*cloud, arrivals, octree_.node_origin(leaf).cast<double>());
        leaf.size = cloud->size();
        WorkSteps(work_, 1).step(arrivals.size());
    }
}

/// Most leaves have all attributes and no fields, and there are many of them.
void Descent::remember(Octree::Node& leaf, const PointCloud& arriving) {
    PointCloud& cloud = *leaf.pc;
    const bool plain = cloud.size() == leaf.size && cloud.colors().size() == leaf.size &&
                       cloud.scalars().size() == leaf.size && cloud.fields().size() == 0 &&
                       arriving.fields().size() == 0;
    if (!plain) {
        contents_.emplace_back(cloud);
    }
    filled_.push_back({&leaf, leaf.size, plain});
}

void Descent::create(Octree::Node& parent, unsigned int octant, const Arrivals& arrivals) {
    adoptions_.push_back({&parent, octant});
    const std::uint64_t key = child_key(parent.key, octant);
    if (arrivals.size() > maxPoints_ && node_depth(key) < DEEPEST_LEAF) {
        splitLeaf(octree_, {key, nullptr, arrivals}, maxPoints_, DEEPEST_LEAF, scratch_, nodes_, work_);
        return;
    }
    auto cloud = std::make_shared<PointCloud>();
    append(*cloud, arrivals, nodeCorner(octree_, key).cast<double>());
    nodes_.push_back({key, 0, false, std::move(cloud), nullptr});
    WorkSteps(work_, 1).step(arrivals.size());
}

std::vector<std::uint64_t> Descent::split(const Octree::Node& leaf, const PointCloud& cloud,
                                          unsigned int levels) {
    splitLeaf(octree_, {leaf.key, &cloud, {}}, maxPoints_, levels, scratch_, nodes_, work_);
    std::vector<std::uint64_t> keys;
    for (std::size_t i = 1; i < nodes_.size(); ++i) {
        keys.push_back(nodes_[i].key);
    }
    addNodes();
    enter();
    report();
    return keys;
}

void Descent::undo() noexcept {
    if (entered_) {
        return;
    }
    for (const Filled& filled : filled_) {
        filled.leaf->size = filled.size;
        if (filled.plain) {
            PointCloud& cloud = *filled.leaf->pc;
            cloud.positions().resize(filled.size);
            cloud.colors().resize(filled.size);
            cloud.scalars().resize(filled.size);
        }
    }
    for (AppendRollback& content : contents_) {
        content.undo();
    }
    for (const SplitNode& made : nodes_) {
        if (made.added) {
            octree_.delete_node(made.key);
        }
    }
}

void Descent::addNodes() {
    for (SplitNode& made : nodes_) {
        const std::size_t before = octree_.nodes().size();
        made.node = &octree_.add_node(made.key);
        made.added = octree_.nodes().size() != before;
    }
}

void Descent::enter() noexcept {
    if (std::exchange(entered_, true)) {
        return;
    }
    for (SplitNode& made : nodes_) {
        Octree::Node& node = *made.node;
        node.children = made.children;
        node.flags |= NODE_RELATIVE;
        node.size = made.cloud->size();
        node.pc = std::move(made.cloud);
        node.compressed.reset();
    }
    for (const Adoption& adoption : adoptions_) {
        Octree::Node& parent = *adoption.parent;
        parent.children |= static_cast<std::uint8_t>(1u << adoption.octant);
        if (!parent.pc || parent.pc->size() == 0) {
            parent.flags |= NODE_RELATIVE;
        }
    }
}

void Descent::report() {
    for (std::size_t i = 0; i < adoptions_.size(); ++i) {
        if (i == 0 || adoptions_[i].parent != adoptions_[i - 1].parent) {
            octree_.update_node(adoptions_[i].parent->key);
        }
    }
    for (const SplitNode& made : nodes_) {
        octree_.update_node(made.key);
    }
    for (const Filled& filled : filled_) {
        octree_.update_node(filled.leaf->key);
    }
}

}  // namespace ombrix::core::detail
