#include <vector>

#include <ombrix/core/octree/cell_key_detail.h>
#include <ombrix/core/octree/full_octree_factory.h>
#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/octree_converter.h>
#include <ombrix/core/octree/padded_append_detail.h>

namespace ombrix::core {

FullOctreeFactory::FullOctreeFactory(const Vector3f& origin, const Vector3f& top, unsigned int capacity)
    : OctreeFactory(origin, top), capacity_(capacity) {}

FullOctreeFactory::FullOctreeFactory(const Vector3f& origin, float extend, unsigned int capacity)
    : OctreeFactory(origin, extend), capacity_(capacity) {}

void FullOctreeFactory::add(const PointCloud& cloud, const Vector3d& shift) {
    detail::appendEven(cloud_, cloud, shift - origin_.cast<double>(), false);
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

    const std::vector<Vector3f>& positions = cloud_.positions();
    const double extend = extend_;
    OctreeConverter::PairVector pairs = detail::mortonPairs(positions.size(), [&](std::uint64_t i) {
        return detail::cellKey(positions[i].cast<double>(), extend).key;
    });
    detail::sortByCode(pairs);
    // Without points the last position wraps around and the run counts as empty.
    OctreeConverter::recursiveBuild(cloud_, pairs, {0, positions.size() - 1, 1, 0}, capacity_, false, out);
}

}  // namespace ombrix::core
