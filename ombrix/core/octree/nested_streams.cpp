#include <algorithm>
#include <utility>

#include <ombrix/core/octree/nested_grid_detail.h>
#include <ombrix/core/octree/nested_streams_detail.h>

namespace ombrix::core {
namespace {

constexpr std::uint64_t BATCH = 1u << 25;  ///< bounds the memory of waiting points, 0.5 GB
constexpr std::size_t RUN = 32;            ///< points whose memory is asked for ahead, together

}  // namespace

/// Every point counts once when it has passed the root and once when it comes to rest.
void NestedStreams::tell(std::uint64_t points) {
    if (work_ != nullptr) {
        work_->done(points + std::exchange(atRest_, 0));
    }
}

void NestedStreams::insert() {
    if (work_ != nullptr) {
        work_->begin(1.0, 2 * points_.size());
    }
    for (first_ = 0; first_ < points_.size(); first_ += BATCH) {
        insertBatch(std::min(points_.size() - first_, BATCH));
    }
}

void NestedStreams::insertBatch(std::uint64_t count) {
    count_ = static_cast<std::uint32_t>(count);
    Node& root = factory_.node(1);
    Below below;
    const bool isGrid = prepare(root, count, below);
    Stream::Block block;
    for (std::uint32_t next = 0; next < count_;) {
        block.clear();
        for (; next < count_ && block.size() < Stream::BLOCK; ++next) {
            block.push_back(itemOf(points_.point(first_ + next), next));
        }
        if (isGrid) {
            passGrid(root, block.data(), block.size(), below);
        } else {
            keepInBucket(root, block);
        }
        tell(block.size());
    }
    passOn(root, below);
}

void NestedStreams::enter(Node& node, Stream stream) {
    Below below;
    const bool isGrid = prepare(node, stream.size(), below);
    for (Stream::Block& block : stream.blocks()) {
        if (isGrid) {
            passGrid(node, block.data(), block.size(), below);
        } else {
            keepInBucket(node, block);
        }
        tell(0);
        Stream::Block().swap(block);
    }
    passOn(node, below);
}

/// Makes the node a grid if it is going to be one; returns whether it is.
bool NestedStreams::prepare(Node& node, std::size_t arriving, Below& below) {
    if (node.expanded) {
        return true;
    }
    if (node.points.size() + arriving < NestedOctreeFactory::EXPAND_THRES ||
        node_depth(node.key) > NestedOctreeFactory::DEEPEST_GRID) {
        NestedOctreeFactory::reserveBucket(node);
        return false;
    }
    factory_.becomeGrid(node);
    Stream::Block block;
    for (const Point& p : node.points) {
        block.push_back(displace(p));
    }
    std::vector<Point>().swap(node.points);
    passGrid(node, block.data(), block.size(), below);
    return true;
}

void NestedStreams::keepInBucket(Node& node, const Stream::Block& block) {
    for (const Item& item : block) {
        node.points.push_back(settle(item));
    }
    atRest_ += block.size();
}

void NestedStreams::passGrid(Node& node, const Item* items, std::size_t count, Below& below) {
    const auto rootEdge = static_cast<double>(factory_.extend_);
    const detail::NodeCube cube(node.key, rootEdge);
    CellMap& grid = node.grid;
    std::array<detail::GridCell, RUN> cells;
    for (; count > 0; items += RUN) {
        const std::size_t run = std::min(count, RUN);
        count -= run;
        for (std::size_t i = 0; i < run; ++i) {
            cells[i] = detail::gridCell(cube, detail::keyPosition(items[i].position));
            grid.prefetchPlace(cells[i].key);
        }
        for (std::size_t i = 0; i < run; ++i) {
            grid.prefetchEntry(cells[i].key);
        }
        for (std::size_t i = 0; i < run; ++i) {
            const auto [entry, stored] =
                grid.try_emplace_from(cells[i].key, [&] { return settle(items[i]); });
            if (stored) {
                ++atRest_;
                continue;
            }
            Item down = items[i];
            Point& occupant = entry->second;
            if (detail::isNearer(cube, cells[i], occupant)) {
                down = displace(std::exchange(occupant, settle(items[i])));
            }
            below[detail::octantBelow(cube, node.key, rootEdge, down.position)].push(down);
        }
    }
}

void NestedStreams::passOn(Node& node, Below& below) {
    for (unsigned int octant = 0; octant < 8; ++octant) {
        if (below[octant].size() > 0) {
            enter(factory_.child(node, octant), std::move(below[octant]));
        }
    }
}

NestedStreams::Item NestedStreams::itemOf(const Point& p, std::uint32_t fields) {
    return {p.index, p.position, p.scalar, p.color, p.flags, fields};
}

/// A record on its way again; values of fields are kept aside.
NestedStreams::Item NestedStreams::displace(const Point& p) {
    if (p.flags == 0) {
        return itemOf(p, 0);
    }
    if (vacant_.empty()) {
        vacant_.push_back(static_cast<std::uint32_t>(aside_.size()));
        aside_.emplace_back();
    }
    const std::uint32_t place = vacant_.back();
    vacant_.pop_back();
    aside_[place] = p;
    return itemOf(p, count_ + place);
}

/// The record of a point that comes to rest.
Point NestedStreams::settle(const Item& item) {
    if (item.flags != 0 && item.fields >= count_) {
        vacant_.push_back(item.fields - count_);
        return aside_[item.fields - count_];
    }
    Point p;
    p.index = item.code;
    p.position = item.position;
    p.scalar = item.scalar;
    p.color = item.color;
    if (item.flags != 0) {
        points_.readFields(first_ + item.fields, p);
    }
    return p;
}

}  // namespace ombrix::core
