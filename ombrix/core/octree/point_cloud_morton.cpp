#include <algorithm>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <ombrix/core/octree/cell_key_detail.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/octree_factory.h>
#include <ombrix/core/octree/padded_append_detail.h>
#include <ombrix/core/octree/point_cloud_morton.h>

namespace ombrix::core {
namespace {

template <class T>
void gather(std::vector<T>& target, const std::vector<T>& source, const std::vector<std::uint64_t>& indices) {
    if (source.empty()) {
        return;
    }
    target.resize(indices.size());
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, indices.size()), [&](const auto& range) {
        for (std::size_t i = range.begin(); i != range.end(); ++i) {
            target[i] = source[indices[i]];
        }
    });
}

}  // namespace

PointCloudMorton::PointCloudMorton(const PointCloud& cloud, const Vector3f& origin, float extend) {
    const Vector3d corner = origin.cast<double>();
    auto pairs = detail::mortonPairs(cloud.size(), [&](std::uint64_t i) {
        return detail::cellKey(cloud.positions()[i].cast<double>() - corner, extend).key;
    });
    detail::sortByCode(pairs);

    codes_.resize(pairs.size());
    permutation_.resize(pairs.size());
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, pairs.size()), [&](const auto& range) {
        for (std::size_t i = range.begin(); i != range.end(); ++i) {
            permutation_[i] = pairs[i].first;
            codes_[i] = pairs[i].second;
        }
    });

    PointCloud padded;
    const PointCloud& source = detail::evenCloud(cloud, padded);
    gather(cloud_.positions(), source.positions(), permutation_);
    gather(cloud_.colors(), source.colors(), permutation_);
    gather(cloud_.scalars(), source.scalars(), permutation_);
    cloud_.fields().append(source.fields(), permutation_);
}

std::pair<std::uint64_t, std::uint64_t> PointCloudMorton::range(std::uint64_t key) const {
    const unsigned int depth = node_depth(key);
    const unsigned int below = 3 * (MORTON_LEVELS - depth);
    const std::uint64_t first = (key ^ std::uint64_t{1} << (3 * depth)) << below;
    const std::uint64_t last = first | ((std::uint64_t{1} << below) - 1);
    const auto begin = std::lower_bound(codes_.begin(), codes_.end(), first);
    const auto end = std::upper_bound(begin, codes_.end(), last);
    return {static_cast<std::uint64_t>(begin - codes_.begin()),
            static_cast<std::uint64_t>(end - codes_.begin())};
}

std::vector<std::uint64_t> PointCloudMorton::keys(unsigned int depth) const {
    depth = std::min(depth, MORTON_LEVELS);
    std::vector<std::uint64_t> keys;
    for (const std::uint64_t code : codes_) {
        if (const std::uint64_t key = node_key(code, depth); keys.empty() || keys.back() != key) {
            keys.push_back(key);
        }
    }
    return keys;
}

OctreeConverter::PairVector PointCloudMorton::pairs() const {
    return detail::mortonPairs(size(), [&](std::uint64_t i) { return codes_[i]; });
}

}  // namespace ombrix::core
