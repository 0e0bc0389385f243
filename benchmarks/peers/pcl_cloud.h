#pragma once

#include <cstdint>

#include <pcl/point_cloud.h>
#include <pcl/point_types.h>

#include "benchmarks/support/bench_cloud.h"

namespace ombrix::benchmarks {

using PclCloud = pcl::PointCloud<pcl::PointXYZ>;

inline PclCloud::Ptr pclCloud(std::int64_t n) {
    const PclCloud::Ptr cloud(new PclCloud);
    cloud->reserve(benchPoints(n).size());
    for (const core::Vector3f& p : benchPoints(n)) {
        cloud->push_back({p.x(), p.y(), p.z()});
    }
    return cloud;
}

void addPclNeighbourhoods();  ///< registers the rows of searches and normals

}  // namespace ombrix::benchmarks
