#include <cstdint>
#include <typeinfo>
#include <utility>

#include <ombrix/core/octree/nested_grid_detail.h>
#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/octree/nested_streams_detail.h>

namespace ombrix::core {
void NestedOctreeFactory::add(const PointCloud& cloud) {
    insertAll(cloud, detail::LocalPoints(cloud, origin_, extend_), nullptr);
}

void NestedOctreeFactory::add(const PointCloud& cloud, const Vector3d& shift) {
    insertAll(cloud, detail::LocalPoints(cloud, Vector3d(shift - origin_.cast<double>()), extend_), nullptr);
}

bool NestedOctreeFactory::add(const PointCloud& cloud, const WorkContext& context) {
    return insertWatched(cloud, detail::LocalPoints(cloud, origin_, extend_), context);
}

bool NestedOctreeFactory::add(const PointCloud& cloud, const Vector3d& shift, const WorkContext& context) {
    return insertWatched(cloud, detail::LocalPoints(cloud, Vector3d(shift - origin_.cast<double>()), extend_),
                         context);
}

bool NestedOctreeFactory::insertWatched(const PointCloud& cloud, const detail::LocalPoints& points,
                                        const WorkContext& context) {
    return detail::runWatched(context, [&](detail::Work& work) {
        try {
            insertAll(cloud, points, &work);
        } catch (...) {
            clear();
            scalarMin_ = 3.4028235e38f;
            scalarMax_ = -3.4028235e38f;
            throw;
        }
    });
}

void NestedOctreeFactory::insertAll(const PointCloud& cloud, const detail::LocalPoints& points,
                                    detail::Work* work) {
    widenScalarRange(cloud);
    // A derived builder sees every insertion, and in the order in which one causes the next
    if (typeid(*this) == typeid(NestedOctreeFactory)) {
        NestedStreams(*this, points, work).insert();
        return;
    }
    if (work != nullptr) {
        work->begin(1.0, points.size());
    }
    detail::WorkSteps steps(work);
    for (std::uint64_t i = 0; i < points.size(); ++i) {
        add(node(1), points.point(i));
        steps.step();
    }
}

void NestedOctreeFactory::add(const Point& point) {
    widenScalarRange(point.scalar, point.scalar);
    add(node(1), localPoint(point));
}

void NestedOctreeFactory::add_local(const Point& point) {
    widenScalarRange(point.scalar, point.scalar);
    Point p = point;
    p.index = morton_keyd(p.position.cast<double>()).key;
    add(node(1), p);
}

Point NestedOctreeFactory::localPoint(const Point& point) const {
    Point p = point;
    p.position -= origin_;
    p.index = morton_keyd(p.position.cast<double>()).key;
    return p;
}

void NestedOctreeFactory::add(Node& node, const Point& point) {
    if (!node.expanded) {
        keepInBucket(node, point, DEEPEST_GRID);
        return;
    }

    const auto rootEdge = static_cast<double>(extend_);
    const detail::NodeCube cube(node.key, rootEdge);
    const detail::GridCell cell = detail::gridCell(cube, detail::keyPosition(point.position));
    const auto [entry, stored] = node.grid.try_emplace(cell.key, point);
    if (stored) {
        return;
    }
    Point displaced = point;
    if (detail::isNearer(cube, cell, entry->second)) {
        std::swap(entry->second, displaced);
    }
    pushDown(node, displaced, detail::octantBelow(cube, node.key, rootEdge, displaced.position));
}

void NestedOctreeFactory::pushDown(Node& node, const Point& displaced, unsigned int octant) {
    if (node_depth(node.key) < MAX_DEPTH) {
        add(child(node, octant), displaced);
        return;
    }
    // Made a grid from outside where there is no level below: keep the point beside the grid's cells
    std::uint64_t cell = (std::uint64_t{1} << 63) + node.grid.size();
    while (!node.grid.try_emplace(cell, displaced).second) {
        ++cell;
    }
}

void NestedOctreeFactory::reserveBucket(Node& node) {
    if (node.points.capacity() < EXPAND_THRES) {
        node.points.reserve(EXPAND_THRES);
    }
}

void NestedOctreeFactory::keepInBucket(Node& node, const Point& point, unsigned int deepestGrid) {
    reserveBucket(node);
    node.points.push_back(point);
    if (node.points.size() >= EXPAND_THRES && node_depth(node.key) <= deepestGrid) {
        expand(node);
    }
}

void NestedOctreeFactory::expand(Node& node) {
    becomeGrid(node);
    for (std::size_t i = 0; i < node.points.size(); ++i) {
        add(node, node.points[i]);
    }
    std::vector<Point>().swap(node.points);
}

void NestedOctreeFactory::becomeGrid(Node& node) {
    const std::uint8_t children = std::exchange(node.children, std::uint8_t{0});
    node.expanded = true;
    for (std::uint8_t i = 0; i < 8; ++i) {
        // A loaded bucket may have children
        if ((children >> i & 1u) != 0) {
            setChild(node, i);
        }
    }
    node.grid.reserve(EXPAND_THRES);
}

}  // namespace ombrix::core
