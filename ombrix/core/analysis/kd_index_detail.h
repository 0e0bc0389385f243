#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include <nanoflann.hpp>

#include <ombrix/core/services/work_detail.h>
#include <ombrix/core/types.h>

namespace ombrix::core::detail {

#if NANOFLANN_VERSION >= 0x150
using KdSearchParams = nanoflann::SearchParameters;  // eps, sorted
[[nodiscard]] inline KdSearchParams kdSearchParams() {
    return KdSearchParams(0.0f, false);
}
#else
using KdSearchParams = nanoflann::SearchParams;  // checks (ignored), eps, sorted
[[nodiscard]] inline KdSearchParams kdSearchParams() {
    return KdSearchParams(32, 0.0f, false);
}
#endif

/// The bound a search prunes with, a little above the exact one: the distances to cells that the search
/// adds up on its way down are rounded some 60 times at most, 2^-24 each, and must not cut off a point that
/// belongs to the result. Also lets points at exactly the bound through, for the order of ties.
[[nodiscard]] inline float pruningBound(float sqDist) noexcept {
    constexpr float SLACK = 1.0f + 0x1p-17f;
    return sqDist * SLACK + std::numeric_limits<float>::min();
}

/// Result set of the k nearest, ascending by (squared distance, rank of the index). Both arrays hold k
/// elements and belong to the caller.
template <class Rank>
class KnnResult {
public:
    KnnResult(std::size_t k, std::size_t* indices, float* sqDists, const Rank& rank)
        : capacity_(k), indices_(indices), sqDists_(sqDists), rank_(rank) {
        if (k > 0) {
            sqDists_[k - 1] = worst_;
        }
    }

    [[nodiscard]] std::size_t size() const { return count_; }
    [[nodiscard]] bool empty() const { return count_ == 0; }
    [[nodiscard]] bool full() const { return count_ == capacity_; }
    [[nodiscard]] float worstDist() const { return bound_; }
    void sort() {}

    bool addPoint(float sqDist, std::size_t index) {
        if (count_ == capacity_) {
            if (!before(sqDist, index, worst_, indices_[capacity_ - 1])) {
                return true;
            }
        } else if (sqDist < worst_) {
            ++count_;
        } else {
            return true;
        }
        std::size_t i = count_ - 1;
        for (; i > 0 && before(sqDist, index, sqDists_[i - 1], indices_[i - 1]); --i) {
            sqDists_[i] = sqDists_[i - 1];
            indices_[i] = indices_[i - 1];
        }
        sqDists_[i] = sqDist;
        indices_[i] = index;
        if (count_ == capacity_) {
            worst_ = sqDists_[capacity_ - 1];
            bound_ = pruningBound(worst_);
        }
        return true;
    }

private:
    [[nodiscard]] bool before(float sqDist, std::size_t index, float otherSqDist, std::size_t other) const {
        return sqDist < otherSqDist || (sqDist == otherSqDist && rank_(index) < rank_(other));
    }

    std::size_t capacity_;
    std::size_t count_ = 0;
    std::size_t* indices_;
    float* sqDists_;
    float worst_ = std::numeric_limits<float>::max();
    float bound_ = std::numeric_limits<float>::max();
    Rank rank_;
};

/// Calls found(index, squared distance) for every point strictly inside a squared radius.
template <class Found>
class RadiusResult {
public:
    RadiusResult(float sqRadius, const Found& found)
        : sqRadius_(sqRadius), bound_(pruningBound(sqRadius)), found_(found) {}

    [[nodiscard]] std::size_t size() const { return count_; }
    [[nodiscard]] bool empty() const { return count_ == 0; }
    [[nodiscard]] bool full() const { return true; }
    [[nodiscard]] float worstDist() const { return bound_; }
    void sort() {}

    bool addPoint(float sqDist, std::size_t index) {
        if (sqDist < sqRadius_) {
            ++count_;
            found_(index, sqDist);
        }
        return true;
    }

private:
    float sqRadius_;
    float bound_;
    std::size_t count_ = 0;
    Found found_;
};

/// The nearest point other than one: its squared distance.
class NearestOtherResult {
public:
    explicit NearestOtherResult(std::size_t self) : self_(self) {}

    [[nodiscard]] std::size_t size() const { return found_ ? 1 : 0; }
    [[nodiscard]] bool empty() const { return !found_; }
    [[nodiscard]] bool full() const { return found_; }
    [[nodiscard]] float worstDist() const { return bound_; }
    [[nodiscard]] float sqDist() const { return sqDist_; }
    void sort() {}

