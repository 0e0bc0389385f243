#include <examples/common/tree_building.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include <examples/common/console.h>

namespace examples {

using ombrix::core::Octree;
using ombrix::core::PointCloud;

float rootEdge(const Scene& scene) {
    const ombrix::core::Vector3d size = scene.box.max - scene.box.min;
    // A cloud of one place still needs cells.
    return std::max(static_cast<float>(size.maxCoeff()) * 1.0001f, 1e-3f);
}

void sayTree(const Octree& octree, const std::string& kind, double seconds) {
    printRate(kind + " octree", octree.size(), seconds);
    std::printf("%llu nodes, depth %u\n", static_cast<unsigned long long>(octree.keyCount()),
                octree.max_depth());
}

std::shared_ptr<Octree> buildWhole(ombrix::core::OctreeFactory& factory, const Scene& scene,
                                   const std::string& kind) {
    constexpr std::uint64_t pieceSize = 1u << 18;
    auto octree = std::make_shared<Octree>();
    Stopwatch watch;
    {
        Bar bar("building the " + kind + " octree");
        std::uint64_t done = 0;
        PointCloud piece;
        for (const PointCloud& cloud : scene.clouds) {
            for (std::uint64_t first = 0; first < cloud.size(); first += pieceSize) {
                const std::uint64_t last = std::min(first + pieceSize, cloud.size()) - 1;
                piece = PointCloud();
                piece.push_back(cloud, first, last, false);
                watch.time([&] { factory.add(piece); });
                done += piece.size();
                bar.update(done, scene.size());
            }
        }
        watch.time([&] { factory(*octree); });
    }
    sayTree(*octree, kind, watch.seconds());
    return octree;
}

}  // namespace examples
