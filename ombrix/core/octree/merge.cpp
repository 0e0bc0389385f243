#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <utility>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>

#include <ombrix/core/octree/merge.h>
#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/padded_append_detail.h>

namespace ombrix::core {
namespace {

using Cell = std::array<std::int64_t, 3>;
using PairVector = OctreeConverter::PairVector;

/// Cell of a coordinate on one axis; far beyond any grid of floats the index stays where it fits.
std::int64_t cellOf(double coordinate, double edge) {
    constexpr double LAST = 0x1p62;
    const double index = std::floor(coordinate / edge);
    return std::isnan(index) ? 0 : static_cast<std::int64_t>(std::clamp(index, -LAST, LAST));
}

Cell cellOf(const Vector3d& p, double edge) {
    return {cellOf(p.x(), edge), cellOf(p.y(), edge), cellOf(p.z(), edge)};
}

struct CellRange {
    Cell min;
    Cell max;

    CellRange() {
        min.fill(std::numeric_limits<std::int64_t>::max());
        max.fill(std::numeric_limits<std::int64_t>::min());
    }
    void enclose(const Cell& low, const Cell& high) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            min[axis] = std::min(min[axis], low[axis]);
            max[axis] = std::max(max[axis], high[axis]);
        }
    }
};

/// (index, cell number) pairs sorted by cell; the numbers ascend with the cells. Almost always the three
/// indices of a cell, counted from the smallest, fit into one number together.
template <class CellAt>
PairVector sortedByCell(std::uint64_t count, const CellAt& cellAt) {
    const CellRange cells = tbb::parallel_reduce(
        tbb::blocked_range<std::uint64_t>(0, count), CellRange(),
        [&](const auto& range, CellRange sum) {
            for (std::uint64_t i = range.begin(); i != range.end(); ++i) {
                const Cell cell = cellAt(i);
                sum.enclose(cell, cell);
            }
            return sum;
        },
        [](CellRange a, const CellRange& b) {
            a.enclose(b.min, b.max);
            return a;
        });
    int bits[3];
    for (std::size_t axis = 0; axis < 3; ++axis) {
        bits[axis] = static_cast<int>(std::bit_width(static_cast<std::uint64_t>(cells.max[axis]) -
                                                     static_cast<std::uint64_t>(cells.min[axis])));
    }
    if (bits[0] + bits[1] + bits[2] <= 63) {
        PairVector pairs = detail::mortonPairs(count, [&](std::uint64_t i) {
            const Cell cell = cellAt(i);
            std::uint64_t number = 0;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                number = number << bits[axis] | static_cast<std::uint64_t>(cell[axis] - cells.min[axis]);
            }
            return number;
        });
        detail::sortByCode(pairs);
        return pairs;
    }
    std::vector<std::pair<Cell, std::uint64_t>> sorted(count);
    for (std::uint64_t i = 0; i < count; ++i) {
        sorted[i] = {cellAt(i), i};
    }
    std::sort(sorted.begin(), sorted.end());
    std::uint64_t number = 0;
    PairVector pairs(count);
    for (std::uint64_t i = 0; i < count; ++i) {
        number += i > 0 && sorted[i].first != sorted[i - 1].first ? 1 : 0;
        pairs[i] = {sorted[i].second, number};
    }
    return pairs;
}

/// Mean of the finite values over a group of points; the representative's value when there is none.
template <class Read, class Value>
Value meanOr(Value fallback, const std::uint64_t* first, const std::uint64_t* last, const Read& read) {
    double sum = 0.0;
    std::uint64_t count = 0;
    for (; first != last; ++first) {
        if (const double value = read(*first); std::isfinite(value)) {
            sum += value;
            ++count;
        }
    }
    return count == 0 ? fallback : static_cast<Value>(sum / static_cast<double>(count));
}

}  // namespace

/// The points of each cell, and the one that represents it.
struct Merge::Groups {
    std::vector<std::uint64_t> members;  ///< indices of all points, cell after cell, in the order added
    std::vector<std::uint64_t> starts;   ///< first member of each cell, and the end
    std::vector<std::uint64_t> chosen;   ///< the representative of each cell

    template <class Work>
    void forEach(const Work& work) const {
        tbb::parallel_for(tbb::blocked_range<std::size_t>(0, chosen.size()), [&](const auto& range) {
            for (std::size_t g = range.begin(); g != range.end(); ++g) {
                work(g, members.data() + starts[g], members.data() + starts[g + 1]);
            }
        });
    }
};

void Merge::add(const PointCloud& cloud, const Vector3d& shift) {
    parts_.push_back({points_.size(), shift});
    detail::appendPadded(points_, cloud, Vector3d::Zero());
}

void Merge::clear() {
    points_ = PointCloud();
    parts_.clear();
}

std::uint64_t Merge::partOf(std::uint64_t point) const {
    // Of clouds that start at the same point all but the last are empty.
    const auto next = std::upper_bound(parts_.begin(), parts_.end(), point,
                                       [](std::uint64_t p, const Part& part) { return p < part.first; });
    return static_cast<std::uint64_t>(next - parts_.begin()) - 1;
}

