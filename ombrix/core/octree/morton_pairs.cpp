#include <algorithm>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/radix_sort_detail.h>

namespace ombrix::core::detail {
namespace {

using Pair = OctreeConverter::Pair;

constexpr std::size_t PARALLEL_FROM = 500;  // pairs from which on the task pool is used

struct CodeOf {
    std::uint64_t operator()(const Pair& pair) const { return pair.second; }
};

const RadixSort<Pair, CodeOf> sortCodes(3 * static_cast<int>(MORTON_LEVELS), 0);

}  // namespace

const Pair* contiguousPairs(const OctreeConverter::PairVector& pairs) {
    if (pairs.empty()) {
        return nullptr;
    }
    // The vector stores blocks that end at powers of two.
    const Pair* first = &pairs[0];
    for (std::size_t start = 2; start < pairs.size(); start *= 2) {
        if (&pairs[start] != first + start) {
            return nullptr;
        }
    }
    return &pairs[pairs.size() - 1] == first + (pairs.size() - 1) ? first : nullptr;
}

void sortByCode(Pair* pairs, Pair* scratch, std::size_t count) {
    sortCodes(pairs, scratch, count);
}

void sortByCode(OctreeConverter::PairVector& pairs, Work* work) {
    const std::size_t count = pairs.size();
    if (count < PARALLEL_FROM) {
        std::stable_sort(pairs.begin(), pairs.end(),
                         [](const Pair& a, const Pair& b) { return a.second < b.second; });
        return;
    }
    const RawArray<Pair> scratch(count);
    if (contiguousPairs(pairs) != nullptr) {
        sortCodes.inParallel(&pairs[0], scratch.data(), count, work);
        return;
    }
    const RawArray<Pair> copy(count);
    std::copy(pairs.begin(), pairs.end(), copy.data());
    sortCodes.inParallel(copy.data(), scratch.data(), count, work);
    std::copy_n(copy.data(), count, pairs.begin());
}

}  // namespace ombrix::core::detail
