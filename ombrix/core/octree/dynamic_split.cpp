#include <algorithm>
#include <utility>

#include <tbb/parallel_for.h>

#include <ombrix/core/octree/cell_key_detail.h>
#include <ombrix/core/octree/dynamic_split_detail.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/node_frame_detail.h>
#include <ombrix/core/octree/octree_factory.h>
#include <ombrix/core/octree/padded_append_detail.h>
#include <ombrix/core/points/append_detail.h>

namespace ombrix::core::detail {
namespace {

using Pair = Arrivals::Pair;

/// From so many points on, a leaf's points are sorted and copied on several threads; below, they are moved
/// from level to level.
constexpr std::size_t SORTED_FROM = 1u << 16;
constexpr std::size_t WATCHED_PORTION = 1u << 18;  // points copied between two looks for a request
constexpr std::ptrdiff_t SHORT_RUN = 64;           // pairs that are counted rather than searched

/// Points of a leaf with their codes inside it, brought into the order of the nodes that they end up in.
class Cutter {
public:
    Cutter(const PointCloud* cloud, double edge, SplitScratch& scratch, Work* work)
        : pairs_(scratch.pairs), moved_(scratch.moved) {
        const std::size_t count = cloud != nullptr ? cloud->size() : 0;
        const auto codeOf = [&](std::uint64_t i) {
            return cellKey(cloud->positions()[i].cast<double>(), edge).key;
        };
        if (count >= SORTED_FROM) {
            sorted_ = true;
            auto pairs = mortonPairs(count, codeOf, work);
            sortByCode(pairs, work);
            pairs_.clear();
            pairs_.reserve(count);
            for (std::size_t first = 0; first < count; first += WATCHED_PORTION) {
                const auto from = pairs.begin() + static_cast<std::ptrdiff_t>(first);
                const std::size_t portion = std::min(WATCHED_PORTION, count - first);
                pairs_.insert(pairs_.end(), from, from + static_cast<std::ptrdiff_t>(portion));
                WorkSteps(work, 1).step(0);
            }
            return;
        }
        pairs_.resize(count);
        for (std::size_t i = 0; i < count; ++i) {
            pairs_[i] = {i, codeOf(i)};
        }
        moved_.resize(count);
    }

    [[nodiscard]] const Pair* pairs() const { return pairs_.data(); }
    [[nodiscard]] std::size_t count() const { return pairs_.size(); }

