#include <cmath>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <ombrix/core/octree/nested_octree_factory.h>

#include "tests/core/octree/nested_reference.h"
#include "tests/support/clouds.h"

namespace {

using namespace ombrix::core;
using ombrix::test::expectSameTree;
using ombrix::test::NestedReference;
using Positions = std::vector<Vector3f>;

constexpr float EDGE = 100.0f;
constexpr std::size_t MANY = 1'100'000;

/// Scalars number the points (exactly, below 2^24).
PointCloud numbered(const Positions& positions) {
    PointCloud cloud;
    cloud.positions() = positions;
    cloud.resize(positions.size());
    for (std::size_t i = 0; i < positions.size(); ++i) {
        cloud.scalars()[i] = static_cast<float>(i);
    }
    return cloud;
}

/// Positions on a lattice of a third of the finest grid's cells met: ties, duplicates, faces and corners.
Positions latticePoints(std::size_t n, float edge) {
    std::mt19937 random(7);
    Positions points(n);
    for (Vector3f& p : points) {
        for (int axis = 0; axis < 3; ++axis) {
            p[axis] = static_cast<float>(random() % 193) * edge / 192.0f;
        }
    }
    return points;
}

/// Uniform on a wavy surface, some of it outside the box, with values that are no numbers.
Positions roughPoints(std::size_t n, float edge) {
    std::mt19937 random(11);
    std::uniform_real_distribution<float> uniform(-0.02f, 1.02f);
    Positions points(n);
    for (std::size_t i = 0; i < n; ++i) {
        const float x = uniform(random);
        const float y = uniform(random);
        points[i] = Vector3f(x, y, 0.5f + 0.1f * std::sin(9 * x) * std::cos(7 * y)) * edge;
        if (i % 1000 < 3) {
            constexpr float WRONG[] = {std::numeric_limits<float>::quiet_NaN(), -INFINITY, INFINITY};
            points[i][static_cast<int>(i / 1000 % 3)] = WRONG[i % 1000];
        }
    }
    return points;
}

/// A derived builder: counts the calls and goes on as before.
class ObservingBuilder : public NestedOctreeFactory {
public:
    using NestedOctreeFactory::add;
    using NestedOctreeFactory::NestedOctreeFactory;
    std::map<std::uint64_t, std::size_t> insertions;
    std::map<std::uint64_t, int> childrenSet;

protected:
    void add(Node& node, const Point& point) override {
        ++insertions[node.key];
        NestedOctreeFactory::add(node, point);
    }
    void setChild(Node& node, std::uint8_t i) override {
        ++childrenSet[child_key(node.key, i)];
        NestedOctreeFactory::setChild(node, i);
    }
};

TEST(NestedInsertion, EveryWayInBuildsTheTreeOfTheRule) {
    const std::vector<std::pair<std::string, Positions>> clouds = {
        {"lattice", latticePoints(MANY, EDGE)},
        {"rough", roughPoints(MANY, EDGE)},
        {"clustered", ombrix::test::clusteredPoints(400'000, EDGE)},
        {"equal", Positions(70'000, Vector3f(EDGE, 0.0f, EDGE / 3))}};
    for (const auto& [name, positions] : clouds) {
        SCOPED_TRACE(name);
        const NestedReference reference(positions, EDGE);
        const PointCloud cloud = numbered(positions);

        NestedOctreeFactory whole(Vector3f::Zero(), EDGE);
        whole.add(cloud);
        expectSameTree(reference, whole);

        // In parts of all sizes, shifted there and back
        NestedOctreeFactory parts(Vector3f::Constant(64.0f), EDGE);
        std::uint64_t first = 0;
        for (std::uint64_t size = 1; first < cloud.size(); first += size, size = size * 3 + 1) {
            PointCloud part;
            part.push_back(cloud, first, std::min(first + size, cloud.size()) - 1, true);
            parts.add(part, Vector3d::Constant(64.0));
        }
        expectSameTree(reference, parts);

        ObservingBuilder derived(Vector3f::Zero(), EDGE);
        derived.add(cloud);
        expectSameTree(reference, derived);
    }
}

}  // namespace