Vector3d Merge::world(std::uint64_t point) const {
    return points_.positions()[point].cast<double>() + parts_[partOf(point)].shift;
}

Merge::Groups Merge::group() const {
    Groups groups;
    const std::uint64_t count = points_.size();
    groups.members.resize(count);
    const double edge = static_cast<double>(cell_);
    if (!(edge > 0.0)) {
        for (std::uint64_t i = 0; i < count; ++i) {
            groups.members[i] = i;
        }
        groups.chosen = groups.members;
        groups.starts = groups.members;
        groups.starts.push_back(count);
        return groups;
    }

    const PairVector pairs = sortedByCell(count, [&](std::uint64_t i) { return cellOf(world(i), edge); });
    for (std::uint64_t i = 0; i < count; ++i) {
        groups.members[i] = pairs[i].first;
        if (i == 0 || pairs[i].second != pairs[i - 1].second) {
            groups.starts.push_back(i);
        }
    }
    groups.chosen.resize(groups.starts.size());
    groups.starts.push_back(count);

    groups.forEach([&](std::size_t g, const std::uint64_t* first, const std::uint64_t* last) {
        const Cell cell = cellOf(world(*first), edge);
        const Vector3d center =
            Vector3d(static_cast<double>(cell[0]) + 0.5, static_cast<double>(cell[1]) + 0.5,
                     static_cast<double>(cell[2]) + 0.5) *
            edge;
        double best = std::numeric_limits<double>::infinity();
        groups.chosen[g] = *first;
        for (; first != last; ++first) {
            const double sqDist = (world(*first) - center).squaredNorm();
            if (sqDist < best) {
                best = sqDist;
                groups.chosen[g] = *first;
            }
        }
    });
    return groups;
}

void Merge::average(const Groups& groups, PointCloud& out) const {
    const auto averageVectors = [&]<class Vector>(std::vector<Vector>& target, const auto& read) {
        groups.forEach([&](std::size_t g, const std::uint64_t* first, const std::uint64_t* last) {
            for (int axis = 0; axis < 3; ++axis) {
                target[g][axis] = meanOr(target[g][axis], first, last,
                                         [&](std::uint64_t i) -> double { return read(i)[axis]; });
            }
        });
    };
    averageVectors(out.positions(), [&](std::uint64_t i) -> Vector3d { return world(i) - origin_; });
    groups.forEach([&](std::size_t g, const std::uint64_t* first, const std::uint64_t* last) {
        const auto& colors = points_.colors();
        const auto& scalars = points_.scalars();
        const auto mean = [&](unsigned char ColorRGB::*channel) {
            const double value =
                meanOr(0.0, first, last, [&](std::uint64_t i) -> double { return colors[i].*channel; });
            return static_cast<unsigned char>(std::lround(value));
        };
        out.colors()[g] = ColorRGB(mean(&ColorRGB::r), mean(&ColorRGB::g), mean(&ColorRGB::b));
        out.scalars()[g] =
            meanOr(out.scalars()[g], first, last, [&](std::uint64_t i) -> double { return scalars[i]; });
    });
    for (const auto& [name, field] : points_.fields()) {
        if (const auto* floats = dynamic_cast<const FieldArray<float>*>(field.get())) {
            auto& target = out.fields().get<float>(name)->data();
            groups.forEach([&](std::size_t g, const std::uint64_t* first, const std::uint64_t* last) {
                target[g] = meanOr(target[g], first, last,
                                   [&](std::uint64_t i) -> double { return floats->data()[i]; });
            });
        } else if (const auto* vectors = dynamic_cast<const FieldArray<Vector3f>*>(field.get())) {
            averageVectors(out.fields().get<Vector3f>(name)->data(),
                           [&](std::uint64_t i) { return vectors->data()[i]; });
        } else if (const auto* doubles = dynamic_cast<const FieldArray<Vector3d>*>(field.get())) {
            averageVectors(out.fields().get<Vector3d>(name)->data(),
                           [&](std::uint64_t i) { return doubles->data()[i]; });
        }
    }
}

void Merge::result(PointCloud& out) const {
    std::vector<Source> sources;
    result(out, sources);
}

void Merge::result(PointCloud& out, std::vector<Source>& sources) const {
    const Groups groups = group();
    PointCloud merged;
    merged.push_back(points_, groups.chosen, false);
    sources.resize(groups.chosen.size());
    groups.forEach([&](std::size_t g, const std::uint64_t*, const std::uint64_t*) {
        const std::uint64_t point = groups.chosen[g];
        const std::uint64_t part = partOf(point);
        sources[g] = {part, point - parts_[part].first};
        merged.positions()[g] = (world(point) - origin_).cast<float>();
    });
    if (averaging_ && cell_ > 0.0f) {
        average(groups, merged);
    }
    out = std::move(merged);
}

}  // namespace ombrix::core
