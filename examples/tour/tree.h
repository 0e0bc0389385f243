#pragma once

#include <memory>

#include <ombrix/core/octree/octree.h>

#include "options.h"
#include "scene.h"

namespace examples {

/// A tree over a scene and what it took to build it.
struct Tree {
    std::shared_ptr<ombrix::core::Octree> octree;
    double seconds = 0.0;
};

/// Builds the tree that the options name over all clouds of the scene.
[[nodiscard]] Tree buildTree(const Scene& scene, const Options& options);

}  // namespace examples