    bool addPoint(float sqDist, std::size_t index) {
        if (index != self_ && sqDist < sqDist_) {
            sqDist_ = sqDist;
            bound_ = pruningBound(sqDist);
            found_ = true;
        }
        return true;
    }

private:
    std::size_t self_;
    float sqDist_ = std::numeric_limits<float>::max();
    float bound_ = std::numeric_limits<float>::max();
    bool found_ = false;
};

/// Whether every coordinate is finite, that is, whether no exponent has all its bits set.
[[nodiscard]] inline bool allFinite(const std::vector<Vector3f>& points) noexcept {
    constexpr std::uint32_t MAGNITUDE = 0x7fffffff;
    constexpr std::uint32_t INFINITE = 0x7f800000;
    std::uint32_t largest = 0;  // without branches, so that the loop is vectorised
    for (const Vector3f& p : points) {
        for (int axis = 0; axis < 3; ++axis) {
            largest = std::max(largest, std::bit_cast<std::uint32_t>(p[axis]) & MAGNITUDE);
        }
    }
    return largest < INFINITE;
}

/// Where nobody watches an index being built.
struct Unwatched {
    void begin(Work* /*work*/) {}
    void end() {}
    void read() const {}
};

/// Ends the building of an index on request: nanoflann has no place to ask but where it reads coordinates.
class WatchedBuild {
public:
    void begin(Work* work) { work_ = work; }
    void end() { work_ = nullptr; }
    void read() const {
        constexpr std::uint32_t EVERY = 1u << 16;
        if (work_ != nullptr && ++reads_ % EVERY == 0) {
            work_->check();
        }
    }

private:
    Work* work_ = nullptr;
    mutable std::uint32_t reads_ = 0;  ///< not touched by queries, which may run at once
};

/// nanoflann's index over a vector that the caller keeps. Its address must not change: nanoflann refers to
/// the dataset in it.
template <class Watch>
class BasicKdIndex {
public:
    explicit BasicKdIndex(const std::vector<Vector3f>& points, Work* work = nullptr)
        : dataset_{points, nullptr, {}}, tree_(3, dataset_, noBuild()) {
        dataset_.watch.begin(work);
        build();
        dataset_.watch.end();
    }
    BasicKdIndex(const BasicKdIndex&) = delete;
    BasicKdIndex& operator=(const BasicKdIndex&) = delete;

    void build() {
        // One NaN would spoil the splits for all points, so the index is laid out with 0 in its place. The
        // real coordinates come back for the queries, where the distance to such a point is never small.
        const std::vector<Vector3f>& points = dataset_.points;
        std::vector<Vector3f> finite;
        if (!allFinite(points)) {
            finite = points;
            for (Vector3f& p : finite) {
                for (float& c : p) {
                    c = std::isfinite(c) ? c : 0.0f;
                }
            }
        }
        dataset_.read = finite.empty() ? &points : &finite;
        tree_.buildIndex();
        dataset_.read = &points;
    }

    template <class Result>
    void search(const Vector3f& q, Result& result) const {
        tree_.findNeighbors(result, q.data(), kdSearchParams());
    }

    template <class Rank>
    std::size_t knn(const Vector3f& q, std::size_t k, std::size_t* indices, float* sqDists,
                    const Rank& rank) const {
        if (k == 0) {
            return 0;
        }
        KnnResult<Rank> result(k, indices, sqDists, rank);
        search(q, result);
        return result.size();
    }

private:
    struct Dataset {
        const std::vector<Vector3f>& points;
        const std::vector<Vector3f>* read = nullptr;  ///< not its data: the caller's vector may grow
        [[no_unique_address]] Watch watch;

        [[nodiscard]] std::size_t kdtree_get_point_count() const { return points.size(); }
        [[nodiscard]] float kdtree_get_pt(std::size_t i, std::size_t dim) const {
            watch.read();
            return (*read)[i].data()[dim];
        }
        template <class Box>
        bool kdtree_get_bbox(Box&) const {
            return false;
        }
    };
    using Metric = nanoflann::L2_Simple_Adaptor<float, Dataset, float, std::size_t>;
    using Tree = nanoflann::KDTreeSingleIndexAdaptor<Metric, Dataset, 3, std::size_t>;

    static constexpr std::size_t LEAF_SIZE = 10;
    [[nodiscard]] static nanoflann::KDTreeSingleIndexAdaptorParams noBuild() {
        return {LEAF_SIZE, nanoflann::KDTreeSingleIndexAdaptorFlags::SkipInitialBuildIndex};
    }

    Dataset dataset_;
    Tree tree_;
};

using KdIndex = BasicKdIndex<Unwatched>;
using WatchedKdIndex = BasicKdIndex<WatchedBuild>;

}  // namespace ombrix::core::detail
