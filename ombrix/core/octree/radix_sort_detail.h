#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <tbb/parallel_for.h>

#include <ombrix/core/raw_array_detail.h>
#include <ombrix/core/services/work_detail.h>

namespace ombrix::core::detail {

/// Stable radix sort from the highest digit, back and forth between two arrays. The keys, KeyOf()(element),
/// are unsigned; runs that are short are sorted by insertion.
template <class Element, class KeyOf>
class RadixSort {
public:
    static constexpr int DIGIT_BITS = 8;

    /// Sorts by the bits from `lowest` on of keys below 2^bits. Bits below may be looked at, so that they
    /// have to be the same or ascend already among keys that are equal above.
    RadixSort(int bits, int lowest)
        : first_(std::max(bits - DIGIT_BITS, 0)), lowest_(std::min(lowest, first_)) {}

    /// On the caller's thread.
    void operator()(Element* elements, Element* scratch, std::size_t count) const {
        sortRun(elements, scratch, count, first_, false);
    }
    /// On several threads; `work`, where there is one, is told of sorted elements and can stop the sorting.
    void inParallel(Element* elements, Element* scratch, std::size_t count, Work* work = nullptr) const {
        if (count > 0) {
            sortRunInParallel(elements, scratch, count, first_, false, work);
        }
    }

private:
    static constexpr std::size_t DIGITS = std::size_t{1} << DIGIT_BITS;
    static constexpr std::size_t PARALLEL_RUN = 1u << 18;  // runs of equal digits worth splitting again
    static constexpr std::size_t SMALL_RUN = 48;           // elements that are sorted by insertion
    using Histogram = std::array<std::size_t, DIGITS>;

    static std::size_t digit(const Element& element, int shift) {
        return (KeyOf()(element) >> shift) & (DIGITS - 1);
    }

    /// Shift of the digit below the one at `shift`; the last digit may overlap with the one before.
    [[nodiscard]] int nextShift(int shift) const { return std::max(shift - DIGIT_BITS, lowest_); }

    static void insertionSort(Element* elements, std::size_t count) {
        for (std::size_t i = 1; i < count; ++i) {
            const Element moved = elements[i];
            std::size_t j = i;
            for (; j > 0 && KeyOf()(elements[j - 1]) > KeyOf()(moved); --j) {
                elements[j] = elements[j - 1];
            }
            elements[j] = moved;
        }
    }

    /// Turns counts into the positions at which each digit's run starts.
    static void toStarts(Histogram& histogram) {
        std::size_t start = 0;
        for (std::size_t& entry : histogram) {
            const std::size_t count = entry;
            entry = start;
            start += count;
        }
    }

    /// The elements are in `from`; the sorted run ends up in `from` or, when `inTo`, in `to`.
    void sortRun(Element* from, Element* to, std::size_t count, int shift, bool inTo) const {
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
        if (starts[digit(from[0], shift)] == count && shift > lowest_) {
            return sortRun(from, to, count, nextShift(shift), inTo);
        }
        toStarts(starts);
        for (std::size_t i = 0; i < count; ++i) {
            to[starts[digit(from[i], shift)]++] = from[i];
        }
        if (shift == lowest_) {
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
    void sortRunInParallel(Element* from, Element* to, std::size_t count, int shift, bool inTo,
                           Work* work) const {
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
        if (shift > lowest_ && ends[d0] - (d0 == 0 ? 0 : ends[d0 - 1]) == count) {
            return sortRunInParallel(from, to, count, nextShift(shift), inTo, work);
        }
        forEachBlock([&](Histogram& next, std::size_t i) { to[next[digit(from[i], shift)]++] = from[i]; });

        tbb::parallel_for(std::size_t{0}, DIGITS, [&](std::size_t d) {
            const std::size_t first = d == 0 ? 0 : ends[d - 1];
            const std::size_t size = ends[d] - first;
            if (shift > lowest_ && size >= PARALLEL_RUN) {
                sortRunInParallel(to + first, from + first, size, nextShift(shift), !inTo, work);
                return;
            }
            if (shift > lowest_) {
                sortRun(to + first, from + first, size, nextShift(shift), !inTo);
            } else if (!inTo) {
                std::copy_n(to + first, size, from + first);
            }
            WorkSteps(work, 1).step(size);
        });
    }

    int first_;
    int lowest_;
};

}  // namespace ombrix::core::detail
