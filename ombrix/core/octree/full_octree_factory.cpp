#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <ombrix/core/octree/full_octree_factory.h>
#include <ombrix/core/octree/octree_converter.h>
#include <ombrix/core/octree/sort_pairs_detail.h>

namespace ombrix::core {

FullOctreeFactory::FullOctreeFactory(const Vector3f& origin, const Vector3f& top, unsigned int capacity)
    : OctreeFactory(origin, top), capacity_(capacity) {}

FullOctreeFactory::FullOctreeFactory(const Vector3f& origin, float extend, unsigned int capacity)
    : OctreeFactory(origin, extend), capacity_(capacity) {}

void FullOctreeFactory::add(const PointCloud& cloud, const Vector3d& shift) {
    cloud_.push_back(cloud, shift - origin_.cast<double>(), false);
    widenScalarRange(cloud);
}

void FullOctreeFactory::add(const PointCloud& cloud) {
    add(cloud, Vector3d::Zero());
}

void FullOctreeFactory::operator()(Octree& out) {
    factory(out);
}

void FullOctreeFactory::factory(Octree& out) {
    copyStateTo(out, Octree::FULL);

    // Key the points
    const std::uint64_t count = cloud_.size();
    OctreeConverter::PairVector pairs(count);
    tbb::parallel_for(tbb::blocked_range<std::uint64_t>(0, count),
                      [&](const tbb::blocked_range<std::uint64_t>& range) {
                          for (std::uint64_t i = range.begin(); i != range.end(); ++i) {
                              pairs[i] = {i, morton_keyd(cloud_.positions()[i].cast<double>()).key};
                          }
                      });

    detail::sortByCode(pairs);
    OctreeConverter::recursiveBuild(cloud_, pairs, {0, count - 1, 1, 0}, capacity_, false, out);
}

}  // namespace ombrix::core
