#include <algorithm>
#include <cmath>
#include <limits>

#include <spdlog/logger.h>

#include <ombrix/core/octree/dynamic_octree_factory.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/node_frame_detail.h>
#include <ombrix/core/octree/padded_append_detail.h>
#include <ombrix/core/services/work_detail.h>

namespace ombrix::core {
namespace {

constexpr unsigned int DEEPEST_KEPT = 19;  // deeper nodes are merged when the root grows
constexpr double LARGEST_EDGE = 0x1p126;   // corners of such a cube are finite floats
constexpr double LARGEST_STEP = 0x1p19;    // root edges that one step of growth reaches on a side

/// The largest float that is not above v, so that a root cube never starts inside of what it holds.
float floorToFloat(double v) {
    const auto f = static_cast<float>(v);
    return static_cast<double>(f) > v ? std::nextafter(f, -std::numeric_limits<float>::infinity()) : f;
}

PointCloud& cloudOf(Octree::Node& node) {
    if (!node.pc) {
        node.pc = std::make_shared<PointCloud>();
    }
    return *node.pc;
}

/// Key of a node of the old tree, or of its ancestor at the deepest level that is kept, in the new tree.
std::uint64_t hungKey(std::uint64_t key, std::uint64_t newRoot) {
    const unsigned int depth = node_depth(key);
    const std::uint64_t code = key ^ std::uint64_t{1} << (3 * depth);
    const unsigned int newDepth = depth + node_depth(newRoot);
    if (newDepth <= DEEPEST_KEPT) {
        return newRoot << (3 * depth) | code;
    }
    const unsigned int cut = newDepth - DEEPEST_KEPT;  // cut before prefixing: the whole might not fit
    return cut < depth ? newRoot << (3 * (depth - cut)) | code >> (3 * cut) : newRoot >> (3 * (cut - depth));
}

std::uint64_t cellCount(double k) {
    return static_cast<std::uint64_t>(std::clamp(std::ceil(k), 1.0, LARGEST_STEP));
}

}  // namespace

/// One step of growth: where the old root cube lies in the new one.
struct DynamicOctreeFactory::Growth {
    Frame frame;           ///< the new root cube
    unsigned int levels;   ///< depth of the old root in the new tree
    std::uint64_t oldKey;  ///< key of the old root in the new tree
    bool exact;            ///< the new origin is close enough to the grid of the old cube
};

unsigned int DynamicOctreeFactory::next_pow2(unsigned int v) {
    --v;
    for (unsigned int shift = 1; shift < 32; shift *= 2) {
        v |= v >> shift;
    }
    return v + 1;
}

std::uint64_t DynamicOctreeFactory::next_pow2(std::uint64_t v) {
    --v;
    for (unsigned int shift = 1; shift < 64; shift *= 2) {
        v |= v >> shift;
    }
    return v + 1;
}

unsigned int DynamicOctreeFactory::inv_pow2(unsigned int v) {
    unsigned int doublings = 0;
    for (std::uint64_t reached = 1; reached < v; reached *= 2) {
        ++doublings;
    }
    return doublings;
}

DynamicOctreeFactory::Frame DynamicOctreeFactory::firstFrame(const Aabb& box) const {
    const bool usable = leafSize_ > 0.0f && leafSize_ <= LARGEST_EDGE;
    const double unit = usable ? leafSize_ : 1.0;
    const double units = (box.max - box.min).maxCoeff() / unit;
    double edge =
        unit * static_cast<double>(next_pow2(static_cast<std::uint64_t>(std::min(units, 0x1p62)) + 1));

    Frame frame;
    for (int axis = 0; axis < 3; ++axis) {
        frame.origin[axis] = floorToFloat(box.min[axis]);
    }
    frame.extend = static_cast<float>(edge);
    while (!contains(frame, box) && edge < LARGEST_EDGE) {
        edge *= 2.0;
        frame.extend = static_cast<float>(edge);
    }
    return frame;
}

bool DynamicOctreeFactory::contains(const Frame& frame, const Aabb& box) {
    const Vector3d origin = frame.origin.cast<double>();
    const Vector3d top = origin + Vector3d::Constant(frame.extend);
    return (box.min.array() >= origin.array()).all() && (box.max.array() <= top.array()).all();
}

void DynamicOctreeFactory::setFrame(Octree& tree, const Frame& frame) {
    setOriginExtend(frame.origin, frame.extend);
    passFrameTo(tree);
}

/// Gives a tree the factory's cube, which a caller may have set.
void DynamicOctreeFactory::passFrameTo(Octree& tree) const {
    tree.setOriginTop(origin_, top_);
    copyStateTo(tree, octree_->type());  // the edge as it is: corners in the millions would round it
}

bool DynamicOctreeFactory::grow(const Frame& frame, const Aabb& box, Growth& growth) {
    const Vector3d origin = frame.origin.cast<double>();
    const double edge = frame.extend;
    if (!(edge > 0.0) || !std::isfinite(edge) || !origin.allFinite()) {
        return false;
    }
    std::uint64_t below[3];
    unsigned int factor = 1;
    for (int axis = 0; axis < 3; ++axis) {
        const double top = origin[axis] + edge;
        below[axis] =
            box.min[axis] < origin[axis] ? next_pow2(cellCount((top - box.min[axis]) / edge)) - 1 : 0;
        std::uint64_t cells = below[axis] + 1;
        if (box.max[axis] > top) {
            cells = next_pow2(cellCount((box.max[axis] - origin[axis]) / edge) + below[axis]);
        }
        factor = std::max(factor, next_pow2(static_cast<unsigned int>(cells)));
    }
    const double extend = edge * factor;
    if (factor == 1 || extend > LARGEST_EDGE) {
        return false;
    }

    growth.levels = inv_pow2(factor);
    growth.oldKey =
        std::uint64_t{1} << (3 * growth.levels) |
        morton3d<std::uint64_t>(static_cast<std::uint32_t>(below[0]), static_cast<std::uint32_t>(below[1]),
                                static_cast<std::uint32_t>(below[2]))
            .key;
    growth.exact = true;
    double farthest = extend;
    for (int axis = 0; axis < 3; ++axis) {
        const double corner = origin[axis] - static_cast<double>(below[axis]) * edge;
        growth.frame.origin[axis] = floorToFloat(corner);
        const double lost = corner - growth.frame.origin[axis];
        growth.exact = growth.exact && lost <= extend * 0x1p-21;
        farthest = std::max(farthest, origin[axis] + edge - growth.frame.origin[axis]);
    }
    growth.frame.extend = static_cast<float>(extend);
    while (!growth.exact && growth.frame.extend < farthest && growth.frame.extend < LARGEST_EDGE) {
        growth.frame.extend *= 2.0f;
    }
    return true;
}

void DynamicOctreeFactory::expand_octree(const Aabb& box) {
    expand(box, nullptr);
}

void DynamicOctreeFactory::expand(const Aabb& box, detail::Work* work) {
    Frame frame{octree_->origin(), octree_->extend()};
    Growth growth;
    while (!contains(frame, box) && grow(frame, box, growth)) {
        const Frame heldFrame{origin_, extend_};
        const Vector3f heldTop = top_;
        try {
            if (!octree_->hasKey(octree_->rootKey())) {
                setFrame(*octree_, growth.frame);
            } else if (growth.exact) {
                hang(growth, work);
            } else {
                rebuild(growth, work);
            }
        } catch (...) {
            origin_ = heldFrame.origin;
            extend_ = heldFrame.extend;
            top_ = heldTop;
            throw;
        }
        frame = growth.frame;
    }
}

/// Hangs the old tree below its place in a new one; as long as memory may run out, or the work be stopped,
/// the old one stays whole.
void DynamicOctreeFactory::hang(const Growth& growth, detail::Work* work) {
    const std::shared_ptr<Octree> old = octree_;
    std::shared_ptr<Octree> tree = create_octree();
    setFrame(*tree, growth.frame);
    tree->nodes().reserve(old->keyCount() + growth.levels);
    const Vector3d moved = old->origin().cast<double>() - tree->origin().cast<double>();

    std::vector<std::pair<std::uint64_t, std::uint64_t>> keys;
    keys.reserve(old->keyCount());
    for (const auto& [key, node] : old->nodes()) {
        keys.emplace_back(key, hungKey(key, growth.oldKey));
    }
    std::sort(keys.begin(), keys.end());  // merged nodes come after the node they are merged into
    std::vector<std::pair<PointCloud*, Vector3d>> shifted;

    for (const auto& [key, hung] : keys) {
        if (work != nullptr) {
            work->check();
        }
        const Octree::Node& node = old->node(key);
        const bool merged = node_depth(key) + growth.levels > DEEPEST_KEPT;
        Octree::Node& target = tree->add_node(hung);
        target.flags |= node.flags | detail::NODE_RELATIVE;
        if (!merged) {
            target.children = node_depth(hung) < DEEPEST_KEPT ? node.children : std::uint8_t{0};
        }
        const bool kept = !merged && target.children == node.children;
        const Vector3d from = detail::positionOffset(*old, node).cast<double>();
        const Vector3d shift = moved + from - tree->node_origin(target).cast<double>();
        std::shared_ptr<PointCloud> cloud = node.pc;
        if (!cloud && node.size > 0 && (!kept || !shift.isZero(0.0))) {
            cloud = old->node_pc(key);
        }
        if (kept) {
            target.pc = std::move(cloud);
            target.compressed = node.compressed;
            target.size = node.size;
            if (target.pc && !shift.isZero(0.0)) {
                shifted.emplace_back(target.pc.get(), shift);
            }
        } else if (cloud && cloud->size() > 0) {
            detail::appendPadded(cloudOf(target), *cloud, shift);
            target.size = target.pc->size();
        } else if (!cloud) {
            target.size += node.size;
        }
    }

    std::uint64_t key = node_depth(growth.oldKey) > DEEPEST_KEPT ? parent_key(growth.oldKey) : growth.oldKey;
    while (key > 1) {
        Octree::Node& parent = tree->add_node(parent_key(key));
        parent.children |= static_cast<std::uint8_t>(1u << (key & 7));
        parent.flags |= detail::NODE_RELATIVE;
        cloudOf(parent);
        key = parent_key(key);
    }
    if (key != 1 && logger_) {
        logger_->error("ERROR dynamic factory expand octree : root key != 1");
    }
    for (const auto& [cloud, shift] : shifted) {
        for (Vector3f& p : cloud->positions()) {
            p = (p.cast<double>() + shift).cast<float>();
        }
    }
    update_octree(tree, keys);
}

/// Moves all points to a new tree whose grid does not fit the old one: floats far from zero have too few
/// digits for the corner that growth asks for.
void DynamicOctreeFactory::rebuild(const Growth& growth, detail::Work* work) {
    const std::shared_ptr<Octree> old = octree_;
    std::shared_ptr<Octree> tree = create_octree();
    setFrame(*tree, growth.frame);
    tree->add_node(tree->rootKey()).flags |= detail::NODE_RELATIVE;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> keys;
    for (const std::uint64_t key : old->keys()) {
        keys.emplace_back(key, tree->rootKey());
    }
    std::sort(keys.begin(), keys.end());
    octree_ = tree;
    try {
        for (const auto& [key, root] : keys) {
            if (work != nullptr) {
                work->check();
            }
            if (const std::shared_ptr<PointCloud> cloud = old->node_pc(key); cloud && cloud->size() > 0) {
                const Vector3f corner = detail::positionOffset(*old, old->node(key));
                distribute(*cloud, corner.cast<double>() + old->origin().cast<double>(), false, nullptr);
            }
        }
    } catch (...) {
        octree_ = old;
        throw;
    }
    octree_ = old;
    update_octree(tree, keys);
}

void DynamicOctreeFactory::splitMergedLeaves() {
    std::vector<std::uint64_t> merged;
    for (const auto& [key, node] : octree_->nodes()) {
        if (node_depth(key) == DEEPEST_KEPT && mustSplit(node)) {
            merged.push_back(key);
        }
    }
    std::sort(merged.begin(), merged.end());
    for (const std::uint64_t key : merged) {
        expand_nodes(octree_->node(key));
    }
}

}  // namespace ombrix::core
