#pragma once

#include <map>
#include <memory>
#include <utility>

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

/// A tree that keeps its leaves' clouds elsewhere and brings them back when asked.
class PagingTree : public core::Octree {
public:
    std::shared_ptr<core::PointCloud> node_pc(std::uint64_t key) override {
        const auto found = away_.find(key);
        return found != away_.end() ? found->second : core::Octree::node_pc(key);
    }
    void release() {
        for (auto& [key, node] : nodes()) {
            if (node.pc && node.size > 0) {
                away_[key] = std::move(node.pc);
            }
        }
    }
    void bringBack() {
        for (const auto& [key, cloud] : away_) {
            node(key).pc = node(key).size > 0 ? cloud : node(key).pc;
        }
        away_.clear();
    }

private:
    std::map<std::uint64_t, std::shared_ptr<core::PointCloud>> away_;
};

/// Builds one in the unit cube.
class PagingFactory : public core::DynamicOctreeFactory {
public:
    explicit PagingFactory(std::uint64_t maxPoints) : core::DynamicOctreeFactory(maxPoints) {
        PagingFactory::clear();
        PagingFactory::setOriginTop(core::Vector3f::Zero(), core::Vector3f::Ones());
    }
    PagingTree& tree() { return static_cast<PagingTree&>(*octree()); }

protected:
    std::shared_ptr<core::Octree> create_octree() override { return std::make_shared<PagingTree>(); }
};

/// A numbered cloud in [0, 1)^3 whose coordinates the nodes' corners round nowhere.
inline core::PointCloud latticeCloud(std::size_t n, unsigned int seed, std::size_t firstScalar = 0) {
    core::PointCloud cloud = numberedCloud(n, 0.0f, 1023.0f, seed, firstScalar);
    for (core::Vector3f& p : cloud.positions()) {
        p = p.array().floor() / 1024.0f;
    }
    return cloud;
}

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
        core::Vector3d corner = octree.origin().cast<double>();
        if ((node.flags & 8) != 0) {
            corner += octree.node_origin(node).cast<double>();
        }
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
