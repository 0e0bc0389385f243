#include <cmath>
#include <limits>
#include <utility>

#include <ombrix/core/octree/merge.h>
#include <ombrix/core/octree/merge_cells_detail.h>
#include <ombrix/core/octree/padded_append_detail.h>
#include <ombrix/core/octree/watched_append_detail.h>

namespace ombrix::core {
namespace {

using detail::CellGroups;
using detail::GridCell;
using detail::ShiftedPoints;

void fetch([[maybe_unused]] const void* address) {
#if defined(__GNUC__)
    __builtin_prefetch(address);
#endif
}

/// Sum of finite values, of which there may be none.
class FiniteMean {
public:
    void add(double value) {
        if (std::isfinite(value)) {
            sum_ += value;
            ++count_;
        }
    }
    template <class Value>
    [[nodiscard]] Value meanOr(Value fallback) const {
        return count_ == 0 ? fallback : static_cast<Value>(sum_ / static_cast<double>(count_));
    }

private:
    double sum_ = 0.0;
    std::uint64_t count_ = 0;
};

/// Mean of the finite values over a cell's points; the representative's value when there is none.
template <class Value, class Read>
Value meanOr(Value fallback, const CellGroups::Members& members, const Read& read) {
    FiniteMean mean;
    for (std::size_t m = 0; m < members.size(); ++m) {
        mean.add(read(members[m]));
    }
    return mean.meanOr(fallback);
}

/// The representative of each cell: the point nearest to the centre. Without a grid each point is its own.
/// `positions` becomes their places relative to `origin`, or, with `averaging`, the means of the cells.
std::vector<std::uint64_t> chosenPoints(const ShiftedPoints& points, const CellGroups& groups, double edge,
                                        const Vector3d& origin, bool averaging,
                                        std::vector<Vector3f>& positions) {
    std::vector<std::uint64_t> chosen(groups.size());
    positions.resize(groups.size());
    groups.forEach(
        [&](std::size_t g, const CellGroups::Members& members) {
            const GridCell cell = detail::gridCellOf(points[members[0]], edge);
            const Vector3d center =
                Vector3d(static_cast<double>(cell[0]) + 0.5, static_cast<double>(cell[1]) + 0.5,
                         static_cast<double>(cell[2]) + 0.5) *
                edge;
            double best = std::numeric_limits<double>::infinity();
            chosen[g] = members[0];
            FiniteMean means[3];
            for (std::size_t m = 0; m < members.size(); ++m) {
                const Vector3d place = points[members[m]];
                const double sqDist = (place - center).squaredNorm();
                if (sqDist < best) {
                    best = sqDist;
                    chosen[g] = members[m];
                }
                for (int axis = 0; axis < 3; ++axis) {
                    means[axis].add(place[axis] - origin[axis]);
                }
            }
            positions[g] = (points[chosen[g]] - origin).cast<float>();
            for (int axis = 0; averaging && axis < 3; ++axis) {
                positions[g][axis] = means[axis].meanOr(positions[g][axis]);
            }
        },
        [&](std::uint64_t i) { fetch(points.address(i)); });
    return chosen;
}

/// Replaces the representatives' attributes by the means of their cells.
void averageAttributes(const PointCloud& points, const CellGroups& groups, PointCloud& out) {
    const auto averageVectors = [&]<class Vector>(const std::vector<Vector>& values,
                                                  std::vector<Vector>& target) {
        groups.forEach([&](std::size_t g, const CellGroups::Members& members) {
            for (int axis = 0; axis < 3; ++axis) {
                target[g][axis] = meanOr(target[g][axis], members,
                                         [&](std::uint64_t i) -> double { return values[i][axis]; });
            }
        });
    };
    const auto averageFloats = [&](const std::vector<float>& values, std::vector<float>& target) {
        groups.forEach([&](std::size_t g, const CellGroups::Members& members) {
            target[g] = meanOr(target[g], members, [&](std::uint64_t i) -> double { return values[i]; });
        });
    };
    if (const auto& colors = points.colors(); !colors.empty()) {
        groups.forEach([&](std::size_t g, const CellGroups::Members& members) {
            const auto mean = [&](unsigned char ColorRGB::*channel) {
                const double value =
                    meanOr(0.0, members, [&](std::uint64_t i) -> double { return colors[i].*channel; });
                return static_cast<unsigned char>(std::lround(value));
            };
            out.colors()[g] = ColorRGB(mean(&ColorRGB::r), mean(&ColorRGB::g), mean(&ColorRGB::b));
        });
    }
    if (!points.scalars().empty()) {
        averageFloats(points.scalars(), out.scalars());
    }
    for (const auto& [name, field] : points.fields()) {
        if (const auto* floats = dynamic_cast<const FieldArray<float>*>(field.get())) {
            averageFloats(floats->data(), out.fields().get<float>(name)->data());
        } else if (const auto* vectors = dynamic_cast<const FieldArray<Vector3f>*>(field.get())) {
            averageVectors(vectors->data(), out.fields().get<Vector3f>(name)->data());
        } else if (const auto* doubles = dynamic_cast<const FieldArray<Vector3d>*>(field.get())) {
            averageVectors(doubles->data(), out.fields().get<Vector3d>(name)->data());
        }
    }
}

}  // namespace

void Merge::add(const PointCloud& cloud, const Vector3d& shift) {
    detail::AppendRollback before(points_);
    parts_.push_back({points_.size(), shift});
    try {
        detail::appendEven(points_, cloud, Vector3d::Zero(), false);
    } catch (...) {
        before.undo();
        parts_.pop_back();
        throw;
    }
}

void Merge::clear() {
    points_ = PointCloud();
    parts_.clear();
}

void Merge::result(PointCloud& out) const {
    std::vector<Source> sources;
    result(out, sources);
}

void Merge::result(PointCloud& out, std::vector<Source>& sources) const {
    std::vector<detail::ShiftedPart> parts;
    for (const Part& part : parts_) {
        parts.push_back({part.first, part.shift});
    }
    const ShiftedPoints points(points_.positions(), std::move(parts));
    const auto edge = static_cast<double>(cell_);
    const CellGroups groups(points, edge);
    const bool averaging = averaging_ && edge > 0.0;

    PointCloud merged;
    std::vector<Vector3f> positions;
    const std::vector<std::uint64_t> chosen =
        chosenPoints(points, groups, edge, origin_, averaging, positions);
    if (points_.colors().empty() && points_.scalars().empty() && points_.fields().size() == 0) {
        merged.positions() = std::move(positions);
    } else {
        merged.push_back(points_, chosen, false);
        merged.positions() = std::move(positions);
        if (averaging) {
            averageAttributes(points_, groups, merged);
        }
    }
    detail::padAttributes(merged);
    sources.resize(groups.size());
    for (std::size_t g = 0; g < sources.size(); ++g) {
        const std::uint64_t part = points.partOf(chosen[g]);
        sources[g] = {part, chosen[g] - points.part(part).first};
    }
    out = std::move(merged);
}

}  // namespace ombrix::core
