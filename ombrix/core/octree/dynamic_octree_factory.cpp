#include <algorithm>
#include <cmath>
#include <limits>
#include <new>

#include <spdlog/logger.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>

#include <ombrix/core/octree/dynamic_octree_factory.h>
#include <ombrix/core/octree/dynamic_split_detail.h>
#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/octree/node_frame_detail.h>
#include <ombrix/core/octree/padded_append_detail.h>
#include <ombrix/core/octree/watched_append_detail.h>

namespace ombrix::core {
namespace {

constexpr double FLOAT_MAX = std::numeric_limits<float>::max();
constexpr double BOX_MARGIN = 0x1p-23;

/// Box of a cloud over its finite coordinates, moved by `shift`; minimum above maximum on an axis without.
Aabb finiteBox(const PointCloud& cloud, const Vector3d& shift) {
    const Aabb none(Vector3d::Constant(FLOAT_MAX), Vector3d::Constant(-FLOAT_MAX));
    const auto& positions = cloud.positions();
    Aabb box = tbb::parallel_reduce(
        tbb::blocked_range<std::size_t>(0, positions.size()), none,
        [&](const auto& range, const Aabb& sum) {
            Vector3f low = sum.min.cast<float>();
            Vector3f high = sum.max.cast<float>();
            for (std::size_t i = range.begin(); i != range.end(); ++i) {
                for (int axis = 0; axis < 3; ++axis) {
                    const float c = positions[i][axis];
                    low[axis] = c < low[axis] && std::isfinite(c) ? c : low[axis];
                    high[axis] = c > high[axis] && std::isfinite(c) ? c : high[axis];
                }
            }
            return Aabb(low.cast<double>(), high.cast<double>());
        },
        [](const Aabb& a, const Aabb& b) { return Aabb(a.min.cwiseMin(b.min), a.max.cwiseMax(b.max)); });
    for (int axis = 0; axis < 3; ++axis) {
        if (box.min[axis] <= box.max[axis] && std::isfinite(shift[axis])) {
            box.min[axis] += shift[axis];
            box.max[axis] += shift[axis];
        } else {
            box.min[axis] = none.min[axis];
            box.max[axis] = none.max[axis];
        }
    }
    return box;
}

/// The part of a box that a root cube can reach; axes without a range become `fallback`.
Aabb reachable(const Aabb& box, const Vector3d& fallback) {
    constexpr double LAST = 0x1p124;
    Aabb result;
    for (int axis = 0; axis < 3; ++axis) {
        const bool empty = !(box.min[axis] <= box.max[axis]);
        result.min[axis] = std::clamp(empty ? fallback[axis] : box.min[axis], -LAST, LAST);
        result.max[axis] = std::clamp(empty ? fallback[axis] : box.max[axis], -LAST, LAST);
    }
    return result;
}

}  // namespace

DynamicOctreeFactory::DynamicOctreeFactory()
    : OctreeFactory(Vector3f::Zero(), 0.0f), octree_(std::make_shared<Octree>()) {
    reset_pc_aabb();
}

DynamicOctreeFactory::DynamicOctreeFactory(std::uint64_t maxPoints) : DynamicOctreeFactory() {
    maxPoints_ = maxPoints;
}

DynamicOctreeFactory::DynamicOctreeFactory(const Vector3f& origin, const Vector3f& top)
    : OctreeFactory(origin, top), octree_(std::make_shared<Octree>()) {
    octree_->setOriginTop(origin, top);
    reset_pc_aabb();
}

void DynamicOctreeFactory::setOriginTop(const Vector3f& origin, const Vector3f& top) {
    OctreeFactory::setOriginTop(origin, top);
    octree_->setOriginTop(origin, top);
}

void DynamicOctreeFactory::clear() {
    std::shared_ptr<Octree> tree = create_octree();
    update_octree(tree, {});
    setOriginTop(Vector3f::Zero(), Vector3f::Zero());
    scalarMin_ = static_cast<float>(FLOAT_MAX);
    scalarMax_ = -scalarMin_;
    droppedPoints_ = 0;
    reset_pc_aabb();
}

std::uint64_t DynamicOctreeFactory::size() const {
    return octree_->size();
}

void DynamicOctreeFactory::operator()(Octree&) {}

void DynamicOctreeFactory::add(const PointCloud& cloud) {
    add(cloud, Vector3d::Zero());
}

void DynamicOctreeFactory::add(const PointCloud& cloud, const Vector3d& shift) {
    addWithin(cloud, shift, nullptr);
}

bool DynamicOctreeFactory::add(const PointCloud& cloud, const WorkContext& context) {
    return add(cloud, Vector3d::Zero(), context);
}

bool DynamicOctreeFactory::add(const PointCloud& cloud, const Vector3d& shift, const WorkContext& context) {
    return detail::runWatched(context, [&](detail::Work& work) { addWithin(cloud, shift, &work); });
}

void DynamicOctreeFactory::addWithin(const PointCloud& cloud, const Vector3d& shift, detail::Work* work) {
    if (cloud.size() == 0) {
        return;
    }
    const Aabb box = finiteBox(cloud, shift);
    const Aabb heldBox = pcAabb_;
    const float heldMin = scalarMin_;
    const float heldMax = scalarMax_;
    widenScalarRange(cloud);
    for (int axis = 0; axis < 3; ++axis) {
        if (box.min[axis] <= box.max[axis]) {
            pcAabb_.min[axis] = std::min(pcAabb_.min[axis], box.min[axis] - BOX_MARGIN);
            pcAabb_.max[axis] = std::max(pcAabb_.max[axis], box.max[axis] + BOX_MARGIN);
        }
    }
    const bool first = !octree_->hasKey(octree_->rootKey());
    const Vector3d origin = (first ? origin_ : octree_->origin()).cast<double>();
    const Aabb reached = reachable(box, origin.allFinite() ? origin : Vector3d::Zero().eval());
    bool entered = false;
    bool merged = false;
    try {
        if (first) {
            addFirst(cloud, shift, reached, work);
        } else {
            if (!contains({octree_->origin(), octree_->extend()}, reached)) {
                merged = true;
                expand(reached, work);
                splitMergedLeaves();
                merged = false;
            }
            distribute(cloud, shift, true, work, entered);
        }
    } catch (...) {
        if (!entered) {
            pcAabb_ = heldBox;
            scalarMin_ = heldMin;
            scalarMax_ = heldMax;
        }
        octree_->setScalarFieldMinMax(scalarMin_, scalarMax_);
        if (merged) {
            try {
                splitMergedLeaves();  // what grew is in order all the same, if there is memory for that
            } catch (const std::bad_alloc&) {
            }
        }
        throw;
    }
    octree_->setScalarFieldMinMax(scalarMin_, scalarMax_);
}

void DynamicOctreeFactory::addFirst(const PointCloud& cloud, const Vector3d& shift, const Aabb& box,
                                    detail::Work* work) {
    const Frame factoryFrame{origin_, extend_};
    const Vector3f factoryTop = top_;
    Octree before;
    before.copyBox(*octree_);
    if (extend_ > 0.0f && std::isfinite(extend_) && origin_.allFinite()) {
        passFrameTo(*octree_);  // the root cube was fixed by the caller
        expand(box, work);
    } else {
        setFrame(*octree_, firstFrame(box));
    }
    const Vector3d offset = shift - octree_->origin().cast<double>();
    try {
        Octree::Node& root = octree_->add_node(octree_->rootKey());
        root.flags |= detail::NODE_RELATIVE;
        if (work == nullptr) {
            detail::appendPadded(ownCloud(root), cloud, offset);
        } else {
            work->begin(0.2, 4 * cloud.size());
            detail::appendPaddedWatched(ownCloud(root), cloud, offset, *work);
            work->begin(0.8, 3 * cloud.size());
        }
        root.size = root.pc->size();
        if (mustSplit(root)) {
            split(root, detail::DEEPEST_LEAF, work);
        }
    } catch (...) {
        octree_->delete_node(octree_->rootKey());
        octree_->copyBox(before);
        origin_ = factoryFrame.origin;
        extend_ = factoryFrame.extend;
        top_ = factoryTop;
        throw;
    }
    octree_->update_node(octree_->rootKey());
}

void DynamicOctreeFactory::factory() {
    Octree::NodeMap& nodes = octree_->nodes();
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, nodes.bucket_count(), 4096), [&](const auto& range) {
        std::vector<Octree::Node*> held;
        for (std::size_t bucket = range.begin(); bucket != range.end(); ++bucket) {
            for (auto node = nodes.begin(bucket); node != nodes.end(bucket); ++node) {
                if (node->second.pc) {
                    held.push_back(&node->second);
                }
            }
        }
        for (std::size_t i = 0; i < held.size(); ++i) {
            // The clouds lie anywhere in memory: have the next ones fetched meanwhile.
            if (i + 8 < held.size()) {
                __builtin_prefetch(held[i + 8]->pc.get());
                __builtin_prefetch(held[i + 4]->pc->positions().data());
            }
            const Vector3f corner = octree_->node_origin(*held[i]);
            held[i]->flags &= static_cast<std::uint8_t>(~detail::NODE_RELATIVE);
            for (Vector3f& p : held[i]->pc->positions()) {
                p += corner;
            }
        }
    });
}

