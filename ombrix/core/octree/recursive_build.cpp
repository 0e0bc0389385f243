#include <algorithm>
#include <atomic>
#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>
#include <tbb/task_group.h>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/octree_converter.h>
#include <ombrix/core/octree/prefetch_detail.h>
#include <ombrix/core/octree/recursive_build_detail.h>
#include <ombrix/core/points/append_detail.h>

namespace ombrix::core {
namespace {

using NodeChunk = OctreeConverter::NodeChunk;
using Pair = OctreeConverter::Pair;
using PairVector = OctreeConverter::PairVector;
using detail::PairContent;

constexpr std::size_t LEAVES_PER_TASK = 512;
constexpr std::uint64_t LARGE_LEAF = 1u << 18;  // points that are copied in portions while somebody watches
constexpr std::uint64_t MAX_PREFETCH = 256;     // points, more would not stay in the caches

// Nodes that a tree over a surface has for each `threshold` points: what the map is prepared for.
constexpr std::uint64_t NODES_PER_FULL_LEAF = 5;

/// A leaf and the run of pairs whose points it receives.
struct LeafRun {
    Octree::Node* leaf;
    std::uint64_t first;
    std::uint64_t last;
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

/// Copies points into leaves. Their clouds are made by the tasks, the tree itself is left to the caller.
template <class Pairs>
class LeafFiller {
public:
    LeafFiller(const PointCloud& cloud, const Pairs& pairs, PairContent content, bool positionsOnly,
               detail::Work* work)
        : cloud_(cloud),
          pairs_(pairs),
          withScalars_(content == PairContent::INDEX_AND_SCALAR),
          positionsOnly_(positionsOnly),
          work_(work) {}

    /// Appends the points of a run to its leaf, on some thread before `wait` returns. A leaf that has a cloud
    /// is filled at once: others may hold it, too.
    void add(const LeafRun& run) {
        if (run.leaf->pc) {
            std::vector<std::uint64_t> indices;
            fill(run, indices);
            return;
        }
        batch_.push_back(run);
        if (batch_.size() == LEAVES_PER_TASK) {
            handOver();
        }
    }

    void wait() {
        handOver();
        tasks_.wait();
    }

    /// Waits as well; leaves of a watched build lose their clouds again.
    void cancel() {
        tasks_.cancel();
        tasks_.wait();
        if (work_ != nullptr) {
            freeClouds();
        }
    }

private:
    struct Batch {
        std::vector<LeafRun> runs;
        int thread = -1;  ///< slot of the one that made the clouds; -1: none did yet
        std::atomic<bool> freed = false;
    };

    void handOver() {
        Batch& batch = batches_.emplace_back();
        batch.runs = std::exchange(batch_, {});
        tasks_.run([this, &batch] {
            const std::vector<LeafRun>& runs = batch.runs;
            batch.thread = tbb::this_task_arena::current_thread_index();
            std::vector<std::uint64_t> indices;
            for (std::size_t i = 0; i < runs.size(); ++i) {
                if (i + 1 < runs.size()) {
                    prefetch(runs[i + 1]);
                }
                runs[i].leaf->pc = std::make_shared<PointCloud>();
                fill(runs[i], indices);
            }
        });
    }

    /// Frees the clouds in a quarter of the time that it takes to remove the leaves one by one: each thread
    /// those that it made, in that order, while the memory of the next ones is fetched.
    void freeClouds() {
        tbb::parallel_for(
            0, tbb::this_task_arena::max_concurrency(),
            [&](int) {
                const int thread = tbb::this_task_arena::current_thread_index();
                for (const bool own : {true, false}) {
                    for (Batch& batch : batches_) {
                        if ((batch.thread == thread || !own) && !batch.freed.exchange(true)) {
                            freeClouds(batch.runs);
                        }
                    }
                }
            },
            tbb::simple_partitioner());
    }

    static void freeClouds(const std::vector<LeafRun>& runs) {
        // Leaves between the steps, each of which fetches what the one before has led to
        constexpr std::size_t STAGE = 8;
        const auto at = [&](std::size_t i, const auto& step) {
            if (i < runs.size()) {
                step(runs[i].leaf->pc);
            }
        };
        for (std::size_t i = 0; i < runs.size() + 3 * STAGE; ++i) {
            at(i, [](const auto& cloud) { __builtin_prefetch(&cloud); });
            at(i - STAGE, [](const auto& cloud) { detail::prefetchCloud(cloud.get()); });
            at(i - 2 * STAGE, [](const auto& cloud) { detail::prefetchArrays(cloud.get()); });
            at(i - 3 * STAGE, [](auto& cloud) { cloud.reset(); });
        }
    }

