#include <algorithm>
#include <cmath>

#include <spdlog/logger.h>
#include <tbb/parallel_for.h>

#include <ombrix/core/octree/dynamic_octree_factory.h>
#include <ombrix/core/octree/dynamic_split_detail.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/node_frame_detail.h>
#include <ombrix/core/octree/padded_append_detail.h>

namespace ombrix::core {
namespace {

using detail::DEEPEST_LEAF;

/// Sorted indices and codes of the points to distribute.
struct Sorted {
    std::vector<std::uint64_t> indices;
    std::vector<std::uint64_t> codes;

    [[nodiscard]] std::size_t endOfOctant(std::size_t first, std::size_t last, unsigned int depth) const {
        const unsigned int shift = 3 * (DEEPEST_LEAF - depth);
        const std::uint64_t prefix = codes[first] >> shift;
        const auto begin = codes.begin() + static_cast<std::ptrdiff_t>(first);
        return first + static_cast<std::size_t>(
                           std::partition_point(begin, codes.begin() + static_cast<std::ptrdiff_t>(last),
                                                [&](std::uint64_t code) { return code >> shift == prefix; }) -
                           begin);
    }
};

/// A node and the run of sorted points that belong below it.
struct Run {
    Octree::Node* node;
    std::size_t first;
    std::size_t last;
    std::vector<detail::SplitNode> split;  ///< what a leaf that became too full is split into
};

/// One point as a cloud that has the fields of its flags.
PointCloud cloudOf(const Point& point) {
    PointCloud cloud;
    if ((point.flags & Point::HAS_NORMAL) != 0) {
        cloud.fields().addField<Vector3f>(FIELD_NORMAL);
    }
    if ((point.flags & Point::HAS_DISTANCE) != 0) {
        cloud.fields().addField<float>(FIELD_DISTANCE);
    }
    if ((point.flags & Point::HAS_AMBIENT) != 0) {
        cloud.fields().addField<float>(FIELD_AMBIENT);
    }
    cloud.push_back(point, false);
    return cloud;
}

}  // namespace

bool DynamicOctreeFactory::mustSplit(const Octree::Node& node) const {
    return node.children == 0 && node.pc && node.pc->size() > maxPoints_ &&
           node_depth(node.key) < DEEPEST_LEAF;
}

/// The node's cloud, relative to the node's lower corner; it is brought back or created where it is missing.
PointCloud& DynamicOctreeFactory::ownCloud(Octree::Node& node) {
    if (!node.pc && node.size > 0) {
        node.pc = octree_->node_pc(node.key);
    }
    if (!node.pc) {
        node.pc = std::make_shared<PointCloud>();
    }
    if ((node.flags & detail::NODE_RELATIVE) == 0) {
        const Vector3f corner = octree_->node_origin(node);
        for (Vector3f& p : node.pc->positions()) {
            p -= corner;
        }
        node.flags |= detail::NODE_RELATIVE;
    }
    return *node.pc;
}

Octree::Node& DynamicOctreeFactory::child(Octree::Node& node, unsigned int octant) {
    const std::uint64_t key = child_key(node.key, octant);
    const auto found = octree_->nodes().find(key);
    if (found != octree_->nodes().end() && (node.children >> octant & 1) != 0) {
        return found->second;
    }
    Octree::Node& added = octree_->add_node(key);
    ownCloud(added);
    node.children |= static_cast<std::uint8_t>(1u << octant);
    node.flags |= detail::NODE_RELATIVE;
    return added;
}

void DynamicOctreeFactory::add(Octree::Node& node, const Point& point) {
    if (node.children != 0) {
        return;
    }
    PointCloud& cloud = ownCloud(node);
    detail::appendPadded(cloud, cloudOf(point), -octree_->node_origin(node).cast<double>());
    node.size = cloud.size();
    expand_nodes(node);
}

std::uint64_t DynamicOctreeFactory::push_to_leaf(const Point& point) {
    Octree::Node* node = &octree_->node(octree_->rootKey());
    while (node->children != 0 && node_depth(node->key) < MAX_DEPTH) {
        const unsigned int depth = node_depth(node->key);
        const std::uint64_t path = node->key ^ std::uint64_t{1} << (3 * depth);
        const std::uint64_t octant = (point.index >> (3 * (DEEPEST_LEAF - depth))) - (path << 3);
        if (octant > 7 && logger_) {
            logger_->warn("ERROR dynamic factory robustness");
            logger_->flush();
        }
        node = &child(*node, static_cast<unsigned int>(octant & 7));
    }
    PointCloud& cloud = ownCloud(*node);
    detail::appendPadded(cloud, cloudOf(point), -octree_->node_origin(*node).cast<double>());
    node->size = cloud.size();
    return node->key;
}

void DynamicOctreeFactory::push_to_leaf(const PointCloud& cloud, const Vector3d& shift) {
    distribute(cloud, shift, false);
}

void DynamicOctreeFactory::push_to_leaf_morton(const PointCloud& cloud, const Vector3d& shift) {
    distribute(cloud, shift, true);
}

void DynamicOctreeFactory::distribute(const PointCloud& cloud, const Vector3d& shift, bool onePerCode) {
    if (cloud.size() == 0) {
        return;
    }
    const Vector3d offset = shift - octree_->origin().cast<double>();
    const double extend = octree_->extend();

    // Key and sort, equal codes by index
    Sorted sorted;
    {
        auto pairs = detail::mortonPairs(cloud.size(), [&](std::uint64_t i) {
            return morton_keyd(cloud.positions()[i].cast<double>() + offset, extend).key;
        });
        detail::sortByCode(pairs);
        sorted.indices.reserve(pairs.size());
        sorted.codes.reserve(pairs.size());
        const OctreeConverter::Pair* pair = detail::contiguousPairs(pairs);
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            const auto& [index, code] = pair != nullptr ? pair[i] : pairs[i];
            if (onePerCode && !sorted.codes.empty() && sorted.codes.back() == code) {
                ++droppedPoints_;
            } else {
                sorted.indices.push_back(index);
                sorted.codes.push_back(code);
            }
        }
    }

