#include "spacing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include <tbb/parallel_for.h>

#include <ombrix/core/octree/morton.h>

namespace examples {

using ombrix::core::Octree;
using ombrix::core::parent_key;
using ombrix::core::Vector3f;

namespace {

constexpr std::size_t NEIGHBOURS = 8;
constexpr std::size_t PROBES = 24;  ///< points of a node at which the distance is measured
constexpr std::size_t FEW = 32;     ///< points that tell too little about their neighbourhood

/// Squared distance to the NEIGHBOURS-th other point.
float sqReach(const std::vector<Vector3f>& positions, std::size_t probe) {
    std::array<float, NEIGHBOURS> nearest;
    nearest.fill(std::numeric_limits<float>::max());
    for (std::size_t i = 0; i < positions.size(); ++i) {
        float sqDist = (positions[i] - positions[probe]).squaredNorm();
        if (i == probe || !(sqDist < nearest.back()))
            continue;
        for (float& other : nearest)
            if (sqDist < other)
                std::swap(sqDist, other);
    }
    return nearest.back();
}

/// Spacing of a node's own points; 0 when there are too few to tell.
float measure(const Octree::Node& node) {
    if (!node.pc || node.pc->size() <= NEIGHBOURS)
        return 0.0f;
    const auto& positions = node.pc->positions();
    const std::size_t probes = std::min(PROBES, positions.size());
    std::vector<float> reaches;
    for (std::size_t probe = 0; probe < probes; ++probe)
        if (const float sqDist = sqReach(positions, probe * positions.size() / probes); sqDist < 1e30f)
            reaches.push_back(sqDist);
    if (reaches.empty())
        return 0.0f;
    const auto median = reaches.begin() + static_cast<std::ptrdiff_t>(reaches.size() / 2);
    std::nth_element(reaches.begin(), median, reaches.end());
    // n points on a disc of radius r have r sqrt(pi / n) squares each.
    return std::sqrt(*median * std::numbers::pi_v<float> / static_cast<float>(NEIGHBOURS));
}

}  // namespace

Spacings::Spacings(const Octree& tree) {
    // Ascending keys: parents before children.
    std::vector<std::uint64_t> keys = tree.keys();
    std::sort(keys.begin(), keys.end());
    std::vector<float> own(keys.size());
    tbb::parallel_for(std::size_t{0}, keys.size(),
                      [&](std::size_t i) { own[i] = measure(tree.node(keys[i])); });

    // Means over all points below a node
    struct Mean {
        double sum = 0.0;
        double points = 0.0;
    };
    std::unordered_map<std::uint64_t, Mean, Octree::hash> below;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const auto& cloud = tree.node(keys[i]).pc;
        if (own[i] <= 0.0f || cloud->size() < FEW)
            continue;
        const auto points = static_cast<double>(cloud->size());
        for (std::uint64_t key = keys[i]; key > tree.rootKey();) {
            key = parent_key(key);
            below[key].sum += points * static_cast<double>(own[i]);
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
        const float around = above != byKey_.end() ? above->second
                             : cloud->size() < FEW ? meanAround(keys[i])
                                                   : 0.0f;
        float spacing = own[i];
        if (around > 0.0f)
            spacing = spacing > 0.0f ? std::min(spacing, around) : around;
        // A handful of points is all there is.
        if (spacing <= 0.0f)
            spacing = 0.01f * tree.extend();
        byKey_[keys[i]] = spacing;
    }
}

float Spacings::operator()(std::uint64_t key) const {
    const auto found = byKey_.find(key);
    return found == byKey_.end() ? 0.0f : found->second;
}

}  // namespace examples
