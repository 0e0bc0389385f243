// The dynamic builder over any floats: clouds that make its root grow, split and merge.

#include <algorithm>

#include <ombrix/core/octree/dynamic_octree_factory.h>
#include <ombrix/core/octree/nested_octree_factory.h>

#include "fuzz/fuzz_support.h"
#include "fuzz/octree_checks.h"

namespace {

using namespace ombrix;
using fuzz::require;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::quietSingleThread();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::uint64_t maxPoints = input.below(8);
    core::DynamicOctreeFactory factory(maxPoints);
    factory.setLeafSize(input.number());
    if (input.flag()) {
        const core::Vector3f origin = input.vector();
        factory.setOriginTop(origin, origin + core::Vector3f::Constant(input.number()));
    }
    std::uint64_t count = 0;
    while (!input.empty()) {
        const core::PointCloud cloud = fuzz::cloudOf(input, 32, count);
        count += cloud.size();
        core::Vector3d shift = core::Vector3d::Zero();
        if (input.flag()) {
            shift = input.vector().cast<double>();
        } else if (input.below(8) == 0) {
            shift = {input.take<double>(), input.take<double>(), input.take<double>()};
        }
        factory.add(cloud, shift);
        const core::Octree& tree = *factory.octree();
        require(factory.size() + factory.droppedPoints() == count,
                "points are in the tree or counted as dropped");
        require((tree.keyCount() == 0) == (count == 0), "a tree where there are points");
        require(tree.origin() == factory.origin() || !tree.origin().allFinite(), "one origin");
        require(fuzz::sameBits(tree.extend(), factory.extend()), "one edge");
    }
    core::Octree& tree = *factory.octree();
    if (count == 0) {
        return 0;
    }
    fuzz::requireMasks(tree, 1, 20);
    for (const auto& [key, node] : tree.nodes()) {
        const std::uint64_t points = node.pc ? node.pc->size() : 0;
        require(node.size == points, "sizes are those of the clouds");
        require(node.children == 0 || points == 0, "points in leaves only");
        require(points <= maxPoints || core::node_depth(key) == 20, "leaves are small");
    }
    fuzz::requirePointsInBoxes(tree);
    fuzz::requireEven(tree);
    const fuzz::Ids ids = fuzz::idsOf(tree);
    require(std::adjacent_find(ids.begin(), ids.end()) == ids.end(), "no point twice");

    if (input.below(2) == 0 || count % 2 == 0) {
        core::Octree nested;
        (*factory.convert())(nested);
        require(fuzz::idsOf(nested) == ids, "converting keeps the points");
        require(factory.size() == ids.size(), "sizes stay");
    } else {
        factory.factory();
        require(fuzz::idsOf(tree) == ids, "re-basing keeps the points");
        fuzz::requirePointsInBoxes(tree);
        factory.add(fuzz::cloudOf(input, 1, count));
        factory.add(core::PointCloud());
        require(factory.size() == ids.size(), "an empty cloud changes nothing");
    }
    return 0;
}
