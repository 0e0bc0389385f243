#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_reduce.h>

#include <ombrix/core/analysis/spatial_order_detail.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/radix_sort_detail.h>

namespace ombrix::core::detail {
namespace {

// One word per point: 30 bits of code above 34 bits of index.
constexpr unsigned int CELL_BITS = 10;
constexpr unsigned int INDEX_BITS = 64 - 3 * CELL_BITS;
constexpr float CELLS = 1u << CELL_BITS;

struct Box {
    Vector3f min = Vector3f::Constant(std::numeric_limits<float>::max());
    Vector3f max = Vector3f::Constant(std::numeric_limits<float>::lowest());
};

Box finiteBox(const std::vector<Vector3f>& points) {
    return tbb::parallel_reduce(
        tbb::blocked_range<std::size_t>(0, points.size(), SPATIAL_GRAIN), Box(),
        [&](const tbb::blocked_range<std::size_t>& range, Box box) {
            for (std::size_t i = range.begin(); i != range.end(); ++i) {
                if (points[i].allFinite()) {
                    box.min = box.min.cwiseMin(points[i]);
                    box.max = box.max.cwiseMax(points[i]);
                }
            }
            return box;
        },
        [](const Box& a, const Box& b) {
            return Box{a.min.cwiseMin(b.min), a.max.cwiseMax(b.max)};
        });
}

std::uint32_t cell(float offset, float cellsPerUnit) {
    const float c = offset * cellsPerUnit;
    return c >= 0.0f ? static_cast<std::uint32_t>(std::min(c, CELLS - 1.0f)) : 0u;
}

void check(Work* work) {
    if (work != nullptr) {
        work->check();
    }
}

std::vector<std::uint64_t> codedIndices(const std::vector<Vector3f>& points, Work* work) {
    const Box box = finiteBox(points);
    const float side = (box.max - box.min).maxCoeff();
    const float cellsPerUnit = side > 0x1p-70f ? CELLS / side : 0.0f;  // as small as what `KdIndex` groups
    std::vector<std::uint64_t> words(points.size());
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, points.size(), SPATIAL_GRAIN),
                      [&](const tbb::blocked_range<std::size_t>& range) {
                          check(work);
                          for (std::size_t i = range.begin(); i != range.end(); ++i) {
                              const Vector3f d = points[i] - box.min;
                              const morton3d<std::uint64_t> code(cell(d.x(), cellsPerUnit),
                                                                 cell(d.y(), cellsPerUnit),
                                                                 cell(d.z(), cellsPerUnit));
                              words[i] = code.key << INDEX_BITS | i;
                          }
                      });
    return words;
}

struct Itself {
    std::uint64_t operator()(std::uint64_t word) const noexcept { return word; }
};

/// Sorts by the code; the indices, which ascend, keep equal codes in their order.
void sortByCode(std::vector<std::uint64_t>& words, Work* work) {
    const RadixSort<std::uint64_t, Itself> sort(64, INDEX_BITS);
    const RawArray<std::uint64_t> scratch(words.size());
    sort.inParallel(words.data(), scratch.data(), words.size(), work);
}

}  // namespace

std::vector<std::uint64_t> spatialOrder(const std::vector<Vector3f>& points, Work* work) {
    if (points.size() >> INDEX_BITS != 0) {
        std::vector<std::uint64_t> asGiven(points.size());
        std::iota(asGiven.begin(), asGiven.end(), std::uint64_t{0});
        return asGiven;
    }
    std::vector<std::uint64_t> order = codedIndices(points, work);
    sortByCode(order, work);
    for (std::uint64_t& word : order) {
        word &= (std::uint64_t{1} << INDEX_BITS) - 1;
    }
    return order;
}

std::vector<Vector3f> gathered(const std::vector<Vector3f>& points, const std::vector<std::uint64_t>& order,
                               Work* work) {
    std::vector<Vector3f> out(points.size());
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, out.size(), SPATIAL_GRAIN),
                      [&](const tbb::blocked_range<std::size_t>& range) {
                          check(work);
                          for (std::size_t i = range.begin(); i != range.end(); ++i) {
                              out[i] = points[order[i]];
                          }
                      });
    return out;
}

}  // namespace ombrix::core::detail
