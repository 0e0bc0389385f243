// The nested builder over any floats, with nodes and points loaded beside, as it is and as a derived class
// that takes one point after another: the same tree, and no point lost.

#include <algorithm>
#include <set>

#include <ombrix/core/octree/nested_octree_factory.h>

#include "fuzz/fuzz_support.h"
#include "fuzz/octree_checks.h"

namespace {

using namespace ombrix;
using fuzz::require;
using fuzz::sameBits;

class PointByPoint : public core::NestedOctreeFactory {
public:
    using core::NestedOctreeFactory::NestedOctreeFactory;
};

/// The ids that a node of the builder holds.
std::vector<float> heldBy(const core::NestedOctreeFactory& factory, std::uint64_t key) {
    std::vector<float> ids;
    if (const auto node = factory.nodes().find(key); node != factory.nodes().end()) {
        for (const core::Point& p : node->second.points) {
            ids.push_back(p.scalar);
        }
        for (const auto& [cell, p] : node->second.grid) {
            ids.push_back(p.scalar);
        }
    }
    return ids;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::quietSingleThread();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const core::Vector3f origin = input.vector();
    const core::Vector3f top =
        input.flag() ? input.vector() : core::Vector3f(origin + core::Vector3f::Constant(input.number()));
    core::NestedOctreeFactory factory(origin, top);
    PointByPoint derived(origin, top);
    fuzz::Ids expected;
    std::set<float> loaded;
    std::uint64_t next = 0;
    const auto someCloud = [&] {
        core::PointCloud cloud = fuzz::cloudOf(input, 24, next);
        next += cloud.size();
        expected.insert(cloud.scalars().begin(), cloud.scalars().end());
        return cloud;
    };
    const auto someKey = [&] {
        std::uint64_t key = 1;
        for (unsigned int level = input.below(input.flag() ? 22 : 3); level > 0; --level) {
            key = core::child_key(key, input.below(8));
        }
        return key;
    };
    // Every new bucket reserves room for 65536 points: a few will do
    while (!input.empty() && factory.nodes().size() < 40) {
        switch (input.below(7)) {
            case 0: {
                const core::PointCloud cloud = someCloud();
                const core::Vector3d shift = input.vector().cast<double>();
                factory.add(cloud, shift);
                derived.add(cloud, shift);
                break;
            }
            case 1:
            case 2: {
                const core::PointCloud cloud = someCloud();
                factory.add(cloud);
                derived.add(cloud);
                break;
            }
            case 3: {
                core::Point point;
                point.position = input.vector();
                point.scalar = static_cast<float>(next++);
                expected.insert(point.scalar);
                const bool local = input.flag();
                local ? factory.add_local(point) : factory.add(point);
                local ? derived.add_local(point) : derived.add(point);
                break;
            }
            case 4: {
                const std::uint64_t key = someKey();
                const std::vector<float> replaced = heldBy(factory, key);
                require(std::ranges::is_permutation(replaced, heldBy(derived, key)),
                        "the same points in a node");
                for (const float id : replaced) {
                    expected.erase(expected.find(id));
                }
                const core::PointCloud cloud = someCloud();
                loaded.insert(cloud.scalars().begin(), cloud.scalars().end());
                const core::Vector3d shift = input.vector().cast<double>();
                factory.add_node_pc(key, cloud, shift);
                derived.add_node_pc(key, cloud, shift);
                break;
            }
            default: {
                core::Octree::Node node;
                node.key = someKey();
                node.children = input.take<std::uint8_t>();
                // What becomes of points that a node holds in the other form, and of children that the mask
                // forgets, is the caller's
                const auto known = factory.nodes().find(node.key);
                if (heldBy(factory, node.key).empty() &&
                    (known == factory.nodes().end() || known->second.children == 0)) {
                    factory.add_node(node);
                    derived.add_node(node);
                }
            }
        }
    }
    require(factory.size() == expected.size() && derived.size() == expected.size(), "points held");

    core::Octree tree;
    core::Octree second;
    factory(tree);
    derived(second);
    require(fuzz::idsOf(tree) == expected, "no point is lost or invented");
    require(tree.keyCount() == second.keyCount(), "both ways give the same nodes");
    for (auto& [key, node] : tree.nodes()) {
        const core::Octree::Node& other = second.node(key);
        require(node.children == other.children && (node.pc != nullptr) == (other.pc != nullptr),
                "the same node");
        if (node.pc) {
            require(sameBits(node.pc->positions(), other.pc->positions()), "the same positions");
            require(node.pc->scalars() == other.pc->scalars(), "the same points");
        }
    }
    fuzz::requireEven(tree);
    if (loaded.empty()) {
        // What is pushed down is clamped to 2^-23 below the upper faces, whatever the edge: cubes of that size
        // are not told apart.
        fuzz::requirePointsInBoxes(tree, 0x1p-21f);
    }
    return 0;
}
