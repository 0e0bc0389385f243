#include <array>

#include <ombrix/core/octree/cell_key_detail.h>
#include <ombrix/core/octree/octree_factory.h>
#include <ombrix/core/octree/octree_geometry_detail.h>

namespace ombrix::core {
OctreeFactory::OctreeFactory(const Vector3f& origin, const Vector3f& top)
    : origin_(origin), top_(top), extend_(detail::largestSide(origin, top)) {}

OctreeFactory::OctreeFactory(const Vector3f& origin, float extend)
    : origin_(origin), top_(origin + Vector3f::Constant(extend)), extend_(extend) {}

void OctreeFactory::setOriginTop(const Vector3f& origin, const Vector3f& top) {
    const Vector3f upper = top;  // may be a corner that is replaced
    origin_ = origin;
    top_ = upper;
    extend_ = detail::largestSide(origin_, top_);
}

void OctreeFactory::setOriginExtend(const Vector3f& origin, float extend) {
    origin_ = origin;
    top_ = origin + Vector3f::Constant(extend);
    extend_ = extend;
}

void OctreeFactory::clear() {}

std::uint64_t OctreeFactory::size() const {
    return 0;
}

Vector3f OctreeFactory::normalize(const Vector3f& p, float extend) {
    return {detail::relative(p.x(), extend), detail::relative(p.y(), extend),
            detail::relative(p.z(), extend)};
}

Vector3d OctreeFactory::normalize(const Vector3d& p, double extend) {
    return {detail::relative(p.x(), extend), detail::relative(p.y(), extend),
            detail::relative(p.z(), extend)};
}

morton3d<std::uint64_t> OctreeFactory::morton_key(const Vector3f& p) const {
    return morton_key(p, extend_);
}

morton3d<std::uint64_t> OctreeFactory::morton_key(const Vector3f& p, float extend) {
    return detail::cellKey(p, extend);
}

morton3d<std::uint64_t> OctreeFactory::morton_keyd(const Vector3d& p) const {
    return morton_keyd(p, static_cast<double>(extend_));
}

morton3d<std::uint64_t> OctreeFactory::morton_keyd(const Vector3d& p, double extend) {
    return detail::cellKey(p, extend);
}

void OctreeFactory::copyStateTo(Octree& out, Octree::OctreeType type) const {
    out.origin_ = origin_;
    out.top_ = top_;
    out.extend_ = extend_;
    out.setScalarFieldMinMax(scalarMin_, scalarMax_);
    out.type() = type;
}

void OctreeFactory::widenScalarRange(float min, float max) {
    scalarMin_ = min < scalarMin_ ? min : scalarMin_;
    scalarMax_ = max > scalarMax_ ? max : scalarMax_;
}

void OctreeFactory::widenScalarRange(const PointCloud& cloud) {
    // Lanes of their own for every eighth value, which the compiler can keep in vector registers.
    constexpr std::size_t LANES = 8;
    std::array<float, LANES> low;
    std::array<float, LANES> high;
    low.fill(scalarMin_);
    high.fill(scalarMax_);
    const std::vector<float>& scalars = cloud.scalars();
    std::size_t i = 0;
    for (; i + LANES <= scalars.size(); i += LANES) {
        for (std::size_t lane = 0; lane < LANES; ++lane) {
            const float scalar = scalars[i + lane];
            low[lane] = scalar < low[lane] ? scalar : low[lane];
            high[lane] = scalar > high[lane] ? scalar : high[lane];
        }
    }
    for (std::size_t lane = 0; lane < LANES; ++lane) {
        widenScalarRange(low[lane], high[lane]);
    }
    for (; i < scalars.size(); ++i) {
        widenScalarRange(scalars[i], scalars[i]);
    }
}

}  // namespace ombrix::core
