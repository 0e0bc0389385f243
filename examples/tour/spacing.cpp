#include "spacing.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <utility>
#include <vector>

#include <tbb/parallel_for.h>

#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/octree/morton.h>

namespace examples {

using ombrix::core::KDTree;
using ombrix::core::Octree;
using ombrix::core::parent_key;
using ombrix::core::Vector3f;

namespace {

constexpr std::size_t NEIGHBOURS = 8;
constexpr std::size_t PROBES = 24;      ///< points of a node at which the distance is measured
constexpr std::size_t CELL_PROBES = 5;  ///< the same of a cell
constexpr std::size_t FEW = 32;         ///< points that tell too little about their neighbourhood
constexpr std::size_t MANY = 1000;      ///< points of a leaf whose density may vary
constexpr std::size_t CELLS = Spacings::Local::CELLS;

/// The cell of a node's grid that a place belongs to; that of the nearest cell outside of the box.
std::size_t cellAt(const Octree::Aabb& box, const Vector3f& p) {
    std::size_t cell = 0;
    for (int c = 0; c < 3; ++c) {
        const float u = (p[c] - box.center[c] + box.radius) / (2.0f * box.radius) * static_cast<float>(CELLS);
        // What is not a number fails the comparison.
        const float inside = u > 0.0f ? std::min(u, static_cast<float>(CELLS) - 0.5f) : 0.0f;
        cell = cell * CELLS + static_cast<std::size_t>(inside);
    }
    return cell;
}

/// The spacing around some of the listed points; 0 when there are too few to tell.
float measure(const KDTree& tree, const std::vector<Vector3f>& positions,
              const std::vector<std::size_t>& listed, std::size_t probes) {
    std::vector<float> reaches;
    std::vector<std::size_t> indices;
    std::vector<float> sqDists;
    probes = std::min(probes, listed.size());
    for (std::size_t probe = 0; probe < probes; ++probe) {
        const Vector3f& p = positions[listed[probe * listed.size() / probes]];
        // The nearest is the point itself.
        if (tree.knnSearch(p, NEIGHBOURS + 1, indices, sqDists) > NEIGHBOURS)
            reaches.push_back(sqDists[NEIGHBOURS]);
    }
    if (reaches.empty())
        return 0.0f;
    const auto median = reaches.begin() + static_cast<std::ptrdiff_t>(reaches.size() / 2);
    std::nth_element(reaches.begin(), median, reaches.end());
    // n points on a disc of radius r have r sqrt(pi / n) squares each.
    return std::sqrt(*median * std::numbers::pi_v<float> / static_cast<float>(NEIGHBOURS));
}

/// Spacing of a node's own points.
Spacings::Local measure(const Octree& octree, const Octree::Node& node) {
    Spacings::Local local;
    if (!node.pc || node.pc->size() <= NEIGHBOURS)
        return local;
    const auto& positions = node.pc->positions();
    const KDTree tree(positions);
    std::vector<std::size_t> all(positions.size());
    std::iota(all.begin(), all.end(), std::size_t{0});
    local.typical = measure(tree, positions, all, PROBES);
    if (node.children != 0 || positions.size() < MANY)
        return local;

    const Octree::Aabb box = octree.node_aabb(node);
    std::vector<std::vector<std::size_t>> members(CELLS * CELLS * CELLS);
    for (std::size_t i = 0; i < positions.size(); ++i)
        members[cellAt(box, positions[i])].push_back(i);
    for (const auto& listed : members)
        local.byCell.push_back(measure(tree, positions, listed, CELL_PROBES));
    return local;
}

}  // namespace

float Spacings::Local::at(const Octree::Aabb& box, const Vector3f& p) const {
    const float there = byCell.empty() ? 0.0f : byCell[cellAt(box, p)];
    return there > 0.0f ? there : typical;
}

Spacings::Spacings(const Octree& tree) {
    // Ascending keys: parents before children.
    std::vector<std::uint64_t> keys = tree.keys();
    std::sort(keys.begin(), keys.end());
    std::vector<Local> own(keys.size());
    tbb::parallel_for(std::size_t{0}, keys.size(),
                      [&](std::size_t i) { own[i] = measure(tree, tree.node(keys[i])); });

    // Means over all points below a node
    struct Mean {
        double sum = 0.0;
        double points = 0.0;
    };
    std::unordered_map<std::uint64_t, Mean, Octree::hash> below;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const auto& cloud = tree.node(keys[i]).pc;
        if (own[i].typical <= 0.0f || cloud->size() < FEW)
            continue;
        const auto points = static_cast<double>(cloud->size());
        for (std::uint64_t key = keys[i]; key > tree.rootKey();) {
            key = parent_key(key);
            below[key].sum += points * static_cast<double>(own[i].typical);
            below[key].points += points;
        }
    }
    const auto meanAround = [&](std::uint64_t key) {
        while (key > tree.rootKey()) {
            key = parent_key(key);
            if (const auto found = below.find(key); found != below.end())
                return static_cast<float>(found->second.sum / found->second.points);
        }
        return 0.0f;
    };

    for (std::size_t i = 0; i < keys.size(); ++i) {
        const auto& cloud = tree.node(keys[i]).pc;
        if (!cloud || cloud->size() == 0)
            continue;
        const auto above = byKey_.find(parent_key(keys[i]));
        const float around = above != byKey_.end() ? above->second.typical
                             : cloud->size() < FEW ? meanAround(keys[i])
                                                   : 0.0f;
        Local& local = own[i];
        if (around > 0.0f) {
            local.typical = local.typical > 0.0f ? std::min(local.typical, around) : around;
            for (float& spacing : local.byCell)
                spacing = std::min(spacing, around);
        }
        // A handful of points is all there is.
        if (local.typical <= 0.0f)
            local.typical = 0.01f * tree.extend();
        byKey_[keys[i]] = std::move(local);
    }
}

const Spacings::Local& Spacings::of(std::uint64_t key) const {
    static const Local none;
    const auto found = byKey_.find(key);
    return found == byKey_.end() ? none : found->second;
}

}  // namespace examples
