#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <numeric>
#include <utility>

#include <tbb/parallel_reduce.h>

#include <ombrix/core/octree/merge_cells_detail.h>
#include <ombrix/core/octree/radix_sort_detail.h>

namespace ombrix::core::detail {
namespace {

constexpr std::size_t BLOCK = 1u << 14;

/// Largest integer that is not above coordinate / edge.
std::int64_t cellIndex(double coordinate, double edge) {
    constexpr double LAST = 0x1p62;
    const double index = coordinate / edge;
    if (!(index > -LAST)) {
        return std::isnan(index) ? 0 : -static_cast<std::int64_t>(LAST);
    }
    if (index >= LAST) {
        return static_cast<std::int64_t>(LAST);
    }
    // Cutting and comparing is a few instructions everywhere, std::floor a call on older processors.
    const auto cut = static_cast<std::int64_t>(index);
    return cut - (static_cast<double>(cut) > index ? 1 : 0);
}

/// Box of all coordinates that are numbers, and for each axis whether there is one that is not.
struct Extent {
    Vector3d min = Vector3d::Constant(std::numeric_limits<double>::infinity());
    Vector3d max = -min;
    std::array<bool, 3> hasNan{};

    void enclose(const Extent& other) {
        min = min.cwiseMin(other.min);
        max = max.cwiseMax(other.max);
        for (std::size_t axis = 0; axis < 3; ++axis) {
            hasNan[axis] = hasNan[axis] || other.hasNan[axis];
        }
    }
};

Extent extentOf(const Vector3f* first, const Vector3f* last, const Vector3d& shift) {
    constexpr float INF = std::numeric_limits<float>::infinity();
    float min[3] = {INF, INF, INF};
    float max[3] = {-INF, -INF, -INF};
    bool nan[3] = {false, false, false};
    for (; first != last; ++first) {
        for (int axis = 0; axis < 3; ++axis) {
            const float x = (*first)[axis];
            min[axis] = x < min[axis] ? x : min[axis];
            max[axis] = x > max[axis] ? x : max[axis];
            nan[axis] = nan[axis] | (x != x);
        }
    }
    // Adding the shift keeps the order, so that the extremes stay the extremes.
    Extent extent;
    for (int axis = 0; axis < 3; ++axis) {
        bool& hasNan = extent.hasNan[static_cast<std::size_t>(axis)];
        hasNan = nan[axis];
        if (min[axis] <= max[axis]) {
            for (const float x : {min[axis], max[axis]}) {
                const double shifted = static_cast<double>(x) + shift[axis];
                if (std::isnan(shifted)) {
                    hasNan = true;
                } else {
                    extent.min[axis] = std::min(extent.min[axis], shifted);
                    extent.max[axis] = std::max(extent.max[axis], shifted);
                }
            }
        }
    }
    return extent;
}

template <class Work>
void forEachBlock(std::uint64_t count, const Work& work) {
    tbb::parallel_for(std::uint64_t{0}, (count + BLOCK - 1) / BLOCK, [&](std::uint64_t block) {
        work(block, block * BLOCK, std::min(count, (block + 1) * BLOCK));
    });
}

}  // namespace

GridCell gridCellOf(const Vector3d& p, double edge) {
    return {cellIndex(p.x(), edge), cellIndex(p.y(), edge), cellIndex(p.z(), edge)};
}

ShiftedPoints::ShiftedPoints(const std::vector<Vector3f>& points, std::vector<ShiftedPart> parts)
    : points_(points), parts_(std::move(parts)) {
    // To the bit: adding 0 and -0 are not the same.
    oneShift_ = std::all_of(parts_.begin(), parts_.end(), [&](const ShiftedPart& part) {
        return std::memcmp(&part.shift, &parts_.front().shift, sizeof(Vector3d)) == 0;
    });
}

std::uint64_t ShiftedPoints::partOf(std::uint64_t i) const {
    // Of parts that start at the same point all but the last are empty.
    const auto next =
        std::upper_bound(parts_.begin(), parts_.end(), i,
                         [](std::uint64_t p, const ShiftedPart& part) { return p < part.first; });
    return static_cast<std::uint64_t>(next - parts_.begin()) - 1;
}

CellGroups::CellGroups(const ShiftedPoints& points, double edge) : words_(points.size()), starts_{0} {
    const std::uint64_t count = points.size();
    if (count == 0) {
        return;
    }
    if (!(edge > 0.0)) {
        std::iota(words_.data(), words_.data() + count, std::uint64_t{0});
        starts_.resize(count + 1);
        std::iota(starts_.begin(), starts_.end(), std::uint64_t{0});
        return;
    }
    const Extent extent = tbb::parallel_reduce(
        tbb::blocked_range<std::uint64_t>(0, count, BLOCK), Extent(),
        [&](const auto& range, Extent sum) {
            points.forEachPart(range.begin(), range.end(), [&](auto first, auto last, const Vector3d& shift) {
                sum.enclose(extentOf(points.address(first), points.address(last), shift));
            });
            return sum;
        },
        [](Extent a, const Extent& b) {
            a.enclose(b);
            return a;
        });

    // A cell's index grows with the coordinate, and is 0 for NaN.
    GridCell lowest{};
    std::array<int, 3> bits{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const auto i = static_cast<Eigen::Index>(axis);
        std::int64_t low = 0, high = 0;
        if (extent.min[i] <= extent.max[i]) {
            low = cellIndex(extent.min[i], edge);
            high = cellIndex(extent.max[i], edge);
            if (extent.hasNan[axis]) {
                low = std::min<std::int64_t>(low, 0);
                high = std::max<std::int64_t>(high, 0);
            }
        }
        lowest[axis] = low;
        bits[axis] = static_cast<int>(
            std::bit_width(static_cast<std::uint64_t>(high) - static_cast<std::uint64_t>(low)));
    }
    const int numberBits = bits[0] + bits[1] + bits[2];
    if (numberBits + static_cast<int>(std::bit_width(count - 1)) <= 64) {
        sortPacked(points, edge, lowest, bits, numberBits);
    } else {
        sortLarge(points, edge);
    }
}

/// Almost always the three indices of a cell, counted from the smallest, fit into one word together with
/// the index of a point: sorting the words sorts by cell, then by point.
void CellGroups::sortPacked(const ShiftedPoints& points, double edge, const GridCell& lowest,
                            const std::array<int, 3>& bits, int numberBits) {
    const int numberShift = std::min(64 - numberBits, 63);
    mask_ = (std::uint64_t{1} << numberShift) - 1;
    std::uint64_t* words = words_.data();
    forEachBlock(points.size(), [&](std::uint64_t, std::uint64_t begin, std::uint64_t end) {
        points.forEachPart(begin, end, [&](std::uint64_t first, std::uint64_t last, const Vector3d& shift) {
            for (std::uint64_t i = first; i != last; ++i) {
                const GridCell cell = gridCellOf(points.address(i)->cast<double>() + shift, edge);
                std::uint64_t number = 0;
                for (std::size_t axis = 0; axis < 3; ++axis) {
                    number = number << bits[axis] | static_cast<std::uint64_t>(cell[axis] - lowest[axis]);
                }
                words[i] = number << numberShift | i;
            }
        });
    });
    const RawArray<std::uint64_t> scratch(words_.size());
    RadixSort<std::uint64_t, std::identity>(64, numberShift).inParallel(words, scratch.data(), words_.size());
    findStarts(numberShift);
}

void CellGroups::sortLarge(const ShiftedPoints& points, double edge) {
    std::vector<std::pair<GridCell, std::uint64_t>> sorted(points.size());
    for (std::uint64_t i = 0; i < sorted.size(); ++i) {
        sorted[i] = {gridCellOf(points[i], edge), i};
    }
    std::sort(sorted.begin(), sorted.end());
    for (std::uint64_t i = 0; i < sorted.size(); ++i) {
        words_.data()[i] = sorted[i].second;
        if (i > 0 && sorted[i].first != sorted[i - 1].first) {
            starts_.push_back(i);
        }
    }
    starts_.push_back(sorted.size());
}

void CellGroups::findStarts(int numberShift) {
    const auto startsAt = [numberShift, words = words_.data()](std::uint64_t i) {
        return i == 0 || words[i] >> numberShift != words[i - 1] >> numberShift;
    };
    const std::uint64_t count = words_.size();
    std::vector<std::uint64_t> before((count + BLOCK - 1) / BLOCK + 1, 0);
    forEachBlock(count, [&](std::uint64_t block, std::uint64_t first, std::uint64_t last) {
        for (std::uint64_t i = first; i != last; ++i) {
            before[block + 1] += startsAt(i) ? 1 : 0;
        }
    });
    std::partial_sum(before.begin(), before.end(), before.begin());
    starts_.resize(before.back() + 1);
    starts_.back() = count;
    forEachBlock(count, [&](std::uint64_t block, std::uint64_t first, std::uint64_t last) {
        std::uint64_t next = before[block];
        for (std::uint64_t i = first; i != last; ++i) {
            if (startsAt(i)) {
                starts_[next++] = i;
            }
        }
    });
}

}  // namespace ombrix::core::detail
