#pragma once

#include <chrono>
#include <memory>
#include <string>

#include <examples/common/scene.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/octree/octree_factory.h>

namespace examples {

/// Seconds spent in the calls handed to it.
class Stopwatch {
public:
    template <class Work>
    void time(const Work& work) {
        const auto start = std::chrono::steady_clock::now();
        work();
        seconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    [[nodiscard]] double seconds() const { return seconds_; }

private:
    double seconds_ = 0.0;
};

/// Edge of a root cube at the lower corner of the scene's box that holds the scene.
[[nodiscard]] float rootEdge(const Scene& scene);

/// Says what became of a tree on standard output: points, time, nodes and depth.
void sayTree(const ombrix::core::Octree& octree, const std::string& kind, double seconds);

/// Adds the scene's clouds to a builder in pieces, with a progress bar, finishes the tree, and says what came
/// of it. The time said is the builder's.
[[nodiscard]] std::shared_ptr<ombrix::core::Octree> buildWhole(ombrix::core::OctreeFactory& factory,
                                                               const Scene& scene, const std::string& kind);

}  // namespace examples
