#pragma once

#include <cstdint>
#include <unordered_map>

#include <ombrix/core/octree/octree.h>

namespace examples {

/// How far apart neighbouring points lie where a node is the finest one drawn, in units of position.
///
/// A node's points are taken to cover a surface: its area is that of the cells they occupy in a grid coarse
/// enough for several points a cell. Where the parent has points, too, these lie between, so a node is never
/// sparser than its parent. A few points, in a cube that the surface only touches, are bounded by what all
/// points below the parent give together.
class Spacings {
public:
    explicit Spacings(const ombrix::core::Octree& tree);

    /// 0 for a node that is not in the tree.
    [[nodiscard]] float operator()(std::uint64_t key) const;

private:
    std::unordered_map<std::uint64_t, float, ombrix::core::Octree::hash> byKey_;
};

}  // namespace examples
