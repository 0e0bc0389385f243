#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>

#include <tbb/blocked_range.h>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_invoke.h>
#include <tbb/task_arena.h>
#include <nanoflann.hpp>

#include <ombrix/core/analysis/kd_split_detail.h>
#include <ombrix/core/raw_array_detail.h>

namespace ombrix::core::detail {

#if NANOFLANN_VERSION >= 0x150

/// These versions have other names inside, and are built on one thread.
template <class Tree>
class KdParallelBuild : public Tree {
public:
    using Tree::Tree;
};

#else

/// A nanoflann index whose branches are built by tasks, over a copy of the points that lives as long as the
/// building does. The tree is the one that `buildIndex` of nanoflann makes, whatever the number of threads;
/// only where the sum of two coordinates overflows, nanoflann's would have a level for every point.
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
        if (count == 0) {
            return;
        }
        // A caller may hold a lock, or be a task itself: waiting must not run what is not of this tree.
        tbb::this_task_arena::isolate([&] {
            if (count <= std::numeric_limits<std::uint32_t>::max()) {
                this->root_node = Builder<std::uint32_t>(*this, count).root();
            } else {
                this->root_node = Builder<std::uint64_t>(*this, count).root();
            }
        });
        this->m_size = this->m_size_at_index_build = count;
    }

private:
    using Node = typename Tree::Node;
    using Box = typename Tree::BoundingBox;

    template <class Index>
    class Builder {
    public:
        Builder(KdParallelBuild& tree, std::size_t count)
            : tree_(tree), copy_(count), entries_(copy_.data()) {
            tbb::parallel_for(tbb::blocked_range<std::size_t>(0, count, FOR_ONE_TASK), [&](const auto& some) {
                for (std::size_t i = some.begin(); i < some.end(); ++i) {
                    entries_[i] = {{tree_.dataset.kdtree_get_pt(i, 0), tree_.dataset.kdtree_get_pt(i, 1),
                                    tree_.dataset.kdtree_get_pt(i, 2)},
                                   static_cast<Index>(i)};
                }
            });
        }

        Node* root() {
            boxOf(0, copy_.size(), tree_.root_bbox);
            return divide(0, copy_.size(), tree_.root_bbox, LEVELS_OF_TASKS);
        }

    private:
        static constexpr std::size_t FOR_ONE_TASK = std::size_t{1} << 14;
        // Some points make trees of hundreds of levels, and waiting for a task takes much more stack than a
        // call.
        static constexpr int LEVELS_OF_TASKS = 20;

        void check() const { tree_.dataset.watch.check(); }

        [[nodiscard]] Interval interval(std::size_t first, std::size_t last, std::size_t axis) const {
            return intervalOf(entries_ + first, entries_ + last, axis, [this] { check(); });
        }

        void boxOf(std::size_t first, std::size_t last, Box& box) const {
            for (std::size_t axis = 0; axis < 3; ++axis) {
                const Interval found = interval(first, last, axis);
                box[axis] = {found.low, found.high};
            }
        }

        /// Makes the branch over a range of entries, and its box of the points in it out of one around them.
        Node* divide(std::size_t first, std::size_t last, Box& box, int levels) {
            nanoflann::PooledAllocator& nodes = tree_.pools_.local();
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
            if (last - first <= tree_.m_leaf_max_size) {
                node->child1 = node->child2 = nullptr;
                node->node_type.lr.left = first;
                node->node_type.lr.right = last;
                for (std::size_t i = first; i < last; ++i) {
                    tree_.vAcc[i] = entries_[i].index;
                }
                boxOf(first, last, box);
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
            const auto [axis, at] = planeThrough(first, last, box);
            const std::size_t middle = splitAt(first, last, axis, at);
            Box left = box;
            Box right = box;
            left[axis].high = right[axis].low = at;
            branches(middle, left, right);
            node.node_type.sub.divfeat = static_cast<int>(axis);
            node.node_type.sub.divlow = left[axis].high;
            node.node_type.sub.divhigh = right[axis].low;
            for (std::size_t i = 0; i < 3; ++i) {
                box[i].low = std::min(left[i].low, right[i].low);
                box[i].high = std::max(left[i].high, right[i].high);
            }
        }

        /// The middle of the box, or the nearest place that parts the points, on the axis along which they
        /// spread the most of those along which the box is longest.
        [[gnu::noinline]] std::pair<std::size_t, float> planeThrough(std::size_t first, std::size_t last,
                                                                     const Box& box) const {
            float longest = box[0].high - box[0].low;
            for (std::size_t axis = 1; axis < 3; ++axis) {
                longest = std::max(longest, box[axis].high - box[axis].low);
            }
            std::size_t chosen = 0;
            Interval points{};
            float spread = -1.0f;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                if (box[axis].high - box[axis].low > (1 - 0.00001f) * longest) {
                    const Interval found = interval(first, last, axis);
                    if (found.high - found.low > spread) {
                        chosen = axis;
                        points = found;
                        spread = found.high - found.low;
                    }
                }
            }
            if (spread < 0.0f) {
                points = interval(first, last, chosen);  // the box is a point, or its length overflows
            }
            float middle = (box[chosen].low + box[chosen].high) / 2;
            if (!std::isfinite(middle)) {
                middle = box[chosen].low / 2 + box[chosen].high / 2;
            }
            return {chosen, middle < points.low ? points.low : middle > points.high ? points.high : middle};
        }

        /// Parts the entries at a plane; those on it go where they bring the branches nearest to halves. Not
        /// inlined: what it keeps on the stack would be kept on every level.
        [[gnu::noinline]] std::size_t splitAt(std::size_t first, std::size_t last, std::size_t axis,
                                              float at) {
            Entry* const begin = entries_ + first;
            Entry* const end = entries_ + last;
            const auto checked = [this] { check(); };
            bool touched = false;
            const auto below = [&touched, at](float coordinate) {
                touched |= coordinate == at;
                return coordinate < at;
            };
            Entry* const lower = splitEntries(begin, end, axis, below, checked);
            Entry* upper = lower;
            if (touched) {
                const auto notAbove = [at](float coordinate) { return coordinate <= at; };
                upper = splitEntries(lower, end, axis, notAbove, checked);
            }
            Entry* const half = begin + (last - first) / 2;
            return static_cast<std::size_t>(std::clamp(half, lower, upper) - entries_);
        }

        using Entry = KdEntry<Index>;
        KdParallelBuild& tree_;
        RawArray<Entry> copy_;
        Entry* entries_;
    };

    tbb::enumerable_thread_specific<nanoflann::PooledAllocator> pools_;
};

#endif

}  // namespace ombrix::core::detail
