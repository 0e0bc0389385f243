#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include <ombrix/core/octree/octree.h>
#include <ombrix/core/types.h>

namespace examples {

/// How far apart neighbouring points lie where a node is the finest one drawn, in units of position.
///
/// Measured at a few points as what a surface of points would have whose eighth neighbour is as far away;
/// in a leaf of many points, whose density may vary, in each cell of a coarse grid. A node is never sparser
/// than its parent, since the parent's points lie between its own. Where the parent has none, a node of a few
/// points has the spacing of its neighbourhood.
class Spacings {
public:
    /// Of one node.
    struct Local {
        static constexpr int CELLS = 8;  ///< of the grid along each axis

        float typical = 0.0f;       ///< 0 for a node without points
        std::vector<float> byCell;  ///< CELLS^3 with z fastest, 0 where a cell is empty; or none

        /// At a place in the node's box, relative to the tree's origin as the box.
        [[nodiscard]] float at(const ombrix::core::Octree::Aabb& box, const ombrix::core::Vector3f& p) const;
    };

    explicit Spacings(const ombrix::core::Octree& tree);

    /// Of a node; one without points for a key that is not in the tree.
    [[nodiscard]] const Local& of(std::uint64_t key) const;

private:
    std::unordered_map<std::uint64_t, Local, ombrix::core::Octree::hash> byKey_;
};

}  // namespace examples
