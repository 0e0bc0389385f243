#include <array>

#include <ombrix/core/octree/octree_factory.h>
#include <ombrix/core/octree/octree_geometry_detail.h>

namespace ombrix::core {
namespace {

/// c / extend clamped to [0, last]; NaN gives 0.
template <class T>
T relative(T c, T extend, T last) {
    const T q = c / extend;
    if (!(q >= T{0})) {
        return T{0};
    }
    return q > last ? last : q;
}

template <class Vector>
morton3d<std::uint64_t> cellKey(const Vector& normalized) {
    using Scalar = typename Vector::Scalar;
    constexpr Scalar CELLS = 1u << MORTON_LEVELS;
    return {static_cast<std::uint32_t>(normalized.x() * CELLS),
            static_cast<std::uint32_t>(normalized.y() * CELLS),
            static_cast<std::uint32_t>(normalized.z() * CELLS)};
}

}  // namespace

OctreeFactory::OctreeFactory(const Vector3f& origin, const Vector3f& top)
    : origin_(origin), top_(top), extend_(detail::largestSide(origin, top)) {}

OctreeFactory::OctreeFactory(const Vector3f& origin, float extend)
    : origin_(origin), top_(origin + Vector3f::Constant(extend)), extend_(extend) {}

void OctreeFactory::setOriginTop(const Vector3f& origin, const Vector3f& top) {
    origin_ = origin;
    top_ = top;
    extend_ = detail::largestSide(origin, top);
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

// The upper clamps stay below 1 so that the upper faces fall into the last cell; both are two steps below
// 1 in their precision.
Vector3f OctreeFactory::normalize(const Vector3f& p, float extend) {
    constexpr float LAST = 0.99999988079071044921875f;
    return {relative(p.x(), extend, LAST), relative(p.y(), extend, LAST), relative(p.z(), extend, LAST)};
}

Vector3d OctreeFactory::normalize(const Vector3d& p, double extend) {
    constexpr double LAST = 0.9999999999999998;
    return {relative(p.x(), extend, LAST), relative(p.y(), extend, LAST), relative(p.z(), extend, LAST)};
}

morton3d<std::uint64_t> OctreeFactory::morton_key(const Vector3f& p) const {
    return morton_key(p, extend_);
}

morton3d<std::uint64_t> OctreeFactory::morton_key(const Vector3f& p, float extend) {
    return cellKey(normalize(p, extend));
}

morton3d<std::uint64_t> OctreeFactory::morton_keyd(const Vector3d& p) const {
    return morton_keyd(p, static_cast<double>(extend_));
}

morton3d<std::uint64_t> OctreeFactory::morton_keyd(const Vector3d& p, double extend) {
    return cellKey(normalize(p, extend));
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
