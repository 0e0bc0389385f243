#include <algorithm>

#include <ombrix/core/octree/nested_grid_detail.h>
#include <ombrix/core/octree/nested_streams_detail.h>

namespace ombrix::core {

NestedStreams::Inlet::Inlet(NestedStreams& streams, Node& node, std::uint64_t arriving)
    : streams_(streams), node_(node) {
    if (node.expanded) {
        return;
    }
    if (node.points.size() + arriving < NestedOctreeFactory::EXPAND_THRES ||
        node_depth(node.key) > NestedOctreeFactory::DEEPEST_GRID) {
        NestedOctreeFactory::reserveBucket(node);
        return;
    }
    streams.factory_.becomeGrid(node);
    for (const Point& p : node.points) {
        put(p);
    }
    std::vector<Point>().swap(node.points);
}

void NestedStreams::Inlet::flush() {
    const auto rootEdge = static_cast<double>(streams_.factory_.extend_);
    const detail::NodeCube cube(node_.key, rootEdge);
    std::array<detail::GridCell, RUN> cells;
    for (std::size_t i = 0; i < waiting_; ++i) {
        cells[i] = detail::gridCell(cube, detail::keyPosition(run_[i].position));
        node_.grid.prefetchPlace(cells[i].key);
    }
    for (std::size_t i = 0; i < waiting_; ++i) {
        node_.grid.prefetchEntry(cells[i].key);
    }
    for (std::size_t i = 0; i < waiting_; ++i) {
        Point& p = run_[i];
        if (detail::settle(node_.grid, cube, cells[i], p)) {
            below_[detail::octantBelow(cube, node_.key, rootEdge, p)].push(p);
        }
    }
    waiting_ = 0;
}

void NestedStreams::Inlet::close() {
    flush();
    for (unsigned int octant = 0; octant < 8; ++octant) {
        Stream stream = std::move(below_[octant]);
        if (stream.size() == 0) {
            continue;
        }
        Inlet inlet(streams_, streams_.factory_.child(node_, octant), stream.size());
        for (std::vector<Point>& block : stream.blocks()) {
            for (const Point& p : block) {
                inlet.put(p);
            }
            std::vector<Point>().swap(block);
        }
        inlet.close();
    }
}

}  // namespace ombrix::core
