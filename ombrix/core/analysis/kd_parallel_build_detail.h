#pragma once

#include <algorithm>
#include <cstddef>

#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_invoke.h>
#include <tbb/task_arena.h>
#include <nanoflann.hpp>

namespace ombrix::core::detail {

#if NANOFLANN_VERSION >= 0x150

/// These versions have other names inside, and are built on one thread.
template <class Tree>
class KdParallelBuild : public Tree {
public:
    using Tree::Tree;
};

#else

/// A nanoflann index whose branches are built by tasks. The tree is the one that `buildIndex` of nanoflann
/// makes, whatever the number of threads.
template <class Tree>
class KdParallelBuild : public Tree {
public:
    using Tree::Tree;

    /// Rebuilds the index over the present content of the dataset. Where it throws, there is none.
    void buildIndex() {
        this->m_size = this->m_size_at_index_build = 0;
        this->freeIndex(*this);
        pools_.clear();
        const std::size_t count = this->dataset.kdtree_get_point_count();
        this->vAcc.resize(count);
        for (std::size_t i = 0; i < count; ++i) {
            this->vAcc[i] = i;
        }
        if (count == 0) {
            return;
        }
        this->m_size = this->m_size_at_index_build = count;
        this->computeBoundingBox(this->root_bbox);
        // A caller may hold a lock, or be a task itself: waiting must not run what is not of this tree.
        tbb::this_task_arena::isolate(
            [&] { this->root_node = divide(0, count, this->root_bbox, LEVELS_OF_TASKS); });
    }

private:
    using Node = typename Tree::Node;
    using Box = typename Tree::BoundingBox;

    // Some points make trees of hundreds of levels, and waiting for a task takes much more stack than a call.
    static constexpr int LEVELS_OF_TASKS = 20;

    /// Makes the branch over a range of `vAcc`, and its box of the points in it out of one around them.
    Node* divide(std::size_t first, std::size_t last, Box& box, int levels) {
        constexpr std::size_t FOR_ONE_TASK = std::size_t{1} << 14;
        nanoflann::PooledAllocator& nodes = pools_.local();
        if (levels == 0 || last - first <= FOR_ONE_TASK) {
            return divide(first, last, box, nodes);
        }
        Node* node = nodes.template allocate<Node>();
        split(*node, first, last, box, [&](std::size_t middle, Box& left, Box& right) {
            tbb::parallel_invoke([&] { node->child1 = divide(first, middle, left, levels - 1); },
                                 [&] { node->child2 = divide(middle, last, right, levels - 1); });
        });
        return node;
    }

    Node* divide(std::size_t first, std::size_t last, Box& box, nanoflann::PooledAllocator& nodes) {
        Node* node = nodes.template allocate<Node>();
        if (last - first <= this->m_leaf_max_size) {
            node->child1 = node->child2 = nullptr;
            node->node_type.lr.left = first;
            node->node_type.lr.right = last;
            for (int axis = 0; axis < 3; ++axis) {
                this->computeMinMax(*this, first, last - first, axis, box[axis].low, box[axis].high);
            }
            return node;
        }
        split(*node, first, last, box, [&](std::size_t middle, Box& left, Box& right) {
            node->child1 = divide(first, middle, left, nodes);
            node->child2 = divide(middle, last, right, nodes);
        });
        return node;
    }

    template <class Branches>
    void split(Node& node, std::size_t first, std::size_t last, Box& box, const Branches& branches) {
        typename Tree::Offset count = 0;
        typename Tree::Dimension axis = 0;
        typename Tree::DistanceType at = 0;
        this->middleSplit_(*this, first, last - first, count, axis, at, box);
        Box left = box;
        Box right = box;
        left[axis].high = right[axis].low = at;
        branches(first + count, left, right);
        node.node_type.sub.divfeat = axis;
        node.node_type.sub.divlow = left[axis].high;
        node.node_type.sub.divhigh = right[axis].low;
        for (int i = 0; i < 3; ++i) {
            box[i].low = std::min(left[i].low, right[i].low);
            box[i].high = std::max(left[i].high, right[i].high);
        }
    }

    tbb::enumerable_thread_specific<nanoflann::PooledAllocator> pools_;
};

#endif

}  // namespace ombrix::core::detail
