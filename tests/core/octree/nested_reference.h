#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/points/point_cloud.h>

namespace ombrix::test {

/// A cloud whose scalars number the points (exactly, below 2^24).
inline core::PointCloud numbered(const std::vector<core::Vector3f>& positions) {
    core::PointCloud cloud;
    cloud.positions() = positions;
    cloud.resize(positions.size());
    for (std::size_t i = 0; i < positions.size(); ++i) {
        cloud.scalars()[i] = static_cast<float>(i);
    }
    return cloud;
}

/// The insertion rules of nested trees written down step by step, for points whose origin is 0: one point
/// after another, one step after another, with plain loops.
class NestedReference {
public:
    struct Node {
        bool grid = false;
        std::uint8_t children = 0;
        std::size_t arrivals = 0;         // insertions into the node, at expansion once more
        std::vector<std::size_t> bucket;  // in the order of arrival
        std::unordered_map<std::uint64_t, std::size_t> cell;  // points by cell
        [[nodiscard]] std::size_t size() const { return grid ? cell.size() : bucket.size(); }
    };
    using Cell = std::array<std::int64_t, 3>;

    NestedReference(const std::vector<core::Vector3f>& positions, float edge)
        : positions_(positions), edge_(edge) {}

    /// Inserts all points in their order.
    NestedReference& insertAll() {
        for (std::size_t i = 0; i < positions_.size(); ++i) {
            insert(1, i);
        }
        return *this;
    }

    /// Inserts all points in the order of their codes, by the rule of codes in the root.
    NestedReference& insertSorted() {
        std::vector<std::pair<std::uint64_t, std::size_t>> order;
        for (std::size_t i = 0; i < positions_.size(); ++i) {
            order.emplace_back(code(position(i)), i);
        }
        std::sort(order.begin(), order.end());
        for (const auto& [key, i] : order) {
            insertByCode(1, i);
        }
        return *this;
    }

    /// The same into any node.
    void insertByCode(std::uint64_t key, std::size_t i) {
        Node& node = nodes_[key];
        const int depth = depthOf(key);
        if (!node.grid) {
            keepInBucket(node, key, i, true);
            return;
        }
        // The cell is the descendant 7 levels down, or the finest there is
        const int unit = std::max(14 - depth, 0);
        const std::uint64_t own = code(position(i));
        const auto [place, free] = node.cell.emplace(own >> (3 * unit), i);
        if (free) {
            return;
        }
        Cell center = fineCell(position(i));
        for (std::int64_t& c : center) {
            c = (c >> unit << unit) + (unit > 0 ? std::int64_t{1} << (unit - 1) : 0);
        }
        std::size_t down = i;
        if (manhattan(fineCell(position(i)), center) < manhattan(fineCell(position(place->second)), center)) {
            std::swap(place->second, down);
        }
        pushDown(node, key, code(position(down)), down);
    }

    [[nodiscard]] const std::map<std::uint64_t, Node>& nodes() const { return nodes_; }

    /// Position of a point in double; a NaN counts as 0.
    [[nodiscard]] std::array<double, 3> position(std::size_t i) const {
        std::array<double, 3> p{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const float c = positions_[i].data()[axis];
            p[axis] = std::isnan(c) ? 0.0 : static_cast<double>(c);
        }
        return p;
    }

    /// Code of a position: the bits of its finest cell, level by level.
    [[nodiscard]] std::uint64_t code(const std::array<double, 3>& p) const {
        const Cell cell = fineCell(p);
        std::uint64_t bits = 0;
        for (int level = 20; level >= 0; --level) {
            for (const std::int64_t c : cell) {
                bits = bits << 1 | (static_cast<std::uint64_t>(c) >> level & 1);
            }
        }
        return bits;
    }

private:
    static int depthOf(std::uint64_t key) { return key < 8 ? 0 : 1 + depthOf(key / 8); }

    [[nodiscard]] Cell fineCell(const std::array<double, 3>& p) const {
        Cell cell{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            cell[axis] =
                static_cast<std::int64_t>(std::clamp(p[axis] / edge_, 0.0, 0.9999999999999998) * 2097152);
        }
        return cell;
    }

    static std::int64_t manhattan(const Cell& a, const Cell& b) {
        return std::abs(a[0] - b[0]) + std::abs(a[1] - b[1]) + std::abs(a[2] - b[2]);
    }

