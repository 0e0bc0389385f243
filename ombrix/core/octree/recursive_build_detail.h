#pragma once

#include <bit>
#include <cstdint>

#include <ombrix/core/octree/octree_converter.h>
#include <ombrix/core/services/work_detail.h>

namespace ombrix::core::detail {

/// What the first number of a pair is: a point's index, or that in the lower half and the point's scalar in
/// the upper one, which saves filling leaves one of three reads from anywhere in memory.
enum class PairContent { INDEX, INDEX_AND_SCALAR };

/// Whether a cloud's pairs can hold scalars: every point has one, and an index that fits into half a number.
[[nodiscard]] inline bool canHoldScalars(const PointCloud& cloud) {
    return cloud.scalars().size() >= cloud.size() && cloud.size() - 1 <= 0xffffffff;
}
[[nodiscard]] inline std::uint64_t withScalar(std::uint64_t index, float scalar) {
    return std::uint64_t{std::bit_cast<std::uint32_t>(scalar)} << 32 | index;
}
[[nodiscard]] inline float scalarOf(std::uint64_t indexAndScalar) {
    return std::bit_cast<float>(static_cast<std::uint32_t>(indexAndScalar >> 32));
}

/// `OctreeConverter::recursiveBuild`, watched unless `work` is null. When it is stopped, `out` holds a part
/// of the nodes, the new leaves without clouds. Where pairs hold scalars, those of `cloud` have to be absent.
void recursiveBuild(const PointCloud& cloud, const OctreeConverter::PairVector& pairs,
                    const OctreeConverter::NodeChunk& chunk, unsigned int threshold, bool positionsOnly,
                    Octree& out, Work* work, PairContent content);

}  // namespace ombrix::core::detail
