#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <ombrix/core/analysis/kd_parallel_build_detail.h>
#include <ombrix/core/analysis/kd_results_detail.h>
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

/// Where nobody watches an index being built.
struct Unwatched {
    void begin(Work* /*work*/) {}
    void end() {}
    void check() const {}
    void read() const {}
};

/// Ends the building of an index on request. nanoflann has no place to ask but where it reads coordinates.
class WatchedBuild {
public:
    void begin(Work* work) { work_ = work; }
    void end() { work_ = nullptr; }
    void check() const {
        if (work_ != nullptr) {
            work_->check();
        }
    }
    void read() const {
        constexpr std::uint32_t EVERY = 1u << 16;
        thread_local std::uint32_t reads = 0;
        if (work_ != nullptr && ++reads % EVERY == 0) {
            work_->check();
        }
    }

private:
    Work* work_ = nullptr;  ///< null for queries
};

/// nanoflann's index over a vector that the caller keeps. Its address must not change: nanoflann refers to
/// the dataset in it.
///
/// Points that are not finite are left out, so that they cannot spoil the splits. Where many points coincide,
/// one stands for all of them: a search that had to compare the indices of each would take as long as the
/// cloud is large. Coordinates below 2^-70 count as 0 then: their squared distances are 0 or a few of the
/// smallest floats, so that such points would not be told apart by more than rounding.
template <class Watch>
class BasicKdIndex {
public:
    explicit BasicKdIndex(const std::vector<Vector3f>& points, Work* work = nullptr)
        : dataset_(points), tree_(3, dataset_, noBuild()) {
        dataset_.watch.begin(work);
        build();
        dataset_.watch.end();
    }
    BasicKdIndex(const BasicKdIndex&) = delete;
    BasicKdIndex& operator=(const BasicKdIndex&) = delete;

    void build();

    template <class Result>
    void search(const Vector3f& q, Result& result) const {
        if (dataset_.read == &kept_) {
            Expanded<Result> expanded{result, *this};
            tree_.findNeighbors(expanded, q.data(), kdSearchParams());
        } else {
            tree_.findNeighbors(result, q.data(), kdSearchParams());
        }
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
        explicit Dataset(const std::vector<Vector3f>& all) : points(all), read(&all) {}

        const std::vector<Vector3f>& points;
        const std::vector<Vector3f>* read;  ///< not its data: the caller's vector may grow
        [[no_unique_address]] Watch watch;

        [[nodiscard]] std::size_t kdtree_get_point_count() const { return read->size(); }
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
    using Tree = KdParallelBuild<nanoflann::KDTreeSingleIndexAdaptor<Metric, Dataset, 3, std::size_t>>;

    /// Hands the points that an entry stands for on to a result.
    template <class Result>
    struct Expanded {
        Result& result;
        const BasicKdIndex& index;

        [[nodiscard]] std::size_t size() const { return result.size(); }
        [[nodiscard]] bool empty() const { return result.empty(); }
        [[nodiscard]] bool full() const { return result.full(); }
        [[nodiscard]] float worstDist() const { return result.worstDist(); }
        void sort() {}
        bool addPoint(float sqDist, std::size_t entry) {
            const std::uint64_t* members = index.members_.data();
            if (index.starts_.empty()) {
                return result.addPoint(sqDist, members[entry]);
            }
            result.addGroup(sqDist, members + index.starts_[entry], members + index.starts_[entry + 1]);
            return true;
        }
    };

    static constexpr std::size_t LEAF_SIZE = 10;
    [[nodiscard]] static nanoflann::KDTreeSingleIndexAdaptorParams noBuild() {
        return {LEAF_SIZE, nanoflann::KDTreeSingleIndexAdaptorFlags::SkipInitialBuildIndex};
    }

    void keepFinite();
    void groupCoincident();
    [[nodiscard]] bool manyCoincide() const;

    Dataset dataset_;
    Tree tree_;
    std::vector<Vector3f> kept_;          // one for each entry, where not all points are entries
    std::vector<std::uint64_t> members_;  // indices of the points that the entries stand for
    std::vector<std::uint64_t> starts_;   // of each entry's members, and the end; empty: one each
};

using KdIndex = BasicKdIndex<Unwatched>;
using WatchedKdIndex = BasicKdIndex<WatchedBuild>;
extern template class BasicKdIndex<Unwatched>;
extern template class BasicKdIndex<WatchedBuild>;

}  // namespace ombrix::core::detail
