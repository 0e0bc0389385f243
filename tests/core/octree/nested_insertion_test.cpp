#include <cmath>
#include <limits>
#include <map>
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
using ombrix::test::numbered;
using Positions = std::vector<Vector3f>;

constexpr float EDGE = 100.0f;
constexpr std::size_t MANY = 1'100'000;

/// Positions on a lattice that the grids' cells share: ties, duplicates, faces and corners.
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

/// A derived builder that counts the calls and goes on as before.
class ObservingBuilder : public NestedOctreeFactory {
public:
    using NestedOctreeFactory::add;
    using NestedOctreeFactory::NestedOctreeFactory;
    std::map<std::uint64_t, std::size_t> insertions;
    std::map<std::uint64_t, int> registrations;

protected:
    void add(Node& node, const Point& point) override {
        ++insertions[node.key];
        NestedOctreeFactory::add(node, point);
    }
    void setChild(Node& node, std::uint8_t i) override {
        ++registrations[child_key(node.key, i)];
        NestedOctreeFactory::setChild(node, i);
    }
};

/// Positions that are made only when a test on them runs: every test is a process of its own.
struct Kind {
    const char* name;
    Positions (*make)();
    friend std::ostream& operator<<(std::ostream& out, const Kind& kind) { return out << kind.name; }
};

class NestedInsertion : public testing::TestWithParam<Kind> {
protected:
    const PointCloud& cloud() const { return cloud_; }
    const NestedReference& reference() const { return reference_; }

private:
    const PointCloud cloud_ = numbered(GetParam().make());
    const NestedReference reference_ = NestedReference(cloud_.positions(), EDGE).insertAll();
};

TEST_P(NestedInsertion, BuildsTheTreeOfTheRule) {
    ombrix::test::withOneAndFourWorkers([&] {
        NestedOctreeFactory factory(Vector3f::Zero(), EDGE);
        factory.add(cloud());
        expectSameTree(reference(), factory);
        EXPECT_EQ(factory.size(), cloud().size());
        EXPECT_EQ(factory.scalarfieldMax(), static_cast<float>(cloud().size() - 1));
    });
}

TEST_P(NestedInsertion, BuildsTheSameTreeInPartsShiftedToTheOrigin) {
    NestedOctreeFactory factory(Vector3f::Constant(64.0f), EDGE);
    std::uint64_t first = 0;
    for (std::uint64_t size = 1; first < cloud().size(); first += size, size = size * 3 + 1) {
        PointCloud part;
        part.push_back(cloud(), first, std::min(first + size, cloud().size()) - 1, true);
        if (size == 1) {
            factory.add_local(part.point(0));
        } else {
            factory.add(part, Vector3d::Constant(64.0));
        }
    }
    expectSameTree(reference(), factory);
}

TEST_P(NestedInsertion, ShowsEveryStepToADerivedBuilder) {
    ObservingBuilder factory(Vector3f::Zero(), EDGE);
    factory.add(cloud());
    expectSameTree(reference(), factory);
    for (const auto& [key, node] : reference().nodes()) {
        EXPECT_EQ(factory.insertions[key], node.arrivals) << "node " << key;
        EXPECT_EQ(factory.registrations[key], key == 1 ? 0 : 1) << "node " << key;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Clouds, NestedInsertion,
    testing::Values(Kind{"lattice", [] { return latticePoints(MANY, EDGE); }},
                    Kind{"rough", [] { return roughPoints(MANY, EDGE); }},
                    Kind{"clustered", [] { return ombrix::test::clusteredPoints(200'000, EDGE); }},
                    Kind{"equal", [] { return Positions(66'000, Vector3f(EDGE, 0.0f, EDGE / 3)); }}),
    [](const auto& tested) { return tested.param.name; });

TEST(NestedInsertionHooks, AChildThatIsMadeIsRegisteredWhateverTheMaskSays) {
    ObservingBuilder factory(Vector3f::Zero(), EDGE);
    Octree::Node root;
    root.key = 1;
    root.children = 1;
    factory.add_node(root);
    factory.add(numbered(Positions(3, Vector3f::Ones())));
    EXPECT_EQ(factory.registrations, (std::map<std::uint64_t, int>{{8, 1}}));
    EXPECT_EQ(factory.nodes().at(8).points.size(), 2u);
}

TEST(NestedInsertionThreshold, TheLastPointOfABucketMakesItAGrid) {
    const Positions positions = ombrix::test::uniformPoints(65536, EDGE);
    const PointCloud cloud = numbered(positions);
    NestedOctreeFactory factory(Vector3f::Zero(), EDGE);
    for (std::uint64_t i = 0; i + 1 < cloud.size(); ++i) {
        factory.add(cloud.point(i));
    }
    EXPECT_FALSE(factory.nodes().at(1).expanded);
    EXPECT_EQ(factory.nodes().at(1).points.size(), 65535u);
    EXPECT_EQ(factory.maxDepth(), 0u);

    factory.add(cloud.point(65535));
    EXPECT_TRUE(factory.nodes().at(1).expanded);
    EXPECT_EQ(factory.nodes().at(1).points.capacity(), 0u);
    expectSameTree(NestedReference(positions, EDGE).insertAll(), factory);
}

TEST(NestedInsertionThreshold, BucketsOfDepth20StayBuckets) {
    const PointCloud cloud = numbered(Positions(3 * 65536, Vector3f::Constant(EDGE)));
    NestedOctreeFactory factory(Vector3f::Zero(), EDGE);
    factory.add(cloud);
    EXPECT_EQ(factory.maxDepth(), 19u);
    const std::uint64_t deepest = node_key(0x7fffffffffffffff, 20);
    EXPECT_FALSE(factory.nodes().at(deepest).expanded);
    EXPECT_EQ(factory.nodes().at(deepest).points.size(), 3u * 65536 - 20);
}

TEST(NestedInsertionThreshold, CubesThatTheClampCannotResolveLoseNothing) {
    for (const float edge : {0.0f, 1e-30f, 1e-9f, 1e12f, 1e30f}) {
        SCOPED_TRACE(edge);
        const PointCloud cloud = numbered(ombrix::test::uniformPoints(150'000, edge));
        NestedOctreeFactory factory(Vector3f::Zero(), edge);
        factory.add(cloud);
        Octree octree;
        factory(octree);
        EXPECT_EQ(octree.size(), cloud.size());
    }
}

}  // namespace
