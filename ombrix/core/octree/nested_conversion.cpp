#include <algorithm>
#include <cstdint>
#include <memory>
#include <queue>
#include <utility>
#include <vector>

#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/points/point_writer_detail.h>

namespace ombrix::core {
namespace {

/// Lists the points of one node after another by code, equal codes in the order of arrival.
class CodeOrder {
public:
    void add(const Point& p) {
        pairs_.emplace_back(p.index, static_cast<std::uint32_t>(points_.size()));
        points_.push_back(&p);
    }
    void sort() { std::sort(pairs_.begin(), pairs_.end()); }
    void clear() {
        pairs_.clear();
        points_.clear();
    }
    [[nodiscard]] std::size_t size() const { return points_.size(); }
    [[nodiscard]] const Point& operator[](std::size_t i) const { return *points_[pairs_[i].second]; }

private:
    std::vector<std::pair<std::uint64_t, std::uint32_t>> pairs_;
    std::vector<const Point*> points_;
};

void append(PointCloud& cloud, const CodeOrder& order) {
    std::uint8_t flags = 0;
    for (std::size_t i = 0; i < order.size(); ++i) {
        flags |= order[i].flags;
    }
    const detail::PointWriter writer(cloud, order.size(), flags);
    for (std::size_t i = 0; i < order.size(); ++i) {
        writer.set(i, order[i]);
    }
}

}  // namespace

void NestedOctreeFactory::operator()(Octree& out) {
    factory(out);
    clear();
}

void NestedOctreeFactory::factory(Octree& out) {
    copyStateTo(out, Octree::NESTED);
    CodeOrder order;
    std::queue<std::uint64_t> keys;
    keys.push(1);
    while (!keys.empty()) {
        const std::uint64_t key = keys.front();
        keys.pop();
        Node& source = node(key);
        Octree::Node& target = out.nodes()[key];
        target.key = key;
        target.children = source.children;
        target.size = source.pointCount;

        order.clear();
        if (source.expanded) {
            for (const auto& [cell, p] : source.grid) {
                order.add(p);
            }
        } else {
            for (const Point& p : source.points) {
                order.add(p);
            }
        }
        if (order.size() > 0) {
            order.sort();
            if (!target.pc) {
                target.pc = std::make_shared<PointCloud>();
            }
            append(*target.pc, order);
        }
        out.update_node(key);

        for (unsigned int octant = 0; octant < 8 && node_depth(key) < MAX_DEPTH; ++octant) {
            if ((source.children >> octant & 1u) != 0) {
                keys.push(child_key(key, octant));
            }
        }
    }
}

}  // namespace ombrix::core
