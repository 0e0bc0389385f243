#include "tree.h"

#include <algorithm>
#include <chrono>

#include <ombrix/core/octree/full_octree_factory.h>
#include <ombrix/core/octree/nested_octree_factory.h>

namespace examples {

using ombrix::core::FullOctreeFactory;
using ombrix::core::NestedOctreeFactory;
using ombrix::core::Octree;
using ombrix::core::Vector3d;
using ombrix::core::Vector3f;

namespace {

template <class Factory>
void build(Factory factory, const Scene& scene, Octree& octree) {
    for (const auto& cloud : scene.clouds)
        factory.add(cloud);
    factory(octree);
}

}  // namespace

Tree buildTree(const Scene& scene, const Options& options) {
    const Vector3f origin = scene.box.min.cast<float>();
    const Vector3d size = scene.box.max - scene.box.min;
    // A cloud of one place still needs cells.
    const float extend = std::max(static_cast<float>(size.maxCoeff()) * 1.0001f, 1e-3f);

    Tree tree;
    tree.octree = std::make_shared<Octree>();
    const auto start = std::chrono::steady_clock::now();
    if (options.tree == TreeKind::nested)
        build(NestedOctreeFactory(origin, extend), scene, *tree.octree);
    else
        build(FullOctreeFactory(origin, extend, options.leaf), scene, *tree.octree);
    tree.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return tree;
}

}  // namespace examples
