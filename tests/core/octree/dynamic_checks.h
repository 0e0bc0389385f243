#pragma once

#include <map>

#include <ombrix/core/octree/dynamic_octree_factory.h>

#include "tests/support/octree_checks.h"

namespace ombrix::test {

/// Opens the protected operations.
class OpenDynamicFactory : public core::DynamicOctreeFactory {
public:
    using DynamicOctreeFactory::add;
    using DynamicOctreeFactory::DynamicOctreeFactory;
    using DynamicOctreeFactory::expand_node;
    using DynamicOctreeFactory::expand_nodes;
    using DynamicOctreeFactory::expand_octree;
    using DynamicOctreeFactory::push_to_leaf;
};

/// World positions by the number that each point carries as its scalar.
using World = std::map<float, core::Vector3d>;

inline void addToWorld(const core::PointCloud& cloud, const core::Vector3d& shift, World& world) {
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        world[cloud.scalars()[i]] = cloud.positions()[i].cast<double>() + shift;
    }
}

/// What always holds: points in leaves only, no leaf above depth 20 too full, flags, sizes and masks agree,
/// attributes as long as positions, every point in its node's cube.
inline void expectDynamicInvariants(core::DynamicOctreeFactory& factory) {
    const core::Octree& octree = *factory.octree();
    expectMasksAgree(octree, 20);
    for (const auto& [key, node] : octree.nodes()) {
        ASSERT_TRUE(node.pc);
        ASSERT_EQ(node.flags & 8, 8);
        ASSERT_EQ(node.size, node.pc->size());
        ASSERT_EQ(node.pc->colors().size(), node.size);
        ASSERT_EQ(node.pc->scalars().size(), node.size);
        for (const auto& [name, field] : node.pc->fields()) {
            ASSERT_EQ(field->size(), node.size) << name;
        }
        if (node.children != 0) {
            ASSERT_EQ(node.size, 0u) << "points in inner node " << key;
        } else if (core::node_depth(key) < 20) {
            ASSERT_LE(node.size, factory.maxPoints());
        }
    }
    expectPointsInBoxes(octree, octree.extend() * 0x1p-20f);
}

/// The tree holds these points but the dropped ones and no others, to the precision of floats inside the root
/// cube.
inline void expectHolds(core::DynamicOctreeFactory& factory, const World& world) {
    const core::Octree& octree = *factory.octree();
    ASSERT_EQ(factory.size() + factory.droppedPoints(), world.size());
    std::map<float, int> seen;
    for (const auto& [key, node] : octree.nodes()) {
        const core::Vector3d corner =
            octree.node_origin(node).cast<double>() + octree.origin().cast<double>();
        for (std::size_t i = 0; i < node.pc->size(); ++i) {
            const float number = node.pc->scalars()[i];
            ASSERT_EQ(++seen[number], 1);
            ASSERT_EQ(world.count(number), 1u);
            const core::Vector3d p = node.pc->positions()[i].cast<double>() + corner;
            ASSERT_LE((p - world.at(number)).cwiseAbs().maxCoeff(), octree.extend() * 0x1p-21);
        }
    }
}

}  // namespace ombrix::test
