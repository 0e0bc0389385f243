#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/points/point_cloud.h>

namespace ombrix::test {

/// The insertion rule of nested trees written down step by step, for points whose origin is 0: one point
/// after another, one step after another, maps and plain loops only.
class NestedReference {
public:
    struct Node {
        bool grid = false;
        std::uint8_t children = 0;
        std::vector<std::size_t> bucket;            // in the order of arrival
        std::map<std::uint64_t, std::size_t> cell;  // points by cell
        [[nodiscard]] std::size_t size() const { return grid ? cell.size() : bucket.size(); }
    };

    NestedReference(const std::vector<core::Vector3f>& positions, float edge)
        : positions_(positions), edge_(edge) {
        for (std::size_t i = 0; i < positions.size(); ++i) {
            insert(1, i);
        }
    }

    [[nodiscard]] const std::map<std::uint64_t, Node>& nodes() const { return nodes_; }

    /// Code of a position: halve the cube 21 times.
    [[nodiscard]] static std::uint64_t code(const std::array<double, 3>& p, double edge) {
        std::uint64_t code = 0;
        for (int level = 1; level <= 21; ++level) {
            for (const double c : p) {
                const double cell = std::clamp(c / edge, 0.0, 0.9999999999999998) * std::ldexp(1.0, level);
                code = code << 1 | (static_cast<std::uint64_t>(cell) & 1);
            }
        }
        return code;
    }

    /// Position of a point in double; a NaN counts as 0.
    [[nodiscard]] std::array<double, 3> position(std::size_t i) const {
        std::array<double, 3> p{};
        for (int axis = 0; axis < 3; ++axis) {
            const float c = positions_[i][axis];
            p[static_cast<std::size_t>(axis)] = std::isnan(c) ? 0.0 : static_cast<double>(c);
        }
        return p;
    }

private:
    static int depthOf(std::uint64_t key) { return key < 8 ? 0 : 1 + depthOf(key / 8); }

    void insert(std::uint64_t key, std::size_t i) {
        Node& node = nodes_[key];
        const int depth = depthOf(key);
        if (!node.grid) {
            node.bucket.push_back(i);
            if (node.bucket.size() >= 65536 && depth < 20) {
                node.grid = true;
                for (const std::size_t waiting : node.bucket) {
                    insert(key, waiting);
                }
                node.bucket.clear();
            }
            return;
        }

        // The node's cube: its lower corner is the sum of the upper halves taken on the way down
        std::array<double, 3> corner{};
        for (int level = 1; level <= depth; ++level) {
            const std::uint64_t octant = key >> (3 * (depth - level)) & 7;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                corner[axis] += (octant >> (2 - axis) & 1) != 0 ? std::ldexp(edge_, -level) : 0.0;
            }
        }
        const double side = std::ldexp(edge_, -depth);

        const std::array<double, 3> p = position(i);
        std::array<double, 3> u{};
        std::array<double, 3> center{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            u[axis] = std::clamp((p[axis] - corner[axis]) / (side / 128), 0.0, 128 - std::ldexp(1.0, -23));
            center[axis] = std::floor(u[axis]) + 0.5;
        }
        const double cell = std::floor(u[0]) + 128 * std::floor(u[1]) + 128 * 128 * std::floor(u[2]);
        const auto [place, free] = node.cell.emplace(static_cast<std::uint64_t>(cell), i);
        if (free) {
            return;
        }

        const std::array<double, 3> other = position(place->second);
        double distNew = 0;
        double distOld = 0;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            distNew += std::pow(u[axis] - center[axis], 2);
            distOld += std::pow((other[axis] - corner[axis]) / (side / 128) - center[axis], 2);
        }
        std::size_t down = i;
        if (distNew < distOld) {
            std::swap(place->second, down);
        }

        std::array<double, 3> q = position(down);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            q[axis] = std::min(std::max(q[axis], corner[axis]), corner[axis] + side - std::ldexp(1.0, -23));
        }
        const std::uint64_t childKey = code(q, edge_) >> (3 * (20 - depth)) | std::uint64_t{1}
                                                                                  << (3 * (depth + 1));
        node.children = static_cast<std::uint8_t>(node.children | 1u << (childKey - 8 * key));
        insert(childKey, down);
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
