#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <ombrix/core/octree/radix_sort_detail.h>
#include <ombrix/core/types.h>

namespace ombrix::core::detail {

/// Indices of a grid's cell along the axes.
using GridCell = std::array<std::int64_t, 3>;

/// The cell of a place in a grid that is anchored at multiples of its cells' edge. Far beyond any grid of
/// floats an index stays where it fits; for NaN it is 0.
[[nodiscard]] GridCell gridCellOf(const Vector3d& p, double edge);

/// Points that moved by one shift: those from `first` on, up to the next part's.
struct ShiftedPart {
    std::uint64_t first;
    Vector3d shift;
};

/// The places of points that lie one after the other in parts.
class ShiftedPoints {
public:
    ShiftedPoints(const std::vector<Vector3f>& points, std::vector<ShiftedPart> parts);

    [[nodiscard]] std::uint64_t size() const { return points_.size(); }
    [[nodiscard]] const Vector3f* address(std::uint64_t i) const { return points_.data() + i; }
    /// Which part point i is in.
    [[nodiscard]] std::uint64_t partOf(std::uint64_t i) const;
    [[nodiscard]] const ShiftedPart& part(std::uint64_t number) const { return parts_[number]; }
    [[nodiscard]] Vector3d operator[](std::uint64_t i) const {
        return points_[i].cast<double>() + (oneShift_ ? parts_.front() : parts_[partOf(i)]).shift;
    }

    /// work(first, last, shift) for the parts of a range.
    template <class Work>
    void forEachPart(std::uint64_t first, std::uint64_t last, const Work& work) const {
        while (first != last) {
            const std::uint64_t part = partOf(first);
            const std::uint64_t end =
                part + 1 < parts_.size() ? std::min(last, parts_[part + 1].first) : last;
            work(first, end, parts_[part].shift);
            first = end;
        }
    }

private:
    const std::vector<Vector3f>& points_;
    std::vector<ShiftedPart> parts_;
    bool oneShift_;
};

/// The points of each occupied cell of a grid, ascending by cell.
class CellGroups {
public:
    /// Cells with an edge that is not above 0 hold a point each.
    CellGroups(const ShiftedPoints& points, double edge);

    /// Number of occupied cells.
    [[nodiscard]] std::size_t size() const { return starts_.size() - 1; }

    /// A cell's points by ascending index.
    class Members {
    public:
        Members(const std::uint64_t* first, const std::uint64_t* last, std::uint64_t mask)
            : first_(first), last_(last), mask_(mask) {}
        [[nodiscard]] std::size_t size() const { return static_cast<std::size_t>(last_ - first_); }
        [[nodiscard]] std::uint64_t operator[](std::size_t i) const { return first_[i] & mask_; }

    private:
        const std::uint64_t* first_;
        const std::uint64_t* last_;
        std::uint64_t mask_;
    };

    /// work(g, members) for each cell g, on several threads. `ahead(i)` may fetch what the work with point i
    /// is going to need; it is called some points earlier.
    template <class Work, class Ahead>
    void forEach(const Work& work, const Ahead& ahead) const {
        constexpr std::size_t DISTANCE = 32;
        tbb::parallel_for(tbb::blocked_range<std::size_t>(0, size(), 256), [&](const auto& range) {
            const std::uint64_t end = starts_[range.end()];
            std::uint64_t fetched = starts_[range.begin()];
            for (std::size_t g = range.begin(); g != range.end(); ++g) {
                for (; fetched < std::min(end, starts_[g + 1] + DISTANCE); ++fetched) {
                    ahead(words_.data()[fetched] & mask_);
                }
                work(g, Members(words_.data() + starts_[g], words_.data() + starts_[g + 1], mask_));
            }
        });
    }
    template <class Work>
    void forEach(const Work& work) const {
        forEach(work, [](std::uint64_t) {});
    }

private:
    void sortPacked(const ShiftedPoints& points, double edge, const GridCell& lowest,
                    const std::array<int, 3>& bits, int numberBits);
    void sortLarge(const ShiftedPoints& points, double edge);
    void findStarts(int numberShift);

    RawArray<std::uint64_t> words_;  ///< cell after cell: the points' indices below the cell's number
    std::uint64_t mask_ = ~std::uint64_t{0};  ///< the bits of the index
    std::vector<std::uint64_t> starts_;       ///< first word of each cell, and the end
};

}  // namespace ombrix::core::detail
