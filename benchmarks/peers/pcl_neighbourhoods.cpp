#include "benchmarks/peers/pcl_cloud.h"

#include <memory>
#include <vector>

#include <pcl/features/normal_3d_omp.h>
#include <pcl/kdtree/kdtree_flann.h>
#include <pcl/search/kdtree.h>

#include "benchmarks/ours/ours.h"
#include "benchmarks/support/tree_measures.h"

namespace ombrix::benchmarks {

namespace {

class Tree {
public:
    using Input = PclCloud;
    struct Buffer {
        pcl::Indices indices;
        std::vector<float> sqDists;
    };

    static std::shared_ptr<const Input> input(std::int64_t n) { return pclCloud(n); }

    explicit Tree(const Input& cloud) : cloud_(cloud) {
        // A pointer that does not own: the caller keeps the cloud.
        index_.setInputCloud(PclCloud::ConstPtr(PclCloud::ConstPtr(), &cloud));
    }

    std::size_t knn(std::size_t i, std::size_t k, Buffer& buffer) const {
        return static_cast<std::size_t>(
            index_.nearestKSearch(cloud_[i], static_cast<unsigned>(k), buffer.indices, buffer.sqDists));
    }
    static float sqDist(const Buffer& buffer, std::size_t j) { return buffer.sqDists[j]; }

    /// Its lists are always sorted.
    std::size_t radius(std::size_t i, float radius, Buffer& buffer, bool) const {
        return static_cast<std::size_t>(
            index_.radiusSearch(cloud_[i], radius, buffer.indices, buffer.sqDists));
    }

private:
    const PclCloud& cloud_;
    pcl::KdTreeFLANN<pcl::PointXYZ> index_;
};

void normals() {
    ours::normals();
    measure(
        rows::NORMALS, "pcl",
        [](std::int64_t n) {
            return [cloud = pclCloud(n)] {
                pcl::NormalEstimationOMP<pcl::PointXYZ, pcl::Normal> estimation(
                    static_cast<unsigned>(threadCount()));
                estimation.setInputCloud(cloud);
                estimation.setSearchMethod(std::make_shared<pcl::search::KdTree<pcl::PointXYZ>>());
                estimation.setKSearch(NEIGHBOURS);
                pcl::PointCloud<pcl::Normal> normals;
                estimation.compute(normals);
                return normals;
            };
        },
        [](std::int64_t, const pcl::PointCloud<pcl::Normal>& normals) {
            return normalAnswer(normals.size(), [&](std::size_t i) -> core::Vector3d {
                return normals[i].getNormalVector3fMap().cast<double>();
            });
        },
        Pace::SLOW);
}

}  // namespace

void addPclNeighbourhoods() {
    ours::kdTreeBuild();
    measureTreeBuild<Tree>("pcl");
    ours::knnPass();
    ours::meanNearestDistance();
    ours::radiusLists();
    ours::surfaceDensity();
    measureTreePasses<Tree>("pcl");
    normals();
}

}  // namespace ombrix::benchmarks
