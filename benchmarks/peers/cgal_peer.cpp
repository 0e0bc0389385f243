// Full octrees and grid merging beside CGAL. Its octree sorts the points themselves and hands out ranges of
// them; ours copies them into the leaves' clouds.
#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include <CGAL/Octree.h>
#include <CGAL/Simple_cartesian.h>
#include <CGAL/grid_simplify_point_set.h>

#include "benchmarks/ours/ours.h"
#include "benchmarks/support/bench_cloud.h"
#include "benchmarks/support/rows.h"

namespace {

using namespace ombrix::benchmarks;

using Kernel = CGAL::Simple_cartesian<float>;
using Points = std::vector<Kernel::Point_3>;

std::shared_ptr<const Points> converted(std::int64_t n) {
    const auto points = std::make_shared<Points>();
    points->reserve(benchPoints(n).size());
    for (const auto& p : benchPoints(n)) {
        points->emplace_back(p.x(), p.y(), p.z());
    }
    return points;
}

/// Points for work that reorders them, put back into their order when its result is given up.
struct Borrowed {
    std::shared_ptr<const Points> source;
    std::shared_ptr<Points> points;

    explicit Borrowed(std::shared_ptr<const Points> from)
        : source(std::move(from)), points(std::make_shared<Points>(*source)) {}
    [[nodiscard]] std::shared_ptr<Points> take() const {
        return {points.get(), [lent = *this](Points*) { *lent.points = *lent.source; }};
    }
};

struct Built {
    std::shared_ptr<Points> points;
    CGAL::Octree<Kernel, Points> octree;
    explicit Built(std::shared_ptr<Points> taken) : points(std::move(taken)), octree(*points) {}
};

void fullOctree() {
    ours::fullOctree();
    measure(
        rows::FULL_OCTREE, "cgal",
        [](std::int64_t n) {
            return [points = Borrowed(converted(n))] {
                auto built = std::make_unique<Built>(points.take());
                built->octree.refine(21, LEAF_CAPACITY);
                return built;
            };
        },
        [](std::int64_t, const auto& built) {
            std::uint64_t points = 0;
            std::uint64_t largest = 0;
            for (const auto& node : built->octree.template traverse<CGAL::Orthtrees::Leaves_traversal>()) {
                points += node.size();
                largest = std::max<std::uint64_t>(largest, node.size());
            }
            return leafAnswer(points, largest);
        });
}

void gridPick() {
    ours::gridPick();
    measure(
        rows::GRID_PICK, "cgal",
        [](std::int64_t n) {
            return [borrowed = Borrowed(converted(n)), cell = tenPointCell(n)] {
                std::shared_ptr<Points> points = borrowed.take();
                const auto kept = CGAL::grid_simplify_point_set(*points, cell);
                return std::pair(points, kept - points->begin());
            };
        },
        [](std::int64_t, const auto& kept) { return Answer{static_cast<double>(kept.second)}; });
}

}  // namespace

int main(int argc, char** argv) {
    return runMeasures(argc, argv, {fullOctree, gridPick});
}