    // Find the leaves
    std::vector<Run> leaves;
    std::vector<Octree::Node*> changed;
    PointCloud copy;
    const PointCloud* source = &detail::evenCloud(cloud, copy);
    std::vector<Run> stack;
    stack.push_back({&octree_->node(octree_->rootKey()), 0, sorted.codes.size(), {}});
    while (!stack.empty()) {
        const Run run = std::move(stack.back());
        stack.pop_back();
        const unsigned int depth = node_depth(run.node->key);
        if (run.node->children == 0 || depth > DEEPEST_LEAF) {
            if (&ownCloud(*run.node) == source) {
                copy.copyFrom(*source, false);  // somebody adds a leaf's cloud to its own tree
                source = &copy;
            }
            leaves.push_back(run);
            continue;
        }
        const std::uint8_t before = run.node->children;
        for (std::size_t first = run.first; first < run.last;) {
            const std::size_t last = sorted.endOfOctant(first, run.last, depth);
            const auto octant =
                static_cast<unsigned int>(sorted.codes[first] >> (3 * (DEEPEST_LEAF - depth)) & 7);
            stack.push_back({&child(*run.node, octant), first, last, {}});
            first = last;
        }
        if (run.node->children != before) {
            changed.push_back(run.node);
        }
    }

    // Append to the leaves and split them; each has a cloud of its own
    tbb::parallel_for(std::size_t{0}, leaves.size(), [&](std::size_t i) {
        Run& run = leaves[i];
        PointCloud& target = *run.node->pc;
        detail::appendPoints(target, *source, sorted.indices.data() + run.first, run.last - run.first,
                             offset - octree_->node_origin(*run.node).cast<double>());
        run.node->size = target.size();
        if (mustSplit(*run.node)) {
            run.split = detail::splitLeaf(*octree_, run.node->key, target, maxPoints_, DEEPEST_LEAF);
            run.node->pc = run.split.front().cloud;  // frees the points here, not one leaf after another
        }
    });

    // Insert the new nodes
    for (const Octree::Node* node : changed) {
        octree_->update_node(node->key);
    }
    for (Run& run : leaves) {
        insertSplit(*run.node, run.split);
        octree_->update_node(run.node->key);
    }
}

/// Writes the nodes that a leaf is split into; its own cloud is replaced, so that others may keep it.
void DynamicOctreeFactory::insertSplit(Octree::Node& node, std::vector<detail::SplitNode>& split) {
    if (split.empty()) {
        return;
    }
    for (std::size_t i = 0; i < split.size(); ++i) {
        Octree::Node& part = i == 0 ? node : octree_->add_node(split[i].key);
        part.children = split[i].children;
        part.flags |= detail::NODE_RELATIVE;
        part.size = split[i].cloud->size();
        part.pc = std::move(split[i].cloud);
        part.compressed.reset();
        if (i != 0) {
            octree_->update_node(part.key);
        }
    }
}

void DynamicOctreeFactory::expand_nodes(Octree::Node& node) {
    if (mustSplit(node)) {
        auto split = detail::splitLeaf(*octree_, node.key, ownCloud(node), maxPoints_, DEEPEST_LEAF);
        insertSplit(node, split);
        octree_->update_node(node.key);
    }
}

std::vector<std::uint64_t> DynamicOctreeFactory::expand_node(Octree::Node& node) {
    std::vector<std::uint64_t> children;
    if (node.children != 0 || node_depth(node.key) >= DEEPEST_LEAF || ownCloud(node).size() == 0) {
        return children;
    }
    auto split = detail::splitLeaf(*octree_, node.key, *node.pc, maxPoints_, 1);
    for (std::size_t i = 1; i < split.size(); ++i) {
        children.push_back(split[i].key);
    }
    insertSplit(node, split);
    octree_->update_node(node.key);
    return children;
}

}  // namespace ombrix::core
