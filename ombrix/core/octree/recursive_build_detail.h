#pragma once

#include <ombrix/core/octree/octree_converter.h>
#include <ombrix/core/services/work_detail.h>

namespace ombrix::core::detail {

/// `OctreeConverter::recursiveBuild`, watched unless `work` is null. When it is stopped, `out` holds a part
/// of the nodes, the new leaves without clouds.
void recursiveBuild(const PointCloud& cloud, const OctreeConverter::PairVector& pairs,
                    const OctreeConverter::NodeChunk& chunk, unsigned int threshold, bool positionsOnly,
                    Octree& out, Work* work);

}  // namespace ombrix::core::detail