    /// Puts the points in [first, last) into the order of their octants of a level, 0 for the first below
    /// the leaf.
    /// @return  where each octant's points end.
    std::array<std::size_t, 8> cut(std::size_t first, std::size_t last, unsigned int level) {
        const unsigned int shift = 3 * (MORTON_LEVELS - 1 - level);
        std::array<std::size_t, 8> ends;
        if (sorted_) {
            for (std::uint64_t octant = 0; octant < 8; ++octant) {
                const auto end = std::partition_point(
                    pairs_.begin() + static_cast<std::ptrdiff_t>(first),
                    pairs_.begin() + static_cast<std::ptrdiff_t>(last),
                    [&](const Pair& pair) { return (pair.second >> shift & 7) <= octant; });
                ends[octant] = static_cast<std::size_t>(end - pairs_.begin());
            }
            return ends;
        }
        std::array<std::size_t, 9> next{};
        for (std::size_t i = first; i < last; ++i) {
            ++next[(pairs_[i].second >> shift & 7) + 1];
        }
        next[0] = first;
        for (std::size_t octant = 0; octant < 8; ++octant) {
            next[octant + 1] += next[octant];
            ends[octant] = next[octant + 1];
        }
        for (std::size_t i = first; i < last; ++i) {
            moved_[next[pairs_[i].second >> shift & 7]++] = pairs_[i];
        }
        std::copy(moved_.begin() + static_cast<std::ptrdiff_t>(first),
                  moved_.begin() + static_cast<std::ptrdiff_t>(last),
                  pairs_.begin() + static_cast<std::ptrdiff_t>(first));
        return ends;
    }

private:
    std::vector<Pair>& pairs_;
    std::vector<Pair>& moved_;
    bool sorted_ = false;
};

/// Appends source[i] for the indices i of some pairs, each moved by `shift` in double.
void appendPoints(PointCloud& target, const PointCloud& source, const Pair* pairs, std::size_t count,
                  const Vector3d& shift) {
    adoptFields(target, source);
    const std::size_t before = target.positions().size();
    const auto grow = [&]<class T>(std::vector<T>& values) {
        makeRoom(values, count);
        values.resize(before + count);
        return values.data() + before;
    };
    Vector3f* positions = grow(target.positions());
    for (std::size_t i = 0; i < count; ++i) {
        positions[i] = (source.positions()[pairs[i].first].cast<double>() + shift).cast<float>();
    }
    const auto gather = [&]<class T>(std::vector<T>& to, const std::vector<T>& from) {
        T* values = grow(to);
        for (std::size_t i = 0; i < count && !from.empty(); ++i) {
            values[i] = from[pairs[i].first];
        }
    };
    gather(target.colors(), source.colors());
    gather(target.scalars(), source.scalars());
    if (target.fields().size() != 0) {
        std::vector<std::uint64_t> indices(source.fields().size() != 0 ? count : 0);
        for (std::size_t i = 0; i < indices.size(); ++i) {
            indices[i] = pairs[i].first;
        }
        target.fields().append(source.fields(), indices);
        padAttributes(target);
    }
}

}  // namespace

std::array<const Pair*, 8> octantEnds(const Arrivals& arrivals, unsigned int depth) {
    const unsigned int shift = 3 * (DEEPEST_LEAF - depth);
    std::array<const Pair*, 8> ends;
    const Pair* end = arrivals.first;
    for (std::uint64_t octant = 0; octant < 8; ++octant) {
        const auto inside = [&](const Pair& pair) { return (pair.second >> shift & 7) <= octant; };
        if (arrivals.last - end <= SHORT_RUN) {
            while (end != arrivals.last && inside(*end)) {
                ++end;
            }
        } else {
            end = std::partition_point(end, arrivals.last, inside);
        }
        ends[octant] = end;
    }
    return ends;
}

void append(PointCloud& target, const Arrivals& arrivals, const Vector3d& corner) {
    appendPoints(target, *arrivals.cloud, arrivals.first, arrivals.size(), arrivals.offset - corner);
}

void splitLeaf(const Octree& octree, const SplitLeaf& leaf, std::uint64_t maxPoints, unsigned int levels,
               SplitScratch& scratch, std::vector<SplitNode>& out, Work* work) {
    const unsigned int depth = node_depth(leaf.key);
    const unsigned int deepest = std::min(DEEPEST_LEAF, depth + levels);
    PointCloud padded;
    const PointCloud* own = leaf.cloud != nullptr ? &evenCloud(*leaf.cloud, padded) : nullptr;
    Cutter cutter(own, static_cast<double>(octree.extend()) / static_cast<double>(1u << depth), scratch,
                  work);

    // Cut into nodes, depth first
    struct Part {
        std::size_t node;
        std::size_t first;
        std::size_t last;
        Arrivals arrivals;
        [[nodiscard]] std::size_t size() const { return last - first + arrivals.size(); }
    };
    const std::size_t top = out.size();
    out.push_back({leaf.key, 0, false, nullptr, nullptr});
    std::vector<Part> leaves;
    std::vector<Part> stack{{top, 0, cutter.count(), leaf.arrivals}};
    const bool large = stack.front().size() >= SORTED_FROM;
    while (!stack.empty()) {
        const Part part = stack.back();
        stack.pop_back();
        const std::uint64_t parent = out[part.node].key;
        const unsigned int level = node_depth(parent);
        if (part.node != top && (part.size() <= maxPoints || level >= deepest)) {
            leaves.push_back(part);
            continue;
        }
        out[part.node].cloud = std::make_shared<PointCloud>();
        const auto ends = cutter.cut(part.first, part.last, level - depth);
        const auto arrivalEnds = octantEnds(part.arrivals, level);
        Part child{0, part.first, part.first, part.arrivals};
        child.arrivals.last = part.arrivals.first;
        for (unsigned int octant = 0; octant < 8; ++octant) {
            child.first = std::exchange(child.last, ends[octant]);
            child.arrivals.first = std::exchange(child.arrivals.last, arrivalEnds[octant]);
            if (child.size() != 0) {
                out[part.node].children |= static_cast<std::uint8_t>(1u << octant);
                child.node = out.size();
                stack.push_back(child);
                out.push_back({child_key(parent, octant), 0, false, nullptr, nullptr});
            }
        }
    }

    // Copy the points of each leaf once
    const Vector3d corner = nodeCorner(octree, leaf.key).cast<double>();
    const auto fill = [&](const Part& part) {
        SplitNode& node = out[part.node];
        const Vector3d nodeAt = nodeCorner(octree, node.key).cast<double>();
        node.cloud = std::make_shared<PointCloud>();
        // A leaf that has taken points from several clouds is likely to take more.
        node.cloud->reserve(part.size() * (own != nullptr && leaf.arrivals.size() != 0 ? 2 : 1));
        if (own != nullptr) {
            const std::size_t portion = work != nullptr ? WATCHED_PORTION : cutter.count();
            for (std::size_t first = part.first; first < part.last; first += portion) {
                const std::size_t count = std::min(portion, part.last - first);
                appendPoints(*node.cloud, *own, cutter.pairs() + first, count, corner - nodeAt);
                WorkSteps(work, 1).step(count);
            }
        }
        if (part.arrivals.size() != 0) {
            append(*node.cloud, part.arrivals, nodeAt);
            WorkSteps(work, 1).step(part.arrivals.size());
        }
    };
    if (large) {
        tbb::parallel_for(std::size_t{0}, leaves.size(), [&](std::size_t i) { fill(leaves[i]); });
    } else {
        std::for_each(leaves.begin(), leaves.end(), fill);
    }
}

}  // namespace ombrix::core::detail
