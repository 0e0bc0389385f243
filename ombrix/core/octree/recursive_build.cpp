#include <deque>
#include <memory>
#include <vector>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_group.h>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/octree_converter.h>

namespace ombrix::core {
namespace {

using NodeChunk = OctreeConverter::NodeChunk;
using Pair = OctreeConverter::Pair;
using PairVector = OctreeConverter::PairVector;

constexpr std::uint64_t MAX_PREFETCH = 256;  // points, more would not stay in the caches

/// A node to be made: an inner node's mask, or the run of pairs whose points a leaf receives.
struct NodePlan {
    std::uint64_t key;
    std::uint64_t first;
    std::uint64_t last;
    std::shared_ptr<PointCloud> cloud;
    std::uint8_t children;  ///< 0 for a leaf
};

/// Position of the last pair in [first, last] whose code has the masked bits of pair `first`.
template <class Pairs>
std::uint64_t endOfRun(const Pairs& pairs, std::uint64_t first, std::uint64_t last, std::uint64_t mask) {
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

/// Cuts the run into nodes, depth first.
template <class Pairs>
std::vector<NodePlan> cut(const Pairs& pairs, const NodeChunk& chunk, unsigned int threshold) {
    std::vector<NodePlan> plans;
    std::deque<NodeChunk> stack{chunk};
    while (!stack.empty()) {
        const NodeChunk c = stack.back();
        stack.pop_back();
        if (c.last - c.first + 1 <= threshold || c.depth >= Octree::MAX_DEPTH) {
            plans.push_back({c.key, c.first, c.last, nullptr, 0});
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
        plans.push_back({c.key, c.first, c.last, nullptr, children});
    }
    return plans;
}

/// Has the memory of a leaf's points fetched while another leaf is being filled: they lie anywhere.
template <class Pairs>
void prefetch(const NodePlan& plan, const PointCloud& cloud, const Pairs& pairs) {
    if (plan.children != 0 || plan.last - plan.first > MAX_PREFETCH) {
        return;
    }
    for (std::uint64_t p = plan.first; p <= plan.last; ++p) {
        const std::uint64_t index = pairs[p].first;
        __builtin_prefetch(cloud.positions().data() + index);
        __builtin_prefetch(cloud.colors().data() + index);
        __builtin_prefetch(cloud.scalars().data() + index);
    }
}

/// Makes the clouds of all planned nodes, each by one task.
template <class Pairs>
void makeClouds(std::vector<NodePlan>& plans, const PointCloud& cloud, const Pairs& pairs,
                bool positionsOnly) {
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, plans.size()),
                      [&](const tbb::blocked_range<std::size_t>& range) {
                          std::vector<std::uint64_t> indices;
                          for (std::size_t i = range.begin(); i != range.end(); ++i) {
                              if (i + 1 != range.end()) {
                                  prefetch(plans[i + 1], cloud, pairs);
                              }
                              NodePlan& plan = plans[i];
                              plan.cloud = std::make_shared<PointCloud>();
                              if (plan.children != 0) {
                                  continue;
                              }
                              indices.clear();
                              for (std::uint64_t p = plan.first; p <= plan.last; ++p) {
                                  indices.push_back(pairs[p].first);
                              }
                              plan.cloud->push_back(cloud, indices, positionsOnly);
                          }
                      });
}

/// Writes key, mask and size of the planned nodes; the result stands in the order of the plans.
std::vector<Octree::Node*> writeNodes(const std::vector<NodePlan>& plans, Octree& out) {
    std::vector<Octree::Node*> nodes;
    nodes.reserve(plans.size());
    out.nodes().reserve(out.keyCount() + plans.size());
    for (const NodePlan& plan : plans) {
        Octree::Node& node = out.nodes()[plan.key];
        node.key = plan.key;
        node.children = plan.children;
        node.size = 1;
        nodes.push_back(&node);
    }
    return nodes;
}

template <class Pairs>
void build(const PointCloud& cloud, const Pairs& pairs, const NodeChunk& chunk, unsigned int threshold,
           bool positionsOnly, Octree& out) {
    std::vector<NodePlan> plans = cut(pairs, chunk, threshold);

    // The clouds are made while this thread, the only one that touches the tree, writes the nodes.
    tbb::task_group clouds;
    clouds.run([&] { makeClouds(plans, cloud, pairs, positionsOnly); });
    std::vector<Octree::Node*> nodes;
    try {
        nodes = writeNodes(plans, out);
    } catch (...) {
        clouds.cancel();
        clouds.wait();
        throw;
    }
    clouds.wait();

    for (std::size_t i = 0; i < plans.size(); ++i) {
        if (!nodes[i]->pc) {
            nodes[i]->pc = std::move(plans[i].cloud);
        } else {
            nodes[i]->pc->push_back(*plans[i].cloud, positionsOnly);
        }
    }
}

}  // namespace

void OctreeConverter::recursiveBuild(const PointCloud& cloud, const PairVector& pairs, const NodeChunk& chunk,
                                     unsigned int threshold, bool flag, Octree& out) {
    if (chunk.last < chunk.first || chunk.last >= pairs.size()) {
        return;
    }
    if (const Pair* contiguous = detail::contiguousPairs(pairs)) {
        build(cloud, contiguous, chunk, threshold, flag, out);
    } else {
        build(cloud, pairs, chunk, threshold, flag, out);
    }
}

}  // namespace ombrix::core
