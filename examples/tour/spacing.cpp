#include "spacing.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <tbb/parallel_for.h>

#include <ombrix/core/octree/morton.h>

namespace examples {

using ombrix::core::Octree;
using ombrix::core::parent_key;
using ombrix::core::Vector3f;

namespace {

constexpr double FEW = 32;  ///< points that tell too little about the surface on their own

struct Cover {
    double area = 0.0;
    double points = 0.0;

    [[nodiscard]] float spacing() const { return static_cast<float>(std::sqrt(area / points)); }
};

/// What the points of a node cover.
Cover coverOf(const Octree& tree, const Octree::Node& node) {
    if (!node.pc || node.pc->size() == 0)
        return {};
    const auto& positions = node.pc->positions();
    const Octree::Aabb box = tree.node_aabb(node);
    const double edge = 2.0 * static_cast<double>(box.radius);
    // About four points a cell of a surface that crosses the whole cube.
    const int cells =
        std::clamp(static_cast<int>(std::sqrt(static_cast<double>(positions.size())) / 2.0), 1, 32);
    const float scale = static_cast<float>(cells / edge);
    const Vector3f low = box.center.array() - box.radius;

    std::vector<bool> taken(static_cast<std::size_t>(cells) * static_cast<std::size_t>(cells) *
                            static_cast<std::size_t>(cells));
    std::size_t occupied = 0;
    for (const Vector3f& p : positions) {
        const Vector3f u = (p - low) * scale;
        if (!u.allFinite())
            continue;
        std::size_t cell = 0;
        for (int c = 0; c < 3; ++c)
            cell = cell * static_cast<std::size_t>(cells) +
                   static_cast<std::size_t>(std::clamp(u[c], 0.0f, static_cast<float>(cells) - 0.5f));
        if (!taken[cell]) {
            taken[cell] = true;
            ++occupied;
        }
    }
    const double cellEdge = edge / cells;
    return {static_cast<double>(occupied) * cellEdge * cellEdge, static_cast<double>(positions.size())};
}

}  // namespace

Spacings::Spacings(const Octree& tree) {
    // Ascending keys: parents before children.
    std::vector<std::uint64_t> keys = tree.keys();
    std::sort(keys.begin(), keys.end());
    std::vector<Cover> covers(keys.size());
    tbb::parallel_for(std::size_t{0}, keys.size(),
                      [&](std::size_t i) { covers[i] = coverOf(tree, tree.node(keys[i])); });

    // What everything below a node covers together
    std::unordered_map<std::uint64_t, Cover, Octree::hash> below;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (covers[i].points == 0.0)
            continue;
        for (std::uint64_t key = keys[i]; key > 1;) {
            key = parent_key(key);
            below[key].area += covers[i].area;
            below[key].points += covers[i].points;
        }
    }

    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (covers[i].points == 0.0)
            continue;
        float spacing = covers[i].spacing();
        if (keys[i] != tree.rootKey()) {
            const std::uint64_t parent = parent_key(keys[i]);
            if (const auto above = byKey_.find(parent); above != byKey_.end())
                spacing = std::min(spacing, above->second);
            else if (covers[i].points < FEW)
                spacing = std::min(spacing, 2.0f * below[parent].spacing());
        }
        byKey_[keys[i]] = spacing;
    }
}

float Spacings::operator()(std::uint64_t key) const {
    const auto found = byKey_.find(key);
    return found == byKey_.end() ? 0.0f : found->second;
}

}  // namespace examples
