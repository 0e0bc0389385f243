#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <ombrix/core/analysis/normal_estimator.h>
#include <ombrix/core/analysis/pca.h>
#include <ombrix/core/analysis/spatial_order_detail.h>
#include <ombrix/core/octree/knn_search.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/services/work_detail.h>

namespace ombrix::core {
namespace {

constexpr std::uint8_t NODE_RELATIVE = 8;

template <class... Neighbourhood>
Vector3f normalOf(bool empty, const Neighbourhood&... neighbourhood) {
    if (empty) {
        return Vector3f::Zero();
    }
    PCA pca;
    pca.compute(neighbourhood...);
    pca.sort();
    return -1.0f * pca.eigenVector(0);
}

/// One normal per point of the copy into `normals`, which has their length.
template <class Copy>
void estimate(const Copy& copy, std::size_t k, std::vector<Vector3f>& normals, detail::Work* work) {
    const std::size_t wanted = std::min(k, copy.size());
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, copy.size(), detail::SPATIAL_GRAIN),
                      [&](const tbb::blocked_range<std::size_t>& range) {
                          std::vector<std::size_t> indices(wanted);
                          std::vector<float> sqDists(wanted);
                          detail::WorkSteps steps(work);
                          for (std::size_t i = range.begin(); i != range.end(); ++i) {
                              indices.resize(wanted);
                              indices.resize(copy.knn(i, wanted, indices.data(), sqDists.data()));
                              normals[copy.original(i)] = NormalEstimator::compute(copy.points(), indices);
                              steps.step();
                          }
                          steps.flush();
                      });
}

/// One normal per position into `normals`, which has their length.
void estimate(const std::vector<Vector3f>& positions, std::size_t k, std::vector<Vector3f>& normals) {
    estimate(detail::SpatialCopy(positions), k, normals, nullptr);
}

/// The same, watched; what `normals` holds is unspecified when it is stopped.
void estimate(const std::vector<Vector3f>& positions, std::size_t k, std::vector<Vector3f>& normals,
              detail::Work& work) {
    work.begin(0.0, 0);
    const detail::WatchedSpatialCopy copy(positions, &work);
    work.begin(1.0, positions.size());
    estimate(copy, k, normals, &work);
}

/// The loaded nodes of depth <= `depth` by ascending key, so that the result does not depend on the map.
std::vector<const Octree::Node*> loadedNodes(const Octree& octree, unsigned int depth) {
    std::vector<const Octree::Node*> loaded;
    for (const auto& [key, node] : octree.nodes()) {
        if (node.pc && node_depth(key) <= depth) {
            loaded.push_back(&node);
        }
    }
    std::sort(loaded.begin(), loaded.end(),
              [](const Octree::Node* a, const Octree::Node* b) { return a->key < b->key; });
    return loaded;
}

/// Gathers the positions of the nodes, has estimate(positions, normals) fill the normals, and scatters them
/// back.
template <class Estimate>
void computeInTree(Octree& octree, int k, unsigned int depth, const Estimate& estimateAll) {
    if (k <= 0) {
        return;
    }
    const std::vector<const Octree::Node*> nodes = loadedNodes(octree, depth);

    // Gather the positions, relative to the tree's origin
    std::vector<Vector3f> positions;
    for (const Octree::Node* node : nodes) {
        const bool relative = (node->flags & NODE_RELATIVE) != 0;
        const Vector3f offset = relative ? octree.node_origin(*node) : Vector3f::Zero().eval();
        for (const Vector3f& p : node->pc->positions()) {
            positions.push_back(p + offset);
        }
    }

    std::vector<Vector3f> normals(positions.size());
    estimateAll(positions, normals);

    // Scatter the normals back
    auto next = normals.cbegin();
    for (const Octree::Node* node : nodes) {
        PointCloud& cloud = *node->pc;
        const auto end = next + static_cast<std::ptrdiff_t>(cloud.size());
        cloud.fields().detach(FIELD_NORMAL);
        cloud.normals().assign(next, end);
        next = end;
    }
}

}  // namespace

Vector3f NormalEstimator::compute(const std::vector<Point>& nbrs) {
    return normalOf(nbrs.empty(), nbrs);
}

Vector3f NormalEstimator::compute(const std::vector<Point>& pts, const std::vector<std::size_t>& indices) {
    return normalOf(indices.empty(), pts, indices);
}

Vector3f NormalEstimator::compute(const std::vector<Vector3f>& pts, const std::vector<std::size_t>& indices) {
    return normalOf(indices.empty(), pts, indices);
}

void NormalEstimator::compute(kNNSearch& search, const Vector3f& p, int depth, Vector3f& normal,
                              unsigned int k) {
    std::vector<Point> nbrs;
    search.search(p, depth, k, nbrs);
    normal = compute(nbrs);
}

void NormalEstimator::compute(PointCloud& cloud, std::size_t k) {
    std::vector<Vector3f>& normals = cloud.normals();
    normals.resize(cloud.size());
    estimate(cloud.positions(), k, normals);
}

bool NormalEstimator::compute(PointCloud& cloud, std::size_t k, const WorkContext& context) {
    return detail::runWatched(context, [&](detail::Work& work) {
        std::vector<Vector3f> normals(cloud.size());
        estimate(cloud.positions(), k, normals, work);
        cloud.normals() = std::move(normals);
    });
}

void NormalEstimator::compute(Octree& octree, int k, unsigned int depth) {
    computeInTree(octree, k, depth,
                  [&](const std::vector<Vector3f>& positions, std::vector<Vector3f>& normals) {
                      estimate(positions, static_cast<std::size_t>(k), normals);
                  });
}

bool NormalEstimator::compute(Octree& octree, int k, unsigned int depth, const WorkContext& context) {
    return detail::runWatched(context, [&](detail::Work& work) {
        computeInTree(octree, k, depth,
                      [&](const std::vector<Vector3f>& positions, std::vector<Vector3f>& normals) {
                          estimate(positions, static_cast<std::size_t>(k), normals, work);
                      });
    });
}

}  // namespace ombrix::core
