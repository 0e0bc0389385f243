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

constexpr float EDGE = 100.0f;

/// Opens the sorted insertion up.
class SortedBuilder : public NestedOctreeFactory {
public:
    using NestedOctreeFactory::add_optim;
    using NestedOctreeFactory::NestedOctreeFactory;

    void insertByCode(std::uint64_t key, Point p) {
        p.index = morton_keyd(p.position.cast<double>()).key;
        add_optim(node(key), p);
    }
};

TEST(NestedSortedInsertion, FollowsItsOwnRuleInTheRoot) {
    for (const auto& positions :
         {ombrix::test::uniformPoints(300'000, EDGE), ombrix::test::clusteredPoints(200'000, EDGE)}) {
        const NestedReference reference = NestedReference(positions, EDGE).insertSorted();
        ombrix::test::withOneAndFourWorkers([&] {
            SortedBuilder factory(Vector3f::Zero(), EDGE);
            factory.add_optim(numbered(positions));
            expectSameTree(reference, factory);
            EXPECT_EQ(factory.size(), positions.size());
        });
    }
}

TEST(NestedSortedInsertion, ExpandsBucketsOfAnyDepth) {
    // One finest cell and its neighbours, so that all points lie under one node of depth 20
    std::vector<Vector3f> positions;
    for (std::size_t i = 0; i < 70'000; ++i) {
        const float cell = static_cast<float>(i % 3) / 2097152.0f;
        positions.push_back(Vector3f(cell < 1.5f / 2097152.0f ? cell : 0.0f, 0.0f, 0.0f));
    }
    NestedReference reference(positions, 1.0f);
    SortedBuilder factory(Vector3f::Zero(), 1.0f);
    const PointCloud cloud = numbered(positions);
    const std::uint64_t deep = std::uint64_t{1} << 60;
    for (std::size_t i = 0; i < positions.size(); ++i) {
        reference.insertByCode(deep, i);
        factory.insertByCode(deep, cloud.point(i));
    }
    EXPECT_TRUE(factory.nodes().at(deep).expanded);
    EXPECT_EQ(factory.maxDepth(), 20u);
    for (const auto& [key, expected] : reference.nodes()) {
        const auto& node = factory.nodes().at(key);
        EXPECT_EQ(node.children, expected.children) << "node " << key;
        EXPECT_EQ(node.expanded ? node.grid.size() : node.points.size(), expected.size()) << "node " << key;
    }
}

}  // namespace
