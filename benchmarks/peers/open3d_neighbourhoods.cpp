#include "benchmarks/peers/open3d_cloud.h"

#include <memory>
#include <vector>

#include <open3d/geometry/KDTreeFlann.h>
#include <open3d/geometry/KDTreeSearchParam.h>

#include "benchmarks/ours/ours.h"
#include "benchmarks/support/tree_measures.h"

namespace ombrix::benchmarks {

namespace {

class Tree {
public:
    using Input = open3d::geometry::PointCloud;
    struct Buffer {
        std::vector<int> indices;
        std::vector<double> sqDists;
    };

    static std::shared_ptr<const Input> input(std::int64_t n) { return open3dCloud(n); }

    explicit Tree(const Input& cloud) : cloud_(cloud), index_(cloud) {}

    std::size_t knn(std::size_t i, std::size_t k, Buffer& buffer) const {
        return static_cast<std::size_t>(
            index_.SearchKNN(cloud_.points_[i], static_cast<int>(k), buffer.indices, buffer.sqDists));
    }
    static double sqDist(const Buffer& buffer, std::size_t j) { return buffer.sqDists[j]; }

    /// Its lists are always sorted.
    std::size_t radius(std::size_t i, float radius, Buffer& buffer, bool) const {
        return static_cast<std::size_t>(index_.SearchRadius(cloud_.points_[i], static_cast<double>(radius),
                                                            buffer.indices, buffer.sqDists));
    }

private:
    const Input& cloud_;
    open3d::geometry::KDTreeFlann index_;
};

/// With its own function, which uses all threads.
void normals() {
    ours::normals();
    measure(
        rows::NORMALS, "open3d",
        [](std::int64_t n) {
            return [cloud = open3dCloud(n)] {
                cloud->normals_.clear();
                cloud->EstimateNormals(open3d::geometry::KDTreeSearchParamKNN(NEIGHBOURS));
                return cloud;
            };
        },
        [](std::int64_t, const auto& cloud) {
            return normalAnswer(cloud->normals_.size(),
                                [&](std::size_t i) -> core::Vector3d { return cloud->normals_[i]; });
        },
        Pace::SLOW);
}

}  // namespace

void addOpen3dNeighbourhoods() {
    ours::kdTreeBuild();
    measureTreeBuild<Tree>("open3d");
    ours::knnPass();
    ours::meanNearestDistance();
    ours::radiusLists();
    ours::surfaceDensity();
    measureTreePasses<Tree>("open3d");
    normals();
}

}  // namespace ombrix::benchmarks
