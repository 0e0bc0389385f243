#include <algorithm>

#include <tbb/parallel_sort.h>

#include <ombrix/core/octree/sort_pairs_detail.h>

namespace ombrix::core::detail {
namespace {

constexpr std::size_t PARALLEL_FROM = 500;

bool codeThenIndex(const OctreeConverter::Pair& a, const OctreeConverter::Pair& b) {
    return a.second != b.second ? a.second < b.second : a.first < b.first;
}

}  // namespace

void sortByCode(OctreeConverter::PairVector& pairs) {
    if (pairs.size() < PARALLEL_FROM) {
        std::sort(pairs.begin(), pairs.end(), codeThenIndex);
    } else {
        tbb::parallel_sort(pairs.begin(), pairs.end(), codeThenIndex);
    }
}

}  // namespace ombrix::core::detail