std::shared_ptr<NestedOctreeFactory> DynamicOctreeFactory::convert() {
    auto nested = std::make_shared<NestedOctreeFactory>(origin_, top_);
    for (const std::uint64_t key : octree_->keys()) {
        const std::shared_ptr<PointCloud> cloud = octree_->node_pc(key);
        if (!cloud) {
            continue;
        }
        Octree::Node& node = octree_->node(key);
        if ((node.flags & detail::NODE_RELATIVE) != 0) {
            nested->add(*cloud, octree_->node_origin(node).cast<double>() + octree_->origin().cast<double>());
        } else {
            nested->add(*cloud);
        }
        node.size = cloud->size();
        node.pc.reset();
        node.compressed.reset();
    }
    return nested;
}

std::shared_ptr<Octree> DynamicOctreeFactory::octree() {
    return octree_;
}

std::shared_ptr<Octree> DynamicOctreeFactory::create_octree() {
    return std::make_shared<Octree>();
}

void DynamicOctreeFactory::update_octree(std::shared_ptr<Octree>& tree,
                                         const std::vector<std::pair<std::uint64_t, std::uint64_t>>&) {
    octree_ = tree;
}

Aabb DynamicOctreeFactory::rootNode_aabb() const {
    const Vector3d origin = octree_->origin().cast<double>();
    return {origin, origin + Vector3d::Constant(octree_->extend())};
}

void DynamicOctreeFactory::reset_pc_aabb() {
    pcAabb_ = Aabb(Vector3d::Constant(FLOAT_MAX), Vector3d::Constant(-FLOAT_MAX));
}

}  // namespace ombrix::core
