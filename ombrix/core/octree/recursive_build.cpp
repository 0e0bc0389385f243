#include <algorithm>
#include <deque>
#include <memory>
#include <vector>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/octree_converter.h>

namespace ombrix::core {
namespace {

using NodeChunk = OctreeConverter::NodeChunk;
using PairVector = OctreeConverter::PairVector;

/// A leaf's cloud and the run of pairs whose points it receives.
struct LeafRun {
    PointCloud* cloud;
    std::uint64_t first;
    std::uint64_t last;
    bool shared;  ///< the cloud was there before, so that somebody else may hold it, too
};

void fill(const LeafRun& leaf, const PointCloud& cloud, const PairVector& pairs, bool positionsOnly,
          std::vector<std::uint64_t>& indices) {
    indices.clear();
    for (std::uint64_t p = leaf.first; p <= leaf.last; ++p) {
        indices.push_back(pairs[p].first);
    }
    leaf.cloud->push_back(cloud, indices, positionsOnly);
}

Octree::Node& writeNode(Octree& out, std::uint64_t key, std::uint8_t children) {
    Octree::Node& node = out.nodes()[key];
    node.key = key;
    node.children = children;
    node.size = 1;
    return node;
}

/// Gives the node a cloud if it has none; true when it had one.
bool ensureCloud(Octree::Node& node) {
    if (node.pc) {
        return true;
    }
    node.pc = std::make_shared<PointCloud>();
    return false;
}

/// Position of the last pair in [first, last] whose code has the masked bits of pair `first`.
std::uint64_t endOfRun(const PairVector& pairs, std::uint64_t first, std::uint64_t last, std::uint64_t mask) {
    const std::uint64_t bits = pairs[first].second & mask;
    while (first < last) {
        const std::uint64_t middle = last - (last - first) / 2;
        if ((pairs[middle].second & mask) == bits) {
            first = middle;
        } else {
            last = middle - 1;
        }
    }
    return first;
}

/// Cuts the run into nodes, depth first; the leaves' points are left to be copied.
std::vector<LeafRun> cut(const PairVector& pairs, const NodeChunk& chunk, unsigned int threshold,
                         Octree& out) {
    std::vector<LeafRun> leaves;
    std::deque<NodeChunk> stack{chunk};
    while (!stack.empty()) {
        const NodeChunk c = stack.back();
        stack.pop_back();
        if (c.last - c.first + 1 <= threshold || c.depth >= Octree::MAX_DEPTH) {
            Octree::Node& leaf = writeNode(out, c.key, 0);
            const bool shared = ensureCloud(leaf);
            leaves.push_back({leaf.pc.get(), c.first, c.last, shared});
            continue;
        }
        const std::uint64_t mask = OctreeConverter::MASK_EQUAL >> (3 * c.depth);
        std::uint8_t children = 0;
        for (std::uint64_t first = c.first; first <= c.last;) {
            const std::uint64_t last = endOfRun(pairs, first, c.last, mask);
            const auto octant =
                static_cast<unsigned int>((pairs[first].second & mask) >> (3 * (20 - c.depth)));
            children |= static_cast<std::uint8_t>(1u << octant);
            stack.push_back({first, last, child_key(c.key, octant), c.depth + 1});
            first = last + 1;
        }
        ensureCloud(writeNode(out, c.key, children));
    }
    return leaves;
}

}  // namespace

void OctreeConverter::recursiveBuild(const PointCloud& cloud, const PairVector& pairs, const NodeChunk& chunk,
                                     unsigned int threshold, bool flag, Octree& out) {
    if (chunk.last < chunk.first || chunk.last >= pairs.size()) {
        return;
    }
    const std::vector<LeafRun> leaves = cut(pairs, chunk, threshold, out);
    std::vector<std::uint64_t> sharedIndices;
    for (const LeafRun& leaf : leaves) {
        if (leaf.shared) {
            fill(leaf, cloud, pairs, flag, sharedIndices);
        }
    }
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, leaves.size()),
                      [&](const tbb::blocked_range<std::size_t>& range) {
                          std::vector<std::uint64_t> indices;
                          for (std::size_t i = range.begin(); i != range.end(); ++i) {
                              if (!leaves[i].shared) {
                                  fill(leaves[i], cloud, pairs, flag, indices);
                              }
                          }
                      });
}

}  // namespace ombrix::core
