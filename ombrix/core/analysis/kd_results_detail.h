#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

namespace ombrix::core::detail {

// What a search of `KdIndex` collects. Points that coincide may be handed over together, as ascending
// indices: `addGroup` takes of them what belongs to the result.

/// The bound a search prunes with, a little above the exact one: the distances to cells that the search
/// adds up on its way down are rounded some 60 times at most, 2^-24 each, and must not cut off a point that
/// belongs to the result. Also lets points at exactly the bound through, for the order of ties.
[[nodiscard]] inline float pruningBound(float sqDist) noexcept {
    constexpr float SLACK = 1.0f + 0x1p-17f;
    return sqDist * SLACK + 64 * std::numeric_limits<float>::denorm_min();
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
        insert(sqDist, index);
        return true;
    }
    void addGroup(float sqDist, const std::uint64_t* first, const std::uint64_t* last) {
        while (first != last && insert(sqDist, *first)) {
            ++first;
        }
    }

private:
    bool insert(float sqDist, std::size_t index) {
        if (count_ == capacity_) {
            if (!before(sqDist, index, worst_, indices_[capacity_ - 1])) {
                return false;
            }
        } else if (sqDist < worst_) {
            ++count_;
        } else {
            return false;
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
    void addGroup(float sqDist, const std::uint64_t* first, const std::uint64_t* last) {
        for (; first != last; ++first) {
            addPoint(sqDist, *first);
        }
    }

private:
    float sqRadius_;
    float bound_;
    std::size_t count_ = 0;
    Found found_;
};

/// The number of points strictly inside a squared radius.
class RadiusCount {
public:
    explicit RadiusCount(float sqRadius) : sqRadius_(sqRadius), bound_(pruningBound(sqRadius)) {}

    [[nodiscard]] std::size_t size() const { return count_; }
    [[nodiscard]] bool empty() const { return count_ == 0; }
    [[nodiscard]] bool full() const { return true; }
    [[nodiscard]] float worstDist() const { return bound_; }
    void sort() {}

    bool addPoint(float sqDist, std::size_t) {
        count_ += sqDist < sqRadius_ ? 1 : 0;
        return true;
    }
    void addGroup(float sqDist, const std::uint64_t* first, const std::uint64_t* last) {
        count_ += sqDist < sqRadius_ ? static_cast<std::size_t>(last - first) : 0;
    }

private:
    float sqRadius_;
    float bound_;
    std::size_t count_ = 0;
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
    void addGroup(float sqDist, const std::uint64_t* first, const std::uint64_t* last) {
        addPoint(sqDist, first[0]);
        if (last - first > 1) {
            addPoint(sqDist, first[1]);
        }
    }

private:
    std::size_t self_;
    float sqDist_ = std::numeric_limits<float>::max();
    float bound_ = std::numeric_limits<float>::max();
    bool found_ = false;
};

}  // namespace ombrix::core::detail
