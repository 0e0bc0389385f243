#pragma once

#include <cstdint>
#include <memory>

#include <open3d/geometry/PointCloud.h>

#include "benchmarks/support/bench_cloud.h"

namespace ombrix::benchmarks {

/// Its positions are in double precision.
inline std::shared_ptr<open3d::geometry::PointCloud> open3dCloud(std::int64_t n) {
    const auto cloud = std::make_shared<open3d::geometry::PointCloud>();
    cloud->points_.reserve(benchPoints(n).size());
    for (const core::Vector3f& p : benchPoints(n)) {
        cloud->points_.push_back(p.cast<double>());
    }
    return cloud;
}

void addOpen3dNeighbourhoods();  ///< registers the rows of searches and normals

}  // namespace ombrix::benchmarks
