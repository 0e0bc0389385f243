#pragma once

#include <memory>

#include <examples/common/scene.h>
#include <ombrix/core/octree/octree.h>

#include "options.h"

namespace examples {

/// Builds the tree that the options name over all clouds of the scene, and says on standard output what came
/// of it. The time said is that of the builder, `add` and what finishes the tree.
///
/// A dynamic tree gets several files one after another, and a single file in slices along its longer side, so
/// that its root has to grow.
[[nodiscard]] std::shared_ptr<ombrix::core::Octree> buildTree(const Scene& scene, const Options& options);

}  // namespace examples
