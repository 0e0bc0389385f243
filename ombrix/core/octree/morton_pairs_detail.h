#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <ombrix/core/large_pages_detail.h>
#include <ombrix/core/octree/octree_converter.h>
#include <ombrix/core/services/work_detail.h>

namespace ombrix::core::detail {

/// The pairs (firstOf(i), codeOf(i)) for i in [0, count), in this order, computed on several threads.
template <class CodeOf, class FirstOf = std::identity>
[[nodiscard]] OctreeConverter::PairVector mortonPairs(std::uint64_t count, const CodeOf& codeOf,
                                                      Work* work = nullptr, const FirstOf& firstOf = {}) {
    OctreeConverter::PairVector pairs;
    pairs.reserve(count);
    if (count > 0) {
        adviseLargePages(&*pairs.grow_by(1), count * sizeof(OctreeConverter::Pair));
        pairs.clear();
    }
    // Each task takes the next free block, whichever that is, so that memory is first touched in parallel.
    constexpr std::uint64_t BLOCK = 1u << 14;
    tbb::parallel_for(std::uint64_t{0}, (count + BLOCK - 1) / BLOCK, [&](std::uint64_t block) {
        const std::uint64_t size = std::min(BLOCK, count - block * BLOCK);
        auto pair = pairs.grow_by(size);
        auto i = static_cast<std::uint64_t>(pair - pairs.begin());
        for (const std::uint64_t last = i + size; i != last; ++i, ++pair) {
            *pair = {firstOf(i), codeOf(i)};
        }
        WorkSteps(work, 1).step(size);
    });
    return pairs;
}

/// Sorts (index, code) pairs by code: on several threads from 500 pairs, on the caller's below. Pairs with
/// equal codes keep their order, so the result does not depend on the number of threads.
void sortByCode(OctreeConverter::PairVector& pairs, Work* work = nullptr);
/// The same for an array, on the caller's thread alone; `scratch` has room for as many pairs.
void sortByCode(OctreeConverter::Pair* pairs, OctreeConverter::Pair* scratch, std::size_t count);

/// The first of the pairs when all of them stand in one array, as they do in a vector that was reserved at
/// once; null otherwise.
[[nodiscard]] const OctreeConverter::Pair* contiguousPairs(const OctreeConverter::PairVector& pairs);

}  // namespace ombrix::core::detail
