#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#include <ombrix/core/large_pages_detail.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/morton_pairs_detail.h>

namespace ombrix::core::detail {
namespace {

using Pair = OctreeConverter::Pair;

constexpr std::size_t PARALLEL_FROM = 500;      // pairs from which on the task pool is used
constexpr std::size_t PARALLEL_RUN = 1u << 18;  // runs of equal digits that are worth splitting again
constexpr std::size_t SMALL_RUN = 48;           // pairs that are sorted by insertion

constexpr int DIGIT_BITS = 8;
constexpr std::size_t DIGITS = 1u << DIGIT_BITS;
constexpr int FIRST_SHIFT = 3 * static_cast<int>(MORTON_LEVELS) - DIGIT_BITS;
using Histogram = std::array<std::size_t, DIGITS>;

/// Storage that is not initialised, unlike an array of std::pair.
struct Scratch {
    std::unique_ptr<std::byte[]> bytes;
    explicit Scratch(std::size_t pairs) : bytes(new std::byte[pairs * sizeof(Pair)]) {
        adviseLargePages(bytes.get(), pairs * sizeof(Pair));
    }
    [[nodiscard]] Pair* pairs() const { return reinterpret_cast<Pair*>(bytes.get()); }
};

std::size_t digit(const Pair& pair, int shift) {
    return (pair.second >> shift) & (DIGITS - 1);
}

/// Shift of the digit below the one at `shift`; the last digit may overlap with the one before.
int nextShift(int shift) {
    return std::max(shift - DIGIT_BITS, 0);
}

void insertionSort(Pair* pairs, std::size_t count) {
    for (std::size_t i = 1; i < count; ++i) {
        const Pair moved = pairs[i];
        std::size_t j = i;
        for (; j > 0 && pairs[j - 1].second > moved.second; --j) {
            pairs[j] = pairs[j - 1];
        }
        pairs[j] = moved;
    }
}

/// Turns counts into the positions at which each digit's run starts.
void toStarts(Histogram& histogram) {
    std::size_t start = 0;
    for (std::size_t& entry : histogram) {
        const std::size_t count = entry;
        entry = start;
        start += count;
    }
}

/// Radix sort from the highest digit, back and forth between two arrays; stable.
/// The pairs are in `from`; the sorted run ends up in `from` or, when `inTo`, in `to`.
void sortRun(Pair* from, Pair* to, std::size_t count, int shift, bool inTo) {
    if (count <= SMALL_RUN) {
        insertionSort(from, count);
        if (inTo) {
            std::copy_n(from, count, to);
        }
        return;
    }
    Histogram starts{};
    for (std::size_t i = 0; i < count; ++i) {
        ++starts[digit(from[i], shift)];
    }
    if (starts[digit(from[0], shift)] == count && shift > 0) {
        return sortRun(from, to, count, nextShift(shift), inTo);
    }
    toStarts(starts);
    for (std::size_t i = 0; i < count; ++i) {
        to[starts[digit(from[i], shift)]++] = from[i];
    }
    if (shift == 0) {
        if (!inTo) {
            std::copy_n(to, count, from);
        }
        return;
    }
    std::size_t first = 0;
    for (const std::size_t end : starts) {
        if (end != first) {
            sortRun(to + first, from + first, end - first, nextShift(shift), !inTo);
        }
        first = end;
    }
}

/// The same with the first pass in blocks and the runs of its digits on several threads.
void sortRunInParallel(Pair* from, Pair* to, std::size_t count, int shift, bool inTo, Work* work) {
    constexpr std::size_t BLOCK = 1u << 16;
    const std::size_t blocks = (count + BLOCK - 1) / BLOCK;
    std::vector<Histogram> starts(blocks, Histogram{});
    const auto forEachBlock = [&](const auto& visit) {
        tbb::parallel_for(std::size_t{0}, blocks, [&](std::size_t block) {
            if (work != nullptr) {
                work->check();
            }
            const std::size_t end = std::min(count, (block + 1) * BLOCK);
            for (std::size_t i = block * BLOCK; i < end; ++i) {
                visit(starts[block], i);
            }
        });
    };
    forEachBlock([&](Histogram& counts, std::size_t i) { ++counts[digit(from[i], shift)]; });

    Histogram ends{};
    std::size_t start = 0;
    for (std::size_t d = 0; d < DIGITS; ++d) {
        for (Histogram& counts : starts) {
            const std::size_t size = counts[d];
            counts[d] = start;
            start += size;
        }
        ends[d] = start;
    }
    const std::size_t d0 = digit(from[0], shift);
    if (shift > 0 && ends[d0] - (d0 == 0 ? 0 : ends[d0 - 1]) == count) {
        return sortRunInParallel(from, to, count, nextShift(shift), inTo, work);
    }
    forEachBlock([&](Histogram& next, std::size_t i) { to[next[digit(from[i], shift)]++] = from[i]; });

    tbb::parallel_for(std::size_t{0}, DIGITS, [&](std::size_t d) {
        const std::size_t first = d == 0 ? 0 : ends[d - 1];
        const std::size_t size = ends[d] - first;
        if (shift > 0 && size >= PARALLEL_RUN) {
            sortRunInParallel(to + first, from + first, size, nextShift(shift), !inTo, work);
            return;
        }
        if (shift > 0) {
            sortRun(to + first, from + first, size, nextShift(shift), !inTo);
        } else if (!inTo) {
            std::copy_n(to + first, size, from + first);
        }
        WorkSteps(work, 1).step(size);
    });
}

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
    sortRun(pairs, scratch, count, FIRST_SHIFT, false);
}

void sortByCode(OctreeConverter::PairVector& pairs, Work* work) {
    const std::size_t count = pairs.size();
    if (count < PARALLEL_FROM) {
        std::stable_sort(pairs.begin(), pairs.end(),
                         [](const Pair& a, const Pair& b) { return a.second < b.second; });
        return;
    }
    const Scratch scratch(count);
    if (contiguousPairs(pairs) != nullptr) {
        sortRunInParallel(&pairs[0], scratch.pairs(), count, FIRST_SHIFT, false, work);
        return;
    }
    const Scratch copy(count);
    std::copy(pairs.begin(), pairs.end(), copy.pairs());
    sortRunInParallel(copy.pairs(), scratch.pairs(), count, FIRST_SHIFT, false, work);
    std::copy_n(copy.pairs(), count, pairs.begin());
}

}  // namespace ombrix::core::detail
