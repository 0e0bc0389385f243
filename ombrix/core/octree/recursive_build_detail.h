#pragma once

#include <ombrix/core/octree/octree_converter.h>
#include <ombrix/core/services/work_detail.h>

namespace ombrix::core::detail {

/// `OctreeConverter::recursiveBuild`, watched unless `work` is null. When it is stopped, `out` holds a part
/// of the nodes, some leaves without their points.
void recursiveBuild(const PointCloud& cloud, const OctreeConverter::PairVector& pairs,
                    const OctreeConverter::NodeChunk& chunk, unsigned int threshold, bool positionsOnly,
                    Octree& out, Work* work);

/// Removes all nodes, which takes long where they hold many clouds: on several threads.
void removeNodes(Octree& octree);

}  // namespace ombrix::core::detail