    void fill(const LeafRun& run, std::vector<std::uint64_t>& indices) const {
        const std::uint64_t portion = work_ == nullptr ? run.last - run.first + 1 : LARGE_LEAF;
        for (std::uint64_t p = run.first; p <= run.last;) {
            const std::uint64_t end = std::min(run.last + 1, p + portion);
            const std::uint64_t count = end - p;
            indices.resize(count);
            for (std::uint64_t i = 0; i < count; ++i) {
                indices[i] = index(p + i);
            }
            run.leaf->pc->push_back(cloud_, indices, positionsOnly_);
            if (withScalars_) {
                std::vector<float>& scalars = run.leaf->pc->scalars();
                detail::makeRoom(scalars, count);
                for (std::uint64_t i = 0; i < count; ++i) {
                    scalars.push_back(detail::scalarOf(pairs_[p + i].first));
                }
            }
            detail::WorkSteps(work_, 1).step(count);
            p = end;
        }
    }

    [[nodiscard]] std::uint64_t index(std::uint64_t p) const {
        const std::uint64_t first = pairs_[p].first;
        return withScalars_ ? static_cast<std::uint32_t>(first) : first;
    }

    /// Has the memory of a leaf's points fetched while another leaf is being filled: they lie anywhere.
    void prefetch(const LeafRun& run) const {
        if (run.last - run.first > MAX_PREFETCH) {
            return;
        }
        for (std::uint64_t p = run.first; p <= run.last; ++p) {
            detail::prefetchPoint(cloud_, index(p));
        }
    }

    const PointCloud& cloud_;
    const Pairs& pairs_;
    const bool withScalars_;
    const bool positionsOnly_;
    detail::Work* const work_;
    std::vector<LeafRun> batch_;
    std::deque<Batch> batches_;
    tbb::task_group tasks_;
};

Octree::Node& writeNode(Octree& out, std::uint64_t key, std::uint8_t children) {
    Octree::Node& node = out.nodes()[key];
    node.key = key;
    node.children = children;
    node.size = 1;
    return node;
}

/// Cuts the run into nodes, depth first, and hands each leaf on to be filled.
template <class Pairs>
void cut(const Pairs& pairs, const NodeChunk& chunk, unsigned int threshold, Octree& out,
         LeafFiller<Pairs>& leaves, detail::Work* work) {
    std::deque<NodeChunk> stack{chunk};
    while (!stack.empty()) {
        if (work != nullptr) {
            work->check();
        }
        const NodeChunk c = stack.back();
        stack.pop_back();
        if (c.last - c.first + 1 <= threshold || c.depth >= Octree::MAX_DEPTH) {
            leaves.add({&writeNode(out, c.key, 0), c.first, c.last});
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
        Octree::Node& inner = writeNode(out, c.key, children);
        if (!inner.pc) {
            inner.pc = std::make_shared<PointCloud>();
        }
    }
}

template <class Pairs>
void build(const PointCloud& cloud, const Pairs& pairs, const NodeChunk& chunk, unsigned int threshold,
           bool positionsOnly, Octree& out, detail::Work* work, PairContent content) {
    LeafFiller<Pairs> leaves(cloud, pairs, content, positionsOnly, work);
    const std::uint64_t count = chunk.last - chunk.first + 1;
    out.nodes().reserve(out.keyCount() +
                        std::min(count, NODES_PER_FULL_LEAF * (count / (std::uint64_t{threshold} + 1))));
    try {
        cut(pairs, chunk, threshold, out, leaves, work);
        leaves.wait();
    } catch (...) {
        leaves.cancel();
        throw;
    }
}

}  // namespace

void detail::recursiveBuild(const PointCloud& cloud, const PairVector& pairs, const NodeChunk& chunk,
                            unsigned int threshold, bool positionsOnly, Octree& out, Work* work,
                            PairContent content) {
    if (chunk.last < chunk.first || chunk.last >= pairs.size()) {
        return;
    }
    if (const Pair* contiguous = detail::contiguousPairs(pairs)) {
        build(cloud, contiguous, chunk, threshold, positionsOnly, out, work, content);
    } else {
        build(cloud, pairs, chunk, threshold, positionsOnly, out, work, content);
    }
}

void OctreeConverter::recursiveBuild(const PointCloud& cloud, const PairVector& pairs, const NodeChunk& chunk,
                                     unsigned int threshold, bool flag, Octree& out) {
    detail::recursiveBuild(cloud, pairs, chunk, threshold, flag, out, nullptr, detail::PairContent::INDEX);
}

}  // namespace ombrix::core