    void keepInBucket(Node& node, std::uint64_t key, std::size_t i, bool anyDepth) {
        ++node.arrivals;
        node.bucket.push_back(i);
        if (node.bucket.size() >= 65536 && (anyDepth || depthOf(key) < 20)) {
            node.grid = true;
            for (const std::size_t waiting : node.bucket) {
                insert(key, waiting);
            }
            node.bucket.clear();
        }
    }

    void pushDown(Node& node, std::uint64_t key, std::uint64_t code, std::size_t i) {
        const int depth = depthOf(key);
        const std::uint64_t childKey = code >> (3 * (20 - depth)) | std::uint64_t{1} << (3 * (depth + 1));
        node.children = static_cast<std::uint8_t>(node.children | 1u << (childKey - 8 * key));
        insert(childKey, i);
    }

    void insert(std::uint64_t key, std::size_t i) {
        Node& node = nodes_[key];
        const int depth = depthOf(key);
        if (!node.grid) {
            keepInBucket(node, key, i, false);
            return;
        }
        ++node.arrivals;

        // The node's cube: its lower corner is the sum of the upper halves taken on the way down
        std::array<double, 3> corner{};
        const double side = edge_ / static_cast<double>(1 << depth);
        for (int level = depth; level >= 1; --level) {
            const std::uint64_t octant = key >> (3 * (depth - level)) & 7;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                corner[axis] +=
                    (octant >> (2 - axis) & 1) != 0 ? edge_ / static_cast<double>(1 << level) : 0.0;
            }
        }

        const std::array<double, 3> p = position(i);
        std::array<double, 3> u{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            u[axis] = std::clamp((p[axis] - corner[axis]) / (side / 128), 0.0, 128 - 0x1p-23);
        }
        const double cell = std::floor(u[0]) + 128 * std::floor(u[1]) + 128 * 128 * std::floor(u[2]);
        const auto [place, free] = node.cell.emplace(static_cast<std::uint64_t>(cell), i);
        if (free) {
            return;
        }

        const std::array<double, 3> other = position(place->second);
        std::array<double, 3> fromNew{};
        std::array<double, 3> fromOld{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double center = std::floor(u[axis]) + 0.5;
            fromNew[axis] = u[axis] - center;
            fromOld[axis] = (other[axis] - corner[axis]) / (side / 128) - center;
        }
        std::size_t down = i;
        if (squaredLength(fromNew) < squaredLength(fromOld)) {
            std::swap(place->second, down);
        }

        std::array<double, 3> q = position(down);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            q[axis] = std::min(std::max(q[axis], corner[axis]), corner[axis] + side - 0x1p-23);
        }
        pushDown(node, key, code(q), down);
    }

    static double squaredLength(const std::array<double, 3>& v) {
        return v[0] * v[0] + v[1] * v[1] + v[2] * v[2];
    }

    const std::vector<core::Vector3f>& positions_;
    double edge_;
    std::map<std::uint64_t, Node> nodes_;
};

/// The tree that the factory holds is the reference's: the same nodes with the same points in the same cells
/// and the same order in buckets. The scalar of a point is its number.
inline void expectSameTree(const NestedReference& reference, const core::NestedOctreeFactory& factory) {
    ASSERT_EQ(factory.nodes().size(), reference.nodes().size());
    for (const auto& [key, expected] : reference.nodes()) {
        const auto found = factory.nodes().find(key);
        ASSERT_NE(found, factory.nodes().end()) << "node " << key;
        const core::NestedOctreeFactory::Node& node = found->second;
        ASSERT_EQ(node.expanded, expected.grid) << "node " << key;
        ASSERT_EQ(node.key, key);
        ASSERT_EQ(node.children, expected.children) << "node " << key;
        ASSERT_EQ(node.expanded ? node.grid.size() : node.points.size(), expected.size()) << "node " << key;
        for (const auto& [cell, i] : expected.cell) {
            ASSERT_TRUE(node.grid.contains(cell)) << "node " << key << " cell " << cell;
            ASSERT_EQ(node.grid.at(cell).scalar, static_cast<float>(i)) << "node " << key << " cell " << cell;
        }
        for (std::size_t n = 0; n < expected.bucket.size(); ++n) {
            ASSERT_EQ(node.points[n].scalar, static_cast<float>(expected.bucket[n])) << "node " << key;
        }
    }
}

}  // namespace ombrix::test
