// The full builder over any floats.

#include <ombrix/core/octree/full_octree_factory.h>

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
    const unsigned int capacity = input.below(8);
    const core::Vector3f origin = input.vector();
    const bool corners = input.flag();
    core::FullOctreeFactory factory = corners ? core::FullOctreeFactory(origin, input.vector(), capacity)
                                              : core::FullOctreeFactory(origin, input.number(), capacity);
    std::uint64_t count = 0;
    while (!input.empty()) {
        const core::PointCloud cloud = fuzz::cloudOf(input, 32, count);
        count += cloud.size();
        switch (input.below(3)) {
            case 0:
                factory.add(cloud, input.vector().cast<double>());
                break;
            case 1:
                factory.add(cloud, {input.take<double>(), input.take<double>(), input.take<double>()});
                break;
            default:
                factory.add(cloud);
        }
    }
    core::Octree tree;
    factory(tree);
    require(tree.size() == count, "all points are in the tree");
    require((tree.keyCount() == 0) == (count == 0), "without points there are no nodes");
    if (count > 0) {
        fuzz::requireFullTree(tree, capacity, 1);
    }
    fuzz::requirePointsInBoxes(tree);
    fuzz::Ids ids;
    for (const auto& [key, node] : tree.nodes()) {
        ids.insert(node.pc->scalars().begin(), node.pc->scalars().end());
    }
    require(ids == fuzz::firstIds(count), "every point once");
    core::Octree second;
    factory(second);
    require(second.keyCount() == tree.keyCount() && second.size() == count, "a factory can build again");
    return 0;
}
