#include <algorithm>
#include <map>
#include <vector>

#include <gtest/gtest.h>

#include <ombrix/core/octree/nested_octree_factory.h>

#include "tests/core/octree/nested_reference.h"
#include "tests/support/clouds.h"
#include "tests/support/octree_checks.h"

namespace {

using namespace ombrix::core;
using ombrix::test::NestedReference;
using ombrix::test::numbered;
using ombrix::test::rowsOf;

constexpr float EDGE = 100.0f;

/// Notes the nodes that are reported as changed.
class ReportedOctree : public Octree {
public:
    std::vector<std::uint64_t> reported;
    void update_node(std::uint64_t key) override { reported.push_back(key); }
};

/// The same without a rule of its own: inserts point by point.
class DerivedBuilder : public NestedOctreeFactory {
public:
    using NestedOctreeFactory::NestedOctreeFactory;
};

TEST(NestedConversion, HandsOverEveryNodeByCode) {
    const auto positions = ombrix::test::clusteredPoints(300'000, EDGE);
    const PointCloud cloud = numbered(positions);
    const NestedReference reference = NestedReference(positions, EDGE).insertAll();
    NestedOctreeFactory factory(Vector3f::Zero(), EDGE);
    factory.add(cloud);
    ReportedOctree octree;
    octree.type() = Octree::FULL;
    factory(octree);

    EXPECT_EQ(octree.type(), Octree::NESTED);
    EXPECT_EQ(octree.extend(), EDGE);
    EXPECT_EQ(octree.scalarfieldMin(), 0.0f);
    EXPECT_EQ(octree.scalarfieldMax(), 299'999.0f);
    EXPECT_EQ(rowsOf(octree), rowsOf(cloud));
    EXPECT_EQ(octree.reported, octree.branch(1));
    ASSERT_EQ(octree.keyCount(), reference.nodes().size());
    for (const auto& [key, expected] : reference.nodes()) {
        const Octree::Node& node = octree.node(key);
        EXPECT_EQ(node.key, key);
        EXPECT_EQ(node.size, 0u);
        EXPECT_EQ(node.children, expected.children);
        ASSERT_EQ(node.pc->size(), expected.size());
        std::uint64_t last = 0;
        for (const float number : node.pc->scalars()) {
            const std::uint64_t code = reference.code(reference.position(static_cast<std::size_t>(number)));
            ASSERT_LE(last, code) << "node " << key;
            last = code;
        }
    }
    EXPECT_EQ(factory.nodes().size(), 0u);
}

TEST(NestedConversion, AnEmptyFactoryGivesARootAndCanBeFilledAgain) {
    NestedOctreeFactory factory(Vector3f::Zero(), EDGE);
    factory.add(PointCloud());
    Octree octree;
    factory(octree);
    EXPECT_EQ(octree.keyCount(), 1u);
    EXPECT_EQ(octree.node(1).pc, nullptr);

    // Twice into the same tree: nodes keep what they have
    const PointCloud cloud = numbered(ombrix::test::uniformPoints(50, EDGE));
    for (std::uint64_t times = 1; times <= 2; ++times) {
        factory.add(cloud);
        EXPECT_EQ(factory.size(), 50u);
        factory(octree);
        EXPECT_EQ(octree.node(1).pc->size(), 50 * times);
    }
}

TEST(NestedConversion, KeepsPredefinedFieldsWithTheirPoints) {
    // Three clouds with different fields; values tell the point
    PointCloud plain = numbered(ombrix::test::uniformPoints(100'000, EDGE, 3));
    PointCloud withNormals = plain;
    withNormals.normals() = plain.positions();
    PointCloud withFloats = plain;
    withFloats.fields().addField<float>(FIELD_DISTANCE).first->data() = plain.scalars();
    withFloats.fields().addField<float>(FIELD_AMBIENT).first->data() = plain.scalars();

    const auto fill = [&](NestedOctreeFactory&& factory, Octree& octree) {
        for (const PointCloud* cloud : {&withNormals, &plain, &withFloats}) {
            factory.add(*cloud);
        }
        factory(octree);
    };
    Octree octree;
    Octree byDerived;
    fill(NestedOctreeFactory(Vector3f::Zero(), EDGE), octree);
    fill(DerivedBuilder(Vector3f::Zero(), EDGE), byDerived);

    ASSERT_EQ(octree.keyCount(), byDerived.keyCount());
    std::map<int, std::size_t> seen;
    for (const auto& [key, node] : octree.nodes()) {
        PointCloud& cloud = *node.pc;
        const PointCloud& other = *byDerived.node(key).pc;
        EXPECT_EQ(cloud.positions(), other.positions()) << "node " << key;
        EXPECT_EQ(cloud.scalars(), other.scalars()) << "node " << key;
        for (const auto& [name, field] : cloud.fields()) {
            EXPECT_EQ(field->size(), cloud.size()) << name;
        }
        for (std::uint64_t i = 0; i < cloud.size(); ++i) {
            const Point p = cloud.point(i);
            const bool normal = p.normal == p.position;
            const bool floats = p.distance == p.scalar && p.ambient == p.scalar;
            const bool none = p.normal.isZero() && p.distance == 0 && p.ambient == 0;
            ASSERT_TRUE(normal || none || p.normal.isZero());
            ASSERT_TRUE(floats || none || p.distance == 0);
            ++seen[normal ? 1 : p.scalar == 0 ? 3 : none ? 0 : 2];
            ASSERT_EQ(other.point(i).normal, p.normal);
            ASSERT_EQ(other.point(i).ambient, p.ambient);
        }
    }
    EXPECT_EQ(seen[1], 100'000u);
    EXPECT_EQ(seen[0], 99'999u);
    EXPECT_EQ(seen[2], 99'999u);
}

TEST(NestedConversion, ColoursAndClearsWhatIsHeld) {
    NestedOctreeFactory factory(Vector3f::Zero(), EDGE);
    factory.add(numbered(ombrix::test::uniformPoints(100'000, EDGE)));
    ColorRGB red(255, 0, 0);
    factory.setColor(red);
    NestedOctreeFactory copy = factory;
    factory.clear();
    EXPECT_EQ(factory.size(), 0u);

    // The copy has nodes of its own, and goes on with them
    copy.add(numbered({Vector3f::Zero()}));
    EXPECT_EQ(copy.size(), 100'001u);
    Octree octree;
    copy(octree);
    std::size_t coloured = 0;
    for (const auto& [key, node] : octree.nodes()) {
        for (const ColorRGB& color : node.pc->colors()) {
            coloured += color.r == 255 ? 1 : 0;
        }
    }
    EXPECT_EQ(coloured, 100'000u);
}

}  // namespace
