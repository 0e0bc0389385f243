#include <algorithm>

#include <spdlog/logger.h>
#include <tbb/parallel_for.h>

#include <ombrix/core/octree/cell_key_detail.h>
#include <ombrix/core/octree/dynamic_descent_detail.h>
#include <ombrix/core/octree/dynamic_octree_factory.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/node_frame_detail.h>
#include <ombrix/core/octree/padded_append_detail.h>

namespace ombrix::core {
namespace {

using detail::DEEPEST_LEAF;

using Pair = detail::Arrivals::Pair;

/// Keeps the first of the pairs with equal codes; they are sorted by code.
/// @return  one past the last pair kept.
Pair* dropEqualCodes(Pair* first, Pair* last) {
    return std::unique(first, last, [](const Pair& a, const Pair& b) { return a.second == b.second; });
}

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
    distribute(cloud, shift, false, nullptr);
}

void DynamicOctreeFactory::push_to_leaf_morton(const PointCloud& cloud, const Vector3d& shift) {
    distribute(cloud, shift, true, nullptr);
}

void DynamicOctreeFactory::distribute(const PointCloud& cloud, const Vector3d& shift, bool onePerCode,
                                      detail::Work* work) {
    if (cloud.size() == 0) {
        return;
    }
    const Vector3d offset = shift - octree_->origin().cast<double>();
    const double extend = octree_->extend();

    const auto begin = [&](double share) {
        if (work != nullptr) {
            work->begin(share, cloud.size());
        }
    };

    // Key and sort, equal codes by index
    begin(0.1);
    auto pairs = detail::mortonPairs(
        cloud.size(),
        [&](std::uint64_t i) {
            return detail::cellKey(cloud.positions()[i].cast<double>() + offset, extend).key;
        },
        work);
    begin(0.4);
    detail::sortByCode(pairs, work);
    begin(0.5);
    std::vector<Pair> scattered;
    Pair* first = detail::contiguousPairs(pairs) != nullptr ? &pairs[0] : nullptr;
    if (first == nullptr) {
        scattered.assign(pairs.begin(), pairs.end());
        first = scattered.data();
    }
    Pair* last = first + pairs.size();
    if (onePerCode) {
        last = dropEqualCodes(first, last);
    }

    // Go down, on several threads below a few top levels
    PointCloud padded;
    const detail::Arrivals arrivals{&detail::evenCloud(cloud, padded), offset, first, last};
    std::vector<detail::Descent::Stop> stops;
    detail::Descent top(*octree_, maxPoints_, work);
    std::vector<detail::Descent> descents;
    try {
        top.descend(octree_->node(octree_->rootKey()), arrivals, &stops);
        descents.reserve(stops.size());
        while (descents.size() < stops.size()) {
            descents.emplace_back(*octree_, maxPoints_, work);
        }
        tbb::parallel_for(std::size_t{0}, stops.size(),
                          [&](std::size_t i) { descents[i].descend(*stops[i].node, stops[i].arrivals); });
    } catch (...) {
        top.undo();
        for (detail::Descent& descent : descents) {
            descent.undo();
        }
        throw;
    }

    // Nothing is stopped any more: enter what they found into the tree; leaves whose clouds were not at hand
    // come last
    droppedPoints_ += pairs.size() - static_cast<std::uint64_t>(last - first);
    top.enter();
    detail::Descent unwatched(*octree_, maxPoints_);
    std::vector<detail::Descent::Stop> deferred;
    for (detail::Descent& descent : descents) {
        const auto stopped = descent.enter();
        deferred.insert(deferred.end(), stopped.begin(), stopped.end());
    }
    for (detail::Descent::Stop& stop : deferred) {
        PointCloud copy;
        if (&ownCloud(*stop.node) == arrivals.cloud) {
            copy.copyFrom(*arrivals.cloud, false);  // somebody adds a leaf's cloud to its own tree
            stop.arrivals.cloud = &copy;
        }
        unwatched.descend(*stop.node, stop.arrivals);
        unwatched.enter();
    }
}

/// Splits a leaf; its own cloud is replaced, so that others may keep it.
std::vector<std::uint64_t> DynamicOctreeFactory::split(Octree::Node& node, unsigned int levels,
                                                       detail::Work* work) {
    detail::Descent descent(*octree_, maxPoints_, work);
    return descent.split(node, ownCloud(node), levels);
}

void DynamicOctreeFactory::expand_nodes(Octree::Node& node) {
    if (mustSplit(node)) {
        split(node, DEEPEST_LEAF);
    }
}

std::vector<std::uint64_t> DynamicOctreeFactory::expand_node(Octree::Node& node) {
    if (node.children != 0 || node_depth(node.key) >= DEEPEST_LEAF || ownCloud(node).size() == 0) {
        return {};
    }
    return split(node, 1);
}

}  // namespace ombrix::core
