#include <algorithm>
#include <memory>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/octree/node_frame_detail.h>
#include <ombrix/core/octree/octree_converter.h>
#include <ombrix/core/octree/octree_factory.h>
#include <ombrix/core/octree/padded_append_detail.h>

namespace ombrix::core {
namespace {

/// First and last code of the points in a node's cell.
struct CellCodes {
    std::uint64_t first;
    std::uint64_t last;

    explicit CellCodes(std::uint64_t key) {
        const unsigned int depth = node_depth(key);
        const unsigned int below = 3 * (MORTON_LEVELS - depth);
        first = (key ^ std::uint64_t{1} << (3 * depth)) << below;
        last = first | ((std::uint64_t{1} << below) - 1);
    }
};

/// Code of a position, kept in the cell of the node that holds the point: rounding or clamping may have left
/// the position itself just outside.
std::uint64_t codeIn(const CellCodes& cell, const Vector3f& p, float extend) {
    return std::clamp(OctreeFactory::morton_keyd(p.cast<double>(), extend).key, cell.first, cell.last);
}

/// Appends the points of a node, relative to the tree's origin.
void appendNode(PointCloud& out, Octree& octree, std::uint64_t key, bool positionsOnly) {
    if (const std::shared_ptr<PointCloud> cloud = octree.node_pc(key)) {
        const Vector3d offset = detail::positionOffset(octree, octree.node(key)).cast<double>();
        detail::appendEven(out, *cloud, offset, positionsOnly);
    }
}

/// Appends the points that proper ancestors of `key` hold in its cell, root first.
void appendAncestors(PointCloud& out, Octree& octree, std::uint64_t key, bool positionsOnly) {
    const CellCodes cell(key);
    for (unsigned int level = 0; level < node_depth(key); ++level) {
        const std::uint64_t ancestor = key >> (3 * (node_depth(key) - level));
        if (!octree.hasKey(ancestor)) {
            continue;
        }
        const std::shared_ptr<PointCloud> cloud = octree.node_pc(ancestor);
        if (!cloud) {
            continue;
        }
        const CellCodes whole(ancestor);
        const Vector3f offset = detail::positionOffset(octree, octree.node(ancestor));
        std::vector<std::uint64_t> inside;
        for (std::uint64_t i = 0; i < cloud->size(); ++i) {
            const std::uint64_t code = codeIn(whole, cloud->positions()[i] + offset, octree.extend());
            if (code >= cell.first && code <= cell.last) {
                inside.push_back(i);
            }
        }
        if (!inside.empty()) {
            PointCloud padded;
            PointCloud selected;
            selected.push_back(detail::evenCloud(*cloud, padded), inside, offset, positionsOnly);
            detail::appendEven(out, selected, Vector3d::Zero(), positionsOnly);
        }
    }
}

/// Makes an empty tree of a type with the box of another; the two may be the same.
void startOver(Octree& octree, const Octree& like, Octree::OctreeType type) {
    octree.nodes().clear();
    octree.copyBox(like);
    octree.type() = type;
}

/// Builds the full sub-tree under `key` out of points that lie in its cell.
void buildFull(const PointCloud& cloud, std::uint64_t key, unsigned int threshold, bool positionsOnly,
               Octree& out) {
    const CellCodes cell(key);
    auto pairs = detail::mortonPairs(
        cloud.size(), [&](std::uint64_t i) { return codeIn(cell, cloud.positions()[i], out.extend()); });
    detail::sortByCode(pairs);
    OctreeConverter::recursiveBuild(cloud, pairs, {0, cloud.size() - 1, key, node_depth(key)}, threshold,
                                    positionsOnly, out);
}

}  // namespace

void OctreeConverter::nestedOctree2FullOctree(Octree& nested, int depth, unsigned int threshold, Octree& full,
                                              bool flag) {
    const unsigned int deepest = depth < 0 ? Octree::MAX_DEPTH : static_cast<unsigned int>(depth);
    PointCloud cloud;
    for (const std::uint64_t key : nested.branch(nested.rootKey(), deepest)) {
        appendNode(cloud, nested, key, flag);
    }
    startOver(full, nested, Octree::FULL);
    full.setScalarFieldMinMax(nested.scalarfieldMin(), nested.scalarfieldMax());
    buildFull(cloud, full.rootKey(), threshold, flag, full);
}

void OctreeConverter::fullOctreeToNestedOctree(Octree& full, Octree& nested) {
    NestedOctreeFactory factory(full.origin(), full.extend());  // the corners may have lost the edge
    std::vector<std::uint64_t> keys = full.keys();              // inner nodes of a full tree hold nothing
    std::sort(keys.begin(), keys.end());
    for (const std::uint64_t key : keys) {
        const std::shared_ptr<PointCloud> cloud = full.node_pc(key);
        if (cloud && cloud->size() > 0) {
            const Vector3f offset = detail::positionOffset(full, full.node(key));
            factory.add(*cloud, full.origin().cast<double>() + offset.cast<double>());
        }
    }
    nested.nodes().clear();
    factory(nested);
    nested.copyBox(full);
}

void OctreeConverter::nestedOctreeNode2PartialFullOctree(Octree& nested, std::uint64_t key, Octree& full,
                                                         unsigned int threshold, Octree& partial, bool flag) {
    PointCloud cloud;
    if (nested.hasKey(key)) {
        appendAncestors(cloud, nested, key, flag);
        for (const std::uint64_t k : nested.branch(key, Octree::MAX_DEPTH)) {
            appendNode(cloud, nested, k, flag);
        }
    }
    startOver(partial, full, full.type());
    float low = 3.4028235e38f;
    float high = -3.4028235e38f;
    for (const float scalar : cloud.scalars()) {
        low = scalar < low ? scalar : low;
        high = scalar > high ? scalar : high;
    }
    partial.setScalarFieldMinMax(low, high);
    buildFull(cloud, key, threshold, flag, partial);
}

void OctreeConverter::mergeFrontNodeWithAncestors(Octree& nested, std::uint64_t frontKey, PointCloud& out,
                                                  bool flag) {
    appendAncestors(out, nested, frontKey, flag);
    if (nested.hasKey(frontKey)) {
        appendNode(out, nested, frontKey, flag);
    }
}

}  // namespace ombrix::core
