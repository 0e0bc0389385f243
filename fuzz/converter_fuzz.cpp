// Conversions between nested and full trees: no point is lost or invented.

#include <algorithm>
#include <set>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/octree_converter.h>

#include "fuzz/fuzz_support.h"
#include "fuzz/octree_checks.h"

namespace {

using namespace ombrix;
using fuzz::Ids;
using fuzz::idsOf;
using fuzz::require;
using Key = std::uint64_t;

void addIds(Ids& ids, const core::PointCloud& cloud) {
    ids.insert(cloud.scalars().begin(), cloud.scalars().end());
}

/// Over the front and the cells without a child of the nodes above it, every point comes once.
void requireFrontIsWhole(core::Octree& nested, int depth) {
    std::list<Key> back;
    std::list<Key> front;
    nested.back_and_front(depth, back, front);
    Ids merged;
    const auto merge = [&](Key key) {
        core::PointCloud out;
        core::OctreeConverter::mergeFrontNodeWithAncestors(nested, key, out, false);
        addIds(merged, out);
    };
    std::ranges::for_each(front, merge);
    for (const Key key : back) {
        for (unsigned int octant = 0; octant < 8; ++octant) {
            if (!nested.hasKey(core::child_key(key, octant))) {
                merge(core::child_key(key, octant));
            }
        }
    }
    Ids expected;
    for (const Key key : nested.branch(1, depth < 0 ? 21 : static_cast<unsigned int>(depth))) {
        addIds(expected, *nested.node_pc(key));
    }
    require(merged == expected, "a front holds every point once");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::quietSingleThread();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);

    // A tree as files give it: any points in any node, with the ancestors that lead there
    core::Octree nested;
    const core::Vector3f origin = input.vector();
    nested.setOriginTop(origin, origin + core::Vector3f::Constant(input.number()));
    std::uint64_t count = 0;
    std::vector<Key> keys{1};
    for (unsigned int n = input.below(12); n > 0 && !input.empty(); --n) {
        Key key = keys[input.below(static_cast<unsigned int>(keys.size()))];
        for (unsigned int levels = input.below(8); levels > 0 && core::node_depth(key) < 21; --levels) {
            const unsigned int octant = input.below(8);
            nested.add_node(key).children |= static_cast<std::uint8_t>(1u << octant);
            key = core::child_key(key, octant);
            keys.push_back(key);
        }
        keys.resize(std::min<std::size_t>(keys.size(), 200));
        core::Octree::Node& node = nested.add_node(key);
        core::PointCloud cloud = fuzz::cloudOf(input, 12, count);
        count += cloud.size();
        if (node.pc) {
            node.pc->push_back(cloud, true);  // leaves fields short, as callers do
            node.pc->colors().resize(node.pc->size());
        } else {
            node.pc = std::make_shared<core::PointCloud>(cloud);
            node.flags = input.below(4) == 0 ? 8 : 0;
        }
    }
    for (const Key key : keys) {
        core::Octree::Node& node = nested.add_node(key);
        node.pc = node.pc ? node.pc : std::make_shared<core::PointCloud>();
    }
    const Ids all = idsOf(nested);
    require(all.size() == count, "the input tree holds all points");

    const unsigned int threshold = input.below(6);
    const bool positionsOnly = input.flag();
    const int depth = static_cast<int>(input.below(24)) - 1;
    requireFrontIsWhole(nested, depth);

    core::Octree full;
    core::OctreeConverter::nestedOctree2FullOctree(nested, depth, threshold, full, positionsOnly);
    require(full.size() == nested.size(depth < 0 ? 21 : static_cast<unsigned int>(depth)), "counts agree");
    fuzz::requireFullTree(full, threshold, 1);
    core::OctreeConverter::nestedOctree2FullOctree(nested, -1, threshold, full, positionsOnly);
    require(idsOf(full) == all, "nested to full keeps the points");
    fuzz::requireFullTree(full, threshold, 1);
    fuzz::requireEven(full);

    core::Octree back;
    core::OctreeConverter::fullOctreeToNestedOctree(full, back);
    require(idsOf(back) == all, "full to nested keeps the points");
    fuzz::requireMasks(back, 1);
    fuzz::requireEven(back);

    // One cell's part of the full tree, put in its place
    const Key key = keys[input.below(static_cast<unsigned int>(keys.size()))];
    core::Octree partial;
    core::OctreeConverter::nestedOctreeNode2PartialFullOctree(nested, key, full, threshold, partial,
                                                              positionsOnly);
    if (partial.keyCount() > 0) {
        fuzz::requireFullTree(partial, threshold, key);
    }
    core::OctreeConverter::updateFullOctree(partial, key, full);
    fuzz::requireMasks(full, 1);
    Ids inCell;
    core::PointCloud out;
    full.extractPointCloud(key, 21, out);
    addIds(inCell, out);
    require(inCell == idsOf(partial), "the cell holds the part");
    const Ids updated = idsOf(full);
    const std::uint64_t nodes = full.keyCount();
    core::OctreeConverter::updateFullOctree(partial, key, full);
    require(idsOf(full) == updated && full.keyCount() == nodes, "a second time changes nothing");
    return 0;
}
