#include <algorithm>
#include <new>

#include <spdlog/logger.h>
#include <tbb/parallel_for.h>

#include <ombrix/core/octree/cell_key_detail.h>
#include <ombrix/core/octree/dynamic_descent_detail.h>
#include <ombrix/core/octree/dynamic_octree_factory.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/node_frame_detail.h>
#include <ombrix/core/octree/padded_append_detail.h>
#include <ombrix/core/octree/watched_append_detail.h>

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

/// Appends a point, relative to `corner`, with all its attributes; or nothing, when memory runs out.
/// @return  the number of points.
std::uint64_t appendPoint(PointCloud& cloud, const Point& point, const Vector3f& corner) {
    detail::AppendRollback before(cloud);
    try {
        detail::appendPadded(cloud, cloudOf(point), -corner.cast<double>());
    } catch (...) {
        before.undo();
        throw;
    }
    return cloud.size();
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
    node.children |= static_cast<std::uint8_t>(1u << octant);
    node.flags |= detail::NODE_RELATIVE;
    ownCloud(added);
    return added;
}

/// The root; an empty one in the factory's cube where there is none yet.
Octree::Node& DynamicOctreeFactory::root() {
    if (octree_->hasKey(octree_->rootKey())) {
        return octree_->node(octree_->rootKey());
    }
    passFrameTo(*octree_);
    Octree::Node& made = octree_->add_node(octree_->rootKey());
    ownCloud(made);
    return made;
}

void DynamicOctreeFactory::add(Octree::Node& node, const Point& point) {
    if (node.children != 0) {
        return;
    }
    node.size = appendPoint(ownCloud(node), point, octree_->node_origin(node));
    expand_nodes(node);
}

std::uint64_t DynamicOctreeFactory::push_to_leaf(const Point& point) {
    Octree::Node* node = &root();
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
    node->size = appendPoint(ownCloud(*node), point, octree_->node_origin(*node));
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
    bool entered = false;
    distribute(cloud, shift, onePerCode, work, entered);
}

/// @param entered  set as soon as points have come to stay, whatever fails later.
void DynamicOctreeFactory::distribute(const PointCloud& cloud, const Vector3d& shift, bool onePerCode,
                                      detail::Work* work, bool& entered) {
    if (cloud.size() == 0) {
        return;
    }
    Octree::Node& top = root();
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
    std::vector<detail::Descent> descents;
    descents.emplace_back(*octree_, maxPoints_, work);
    descents.front().descend(top, arrivals, &stops);
    descents.reserve(stops.size() + 2);
    for (std::size_t i = 0; i <= stops.size(); ++i) {
        descents.emplace_back(*octree_, maxPoints_, work);
    }
    tbb::parallel_for(std::size_t{0}, stops.size(),
                      [&](std::size_t i) { descents[i + 1].descend(*stops[i].node, stops[i].arrivals); });

    // Leaves whose clouds have another form
    PointCloud copy;
    const PointCloud* source = arrivals.cloud;
    const auto provide = [&](detail::Descent::Stop& stop) {
        if (!stop.node->pc && stop.node->size > 0) {
            stop.node->pc = octree_->node_pc(stop.node->key);
        }
        if (stop.node->pc &&
            (stop.node->pc.get() == source || detail::shareFields(*stop.node->pc, *source))) {
            copy.copyFrom(*source, false);  // somebody adds a leaf's cloud, or a copy, to its own tree
            source = &copy;
        }
        stop.arrivals.cloud = source;
        ownCloud(*stop.node);
    };
    std::vector<detail::Descent::Stop> absent;
    for (std::size_t i = 0; i <= stops.size(); ++i) {
        for (detail::Descent::Stop& stop : descents[i].deferred()) {
            if (!stop.node->pc && stop.node->size > 0) {
                absent.push_back(stop);
                continue;
            }
            provide(stop);
            descents.back().descend(*stop.node, stop.arrivals);
        }
    }

    // Nothing is stopped any more
    for (detail::Descent& descent : descents) {
        descent.addNodes();
    }
    try {
        // It frees what was split
        tbb::parallel_for(std::size_t{0}, descents.size(), [&](std::size_t i) { descents[i].enter(); });
    } catch (const std::bad_alloc&) {
        std::for_each(descents.begin(), descents.end(), [](detail::Descent& descent) { descent.enter(); });
    }
    droppedPoints_ += pairs.size() - static_cast<std::uint64_t>(last - first);
    entered = true;
    for (detail::Descent& descent : descents) {
        descent.report();
    }

    // A tree that brings a leaf's points back may drop those of others, so this comes last
    for (detail::Descent::Stop& stop : absent) {
        provide(stop);
        detail::Descent descent(*octree_, maxPoints_);
        descent.descend(*stop.node, stop.arrivals);
        descent.addNodes();
        descent.enter();
        descent.report();
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
