#include <algorithm>
#include <bit>
#include <cmath>
#include <numeric>

#include <tbb/parallel_sort.h>

#include <ombrix/core/analysis/kd_index_detail.h>

namespace ombrix::core::detail {
namespace {

// A run of twice as many points that coincide, side by side in the leaves, is noticed for sure.
constexpr std::size_t RUN = 32;

/// Whether every coordinate is finite, that is, whether no exponent has all its bits set.
bool allFinite(const std::vector<Vector3f>& points) {
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

Vector3f withoutVanishing(const Vector3f& p) {
    return p.unaryExpr([](float c) { return std::abs(c) < 0x1p-70f ? 0.0f : c; });
}

/// The indices of all points, leaf by leaf; newer versions name the member otherwise.
template <class Tree>
const auto& leafOrder(const Tree& tree) {
    if constexpr (requires { tree.vAcc_; }) {
        return tree.vAcc_;
    } else {
        return tree.vAcc;
    }
}

}  // namespace

template <class Watch>
void BasicKdIndex<Watch>::build() {
    const std::vector<Vector3f>& points = dataset_.points;
    kept_.clear();
    members_.clear();
    starts_.clear();
    dataset_.read = &points;
    if (!allFinite(points)) {
        keepFinite();
    }
    tree_.buildIndex();
    if (manyCoincide()) {
        groupCoincident();
        tree_.buildIndex();
    }
}

template <class Watch>
void BasicKdIndex<Watch>::keepFinite() {
    const std::vector<Vector3f>& points = dataset_.points;
    for (std::uint64_t i = 0; i < points.size(); ++i) {
        if (points[i].allFinite()) {
            members_.push_back(i);
            kept_.push_back(points[i]);
        }
    }
    dataset_.read = &kept_;
}

template <class Watch>
bool BasicKdIndex<Watch>::manyCoincide() const {
    const auto& order = leafOrder(tree_);
    const std::vector<Vector3f>& entries = *dataset_.read;
    for (std::size_t i = 0; i + RUN <= entries.size(); i += RUN) {
        if (withoutVanishing(entries[order[i]]) == withoutVanishing(entries[order[i + RUN - 1]])) {
            return true;
        }
    }
    return false;
}

template <class Watch>
void BasicKdIndex<Watch>::groupCoincident() {
    const std::vector<Vector3f>& points = dataset_.points;
    if (members_.empty()) {
        members_.resize(points.size());
        std::iota(members_.begin(), members_.end(), std::uint64_t{0});
    }
    tbb::parallel_sort(members_.begin(), members_.end(), [&](std::uint64_t a, std::uint64_t b) {
        const Vector3f p = withoutVanishing(points[a]);
        const Vector3f q = withoutVanishing(points[b]);
        for (int axis = 0; axis < 3; ++axis) {
            if (p[axis] != q[axis]) {
                return p[axis] < q[axis];
            }
        }
        return a < b;
    });
    std::vector<Vector3f> kept;
    for (std::uint64_t i = 0; i < members_.size(); ++i) {
        const Vector3f p = withoutVanishing(points[members_[i]]);
        if (kept.empty() || kept.back() != p) {
            starts_.push_back(i);
            kept.push_back(p);
        }
    }
    starts_.push_back(members_.size());
    kept_ = std::move(kept);
    dataset_.read = &kept_;
}

template class BasicKdIndex<Unwatched>;
template class BasicKdIndex<WatchedBuild>;

}  // namespace ombrix::core::detail
