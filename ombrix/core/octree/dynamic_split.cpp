#include <algorithm>
#include <array>

#include <tbb/parallel_for.h>

#include <ombrix/core/octree/dynamic_split_detail.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/node_frame_detail.h>
#include <ombrix/core/octree/octree_factory.h>
#include <ombrix/core/octree/padded_append_detail.h>
#include <ombrix/core/points/append_detail.h>

namespace ombrix::core::detail {
namespace {

/// From so many points on, a leaf's points are sorted on several threads; below, they are moved from level
/// to level.
constexpr std::size_t SORTED_FROM = 1u << 16;

/// Points of a leaf with their codes inside it, brought into the order of the nodes that they end up in.
class Cutter {
public:
    Cutter(const PointCloud& cloud, double edge) : indices_(cloud.size()), codes_(cloud.size()) {
        const auto codeOf = [&](std::uint64_t i) {
            return OctreeFactory::morton_keyd(cloud.positions()[i].cast<double>(), edge).key;
        };
        if (cloud.size() >= SORTED_FROM) {
            sorted_ = true;
            auto pairs = mortonPairs(cloud.size(), codeOf);
            sortByCode(pairs);
            for (std::size_t i = 0; i < pairs.size(); ++i) {
                indices_[i] = pairs[i].first;
                codes_[i] = pairs[i].second;
            }
            return;
        }
        for (std::size_t i = 0; i < cloud.size(); ++i) {
            indices_[i] = i;
            codes_[i] = codeOf(i);
        }
        movedIndices_.resize(cloud.size());
        movedCodes_.resize(cloud.size());
    }

    [[nodiscard]] const std::uint64_t* indices() const { return indices_.data(); }

    /// Puts the points in [first, last) into the order of their octants of a level, 0 for the first below
    /// the leaf.
    /// @return  where each octant's points end.
    std::array<std::size_t, 8> cut(std::size_t first, std::size_t last, unsigned int level) {
        const unsigned int shift = 3 * (MORTON_LEVELS - 1 - level);
        std::array<std::size_t, 8> ends;
        if (sorted_) {
            for (std::uint64_t octant = 0; octant < 8; ++octant) {
                const auto end =
                    std::partition_point(codes_.begin() + static_cast<std::ptrdiff_t>(first),
                                         codes_.begin() + static_cast<std::ptrdiff_t>(last),
                                         [&](std::uint64_t code) { return (code >> shift & 7) <= octant; });
                ends[octant] = static_cast<std::size_t>(end - codes_.begin());
            }
            return ends;
        }
        std::array<std::size_t, 9> next{};
        for (std::size_t i = first; i < last; ++i) {
            ++next[(codes_[i] >> shift & 7) + 1];
        }
        next[0] = first;
        for (std::size_t octant = 0; octant < 8; ++octant) {
            next[octant + 1] += next[octant];
            ends[octant] = next[octant + 1];
        }
        for (std::size_t i = first; i < last; ++i) {
            const std::size_t to = next[codes_[i] >> shift & 7]++;
            movedIndices_[to] = indices_[i];
            movedCodes_[to] = codes_[i];
        }
        const auto moveBack = [&](const std::vector<std::uint64_t>& from, std::vector<std::uint64_t>& to) {
            std::copy(from.begin() + static_cast<std::ptrdiff_t>(first),
                      from.begin() + static_cast<std::ptrdiff_t>(last),
                      to.begin() + static_cast<std::ptrdiff_t>(first));
        };
        moveBack(movedIndices_, indices_);
        moveBack(movedCodes_, codes_);
        return ends;
    }

private:
    std::vector<std::uint64_t> indices_;
    std::vector<std::uint64_t> codes_;
    std::vector<std::uint64_t> movedIndices_;
    std::vector<std::uint64_t> movedCodes_;
    bool sorted_ = false;
};

}  // namespace

void appendPoints(PointCloud& target, const PointCloud& source, const std::uint64_t* indices,
                  std::size_t count, const Vector3d& shift) {
    adoptFields(target, source);
    makeRoom(target.positions(), count);
    for (std::size_t i = 0; i < count; ++i) {
        target.positions().push_back((source.positions()[indices[i]].cast<double>() + shift).cast<float>());
    }
    const auto append = [&]<class T>(std::vector<T>& to, const std::vector<T>& from) {
        if (!from.empty()) {
            makeRoom(to, count);
            const GatherIterator<T> first(from.data(), indices);
            to.insert(to.end(), first, first + static_cast<std::ptrdiff_t>(count));
        }
    };
    append(target.colors(), source.colors());
    append(target.scalars(), source.scalars());
    if (source.fields().size() != 0) {
        target.fields().append(source.fields(), std::vector<std::uint64_t>(indices, indices + count));
    }
    padAttributes(target);
}

std::vector<SplitNode> splitLeaf(const Octree& octree, std::uint64_t key, const PointCloud& cloud,
                                 std::uint64_t maxPoints, unsigned int levels) {
    const unsigned int depth = node_depth(key);
    const unsigned int deepest = std::min(DEEPEST_LEAF, depth + levels);
    Cutter cutter(cloud, static_cast<double>(octree.extend()) / static_cast<double>(1u << depth));

    // Cut into nodes, depth first
    struct Part {
        std::size_t node;
        std::size_t first;
        std::size_t last;
    };
    std::vector<SplitNode> nodes{{key, 0, nullptr}};
    std::vector<Part> leaves;
    std::vector<Part> stack{{0, 0, cloud.size()}};
    while (!stack.empty()) {
        const Part part = stack.back();
        stack.pop_back();
        const std::uint64_t parent = nodes[part.node].key;
        const unsigned int level = node_depth(parent);
        if (part.node != 0 && (part.last - part.first <= maxPoints || level >= deepest)) {
            leaves.push_back(part);
            continue;
        }
        const auto ends = cutter.cut(part.first, part.last, level - depth);
        std::size_t first = part.first;
        for (unsigned int octant = 0; octant < 8; ++octant) {
            if (ends[octant] != first) {
                nodes[part.node].children |= static_cast<std::uint8_t>(1u << octant);
                stack.push_back({nodes.size(), first, ends[octant]});
                nodes.push_back({child_key(parent, octant), 0, nullptr});
            }
            first = ends[octant];
        }
    }

    // Copy the points of each leaf once
    PointCloud padded;
    const PointCloud& source = evenCloud(cloud, padded);
    const Vector3d corner = nodeCorner(octree, key).cast<double>();
    const auto fill = [&](const Part& part) {
        SplitNode& leaf = nodes[part.node];
        leaf.cloud = std::make_shared<PointCloud>();
        appendPoints(*leaf.cloud, source, cutter.indices() + part.first, part.last - part.first,
                     corner - nodeCorner(octree, leaf.key).cast<double>());
    };
    if (cloud.size() >= SORTED_FROM) {
        tbb::parallel_for(std::size_t{0}, leaves.size(), [&](std::size_t i) { fill(leaves[i]); });
    } else {
        std::for_each(leaves.begin(), leaves.end(), fill);
    }
    for (SplitNode& node : nodes) {
        if (!node.cloud) {
            node.cloud = std::make_shared<PointCloud>();
        }
    }
    return nodes;
}

}  // namespace ombrix::core::detail
