// Octrees, grid merging and PLY files beside PCL; neighbourhoods are in a source of their own.
#include "benchmarks/peers/pcl_cloud.h"

#include <algorithm>
#include <memory>

#include <pcl/filters/voxel_grid.h>
#include <pcl/io/ply_io.h>
#include <pcl/octree/octree_pointcloud.h>

#include "benchmarks/ours/ours.h"
#include "benchmarks/support/answers.h"
#include "benchmarks/support/bench_files.h"
#include "benchmarks/support/rows.h"

namespace {

using namespace ombrix::benchmarks;

/// Points are indices in the leaves; nothing is copied.
void fullOctree() {
    using Tree = pcl::octree::OctreePointCloud<pcl::PointXYZ>;
    ours::fullOctree();
    measure(
        rows::FULL_OCTREE, "pcl",
        [](std::int64_t n) {
            return [cloud = pclCloud(n), edge = cubeEdge(n)] {
                auto tree = std::make_unique<Tree>(edge / 2097152.0);
                tree->enableDynamicDepth(LEAF_CAPACITY);
                tree->setInputCloud(cloud);
                tree->addPointsFromInputCloud();
                return tree;
            };
        },
        [](std::int64_t, const std::unique_ptr<Tree>& tree) {
            std::uint64_t points = 0;
            std::uint64_t largest = 0;
            for (auto leaf = tree->leaf_depth_begin(); leaf != tree->leaf_depth_end(); ++leaf) {
                const std::uint64_t size = leaf.getLeafContainer().getSize();
                points += size;
                largest = std::max(largest, size);
            }
            return leafAnswer(points, largest);
        });
}

/// Its cell numbers have 32 bits.
void gridMean() {
    ours::gridMean();
    measure(
        rows::GRID_MEAN, "pcl",
        [](std::int64_t n) {
            return [cloud = pclCloud(n), cell = tenPointCell(n)] {
                pcl::VoxelGrid<pcl::PointXYZ> grid;
                grid.setLeafSize(cell, cell, cell);
                grid.setInputCloud(cloud);
                PclCloud merged;
                grid.filter(merged);
                return merged;
            };
        },
        [](std::int64_t, const PclCloud& merged) { return Answer{static_cast<double>(merged.size())}; },
        Pace::CAPPED);
}

/// Positions, colours and intensities, as ours.
void readPly() {
    using Cloud = pcl::PointCloud<pcl::PointXYZRGB>;
    ours::readPly();
    measure(
        rows::READ_PLY, "pcl",
        [](std::int64_t n) {
            return [path = plyFile(n)] {
                Cloud cloud;
                pcl::PLYReader().read(path, cloud);
                return cloud;
            };
        },
        [](std::int64_t, const Cloud& cloud) {
            return meanPointAnswer(cloud.size(), [&](std::size_t i) -> ombrix::core::Vector3d {
                return cloud[i].getVector3fMap().cast<double>();
            });
        });
}

}  // namespace

int main(int argc, char** argv) {
    return runMeasures(argc, argv, {fullOctree, addPclNeighbourhoods, gridMean, readPly});
}
