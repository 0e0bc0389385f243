#pragma once

#include <cstdint>
#include <unordered_map>

#include <ombrix/core/octree/octree.h>

namespace examples {

/// How far apart neighbouring points lie where a node is the finest one drawn, in units of position.
///
/// Measured at a few points of each node as what a surface of points would have whose eighth neighbour is as
/// far away. A node is never sparser than its parent, since the parent's points lie between its own. Where
/// the parent has none, a node of a few points has the spacing of its neighbourhood.
class Spacings {
public:
    explicit Spacings(const ombrix::core::Octree& tree);

    /// 0 for a node that is not in the tree or has no points.
    [[nodiscard]] float operator()(std::uint64_t key) const;

private:
    std::unordered_map<std::uint64_t, float, ombrix::core::Octree::hash> byKey_;
};

}  // namespace examples
