#include <algorithm>
#include <cstdint>
#include <memory>
#include <queue>
#include <vector>

#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/points/point_writer_detail.h>
#include <ombrix/core/services/work_detail.h>

namespace ombrix::core {
namespace {

/// Lists the points of one node after another by code, equal codes in the order of arrival.
class CodeOrder {
public:
    void add(const Point& p) {
        pairs_.emplace_back(points_.size(), p.index);
        points_.push_back(&p);
        flags_ |= p.flags;
    }
    void sort() {
        scratch_.resize(std::max(scratch_.size(), pairs_.size()));
        detail::sortByCode(pairs_.data(), scratch_.data(), pairs_.size());
    }
    void clear() {
        pairs_.clear();
        points_.clear();
        flags_ = 0;
    }
    [[nodiscard]] std::size_t size() const { return points_.size(); }
    [[nodiscard]] const Point& operator[](std::size_t i) const { return *points_[pairs_[i].first]; }
    /// Union of the points' flags.
    [[nodiscard]] std::uint8_t flags() const { return flags_; }

private:
    std::vector<OctreeConverter::Pair> pairs_;  // (position in points_, code)
    std::vector<OctreeConverter::Pair> scratch_;
    std::vector<const Point*> points_;
    std::uint8_t flags_ = 0;
};

void append(PointCloud& cloud, const CodeOrder& order) {
    const detail::PointWriter writer(cloud, order.size(), order.flags());
    for (std::size_t i = 0; i < order.size(); ++i) {
        writer.set(i, order[i]);
    }
}

}  // namespace

void NestedOctreeFactory::operator()(Octree& out) {
    factory(out);
    clear();
}

bool NestedOctreeFactory::operator()(Octree& out, const WorkContext& context) {
    return detail::runWatched(context, [&](detail::Work& work) {
        try {
            writeTo(out, &work);
        } catch (...) {
            out.nodes().clear();
            throw;
        }
        clear();
    });
}

void NestedOctreeFactory::factory(Octree& out) {
    writeTo(out, nullptr);
}

void NestedOctreeFactory::writeTo(Octree& out, detail::Work* work) {
    if (work != nullptr) {
        work->begin(1.0, size());
    }
    detail::WorkSteps steps(work, 1);
    copyStateTo(out, Octree::NESTED);
    CodeOrder order;
    std::vector<Point> sorted;
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
        // One of the two is empty, unless add_node changed what the node is
        for (const auto& [cell, p] : source.grid) {
            order.add(p);
        }
        for (const Point& p : source.points) {
            order.add(p);
        }
        if (order.size() > 0) {
            order.sort();
            if (!target.pc) {
                target.pc = std::make_shared<PointCloud>();
            }
            append(*target.pc, order);
            // What may be stopped keeps the order of arrival, which decides ties of later points
            if (source.grid.empty() && work == nullptr) {
                sorted.clear();
                for (std::size_t i = 0; i < order.size(); ++i) {
                    sorted.push_back(order[i]);
                }
                std::copy(sorted.begin(), sorted.end(), source.points.begin());
            }
        }
        out.update_node(key);
        steps.step(order.size());

        for (unsigned int octant = 0; octant < 8 && node_depth(key) < MAX_DEPTH; ++octant) {
            if ((source.children >> octant & 1u) != 0) {
                keys.push(child_key(key, octant));
            }
        }
    }
}

}  // namespace ombrix::core
