#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/points/point_reader_detail.h>

namespace ombrix::core {
namespace {

/// Manhattan distance of two codes in finest cells; half a cell is as much as the codes resolve.
std::int64_t manhattan(std::uint64_t a, std::uint64_t b) {
    std::int64_t ax, ay, az, bx, by, bz;
    morton3d<std::uint64_t>(a).decode(ax, ay, az);
    morton3d<std::uint64_t>(b).decode(bx, by, bz);
    return std::abs(ax - bx) + std::abs(ay - by) + std::abs(az - bz);
}

}  // namespace

void NestedOctreeFactory::add_optim(const PointCloud& cloud) {
    widenScalarRange(cloud);

    const detail::PointReader reader(cloud);
    OctreeConverter::PairVector pairs = detail::mortonPairs(cloud.size(), [&](std::uint64_t i) {
        const Vector3f local = cloud.positions()[i] - origin_;
        return morton_keyd(local.cast<double>()).key;
    });
    detail::sortByCode(pairs);
    for (const auto& [i, code] : pairs) {
        Point p = reader.point(i);
        p.position -= origin_;
        p.index = code;
        add_optim(node(1), p);
    }
}

void NestedOctreeFactory::add_optim(Node& node, const Point& point) {
    const unsigned int depth = node_depth(node.key);
    if (!node.expanded) {
        keepInBucket(node, point, MAX_DEPTH - 1);
        return;
    }

    // A cell below the finest level is the finest cell itself
    const unsigned int level = std::min(depth + SPACING_DEPTH, MAX_DEPTH);
    const unsigned int below = MAX_DEPTH - level;
    const std::uint64_t cell = point.index >> (3 * below);
    const auto [entry, stored] = node.grid.try_emplace(cell, point);
    if (stored) {
        return;
    }

    Point displaced = point;
    Point& occupant = entry->second;
    const std::uint64_t half = below > 0 ? morton3d<std::uint64_t>(1, 1, 1).key << (3 * (below - 1)) : 0;
    const std::uint64_t center = cell << (3 * below) | half;
    if (manhattan(point.index, center) < manhattan(occupant.index, center)) {
        std::swap(occupant, displaced);
    }
    const unsigned int shift = 3 * (MAX_DEPTH - 1 - std::min(depth, MAX_DEPTH - 1));
    pushDown(node, displaced, static_cast<unsigned int>(displaced.index >> shift & 7));
}

}  // namespace ombrix::core
