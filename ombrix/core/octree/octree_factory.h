#pragma once

#include <cstdint>

#include <ombrix/core/core_export.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/types.h>

namespace ombrix::core {

/// Base of the octree builders: the root box, the running range of scalars, and the keys of points.
///
/// The root box is the cube of edge `extend()` at `origin()`. Destroyed as what it is, never through this
/// base. A factory is used by one thread at a time.
class OMBRIX_CORE_API OctreeFactory {
public:
    /// Levels below the root: the codes of points have 3 bits for each.
    static constexpr unsigned int MAX_DEPTH = MORTON_LEVELS;

    /// Takes both corners as they are; the edge is the largest component of top - origin.
    OctreeFactory(const Vector3f& origin, const Vector3f& top);
    /// The cube of edge `extend` at `origin`.
    OctreeFactory(const Vector3f& origin, float extend);

    /// As the constructors.
    virtual void setOriginTop(const Vector3f& origin, const Vector3f& top);
    virtual void setOriginExtend(const Vector3f& origin, float extend);

    /// Removes the points held; nothing in this base.
    virtual void clear();
    /// Number of points held; 0 in this base.
    [[nodiscard]] virtual std::uint64_t size() const;
    /// Adds the points of a cloud, each position moved by `shift`.
    virtual void add(const PointCloud& cloud, const Vector3d& shift) = 0;
    /// Adds the points of a cloud.
    virtual void add(const PointCloud& cloud) = 0;
    /// Hands the tree that was built over to `out`.
    virtual void operator()(Octree& out) = 0;

    /// Code of the finest cell, of 2^21 along each axis, that contains p.
    ///
    /// p is relative to the root's origin: nothing is subtracted. Positions outside are clamped to the root
    /// box per axis, its upper faces belong to the last cell, and a NaN counts as 0.
    [[nodiscard]] morton3d<std::uint64_t> morton_key(const Vector3f& p) const;
    [[nodiscard]] static morton3d<std::uint64_t> morton_key(const Vector3f& p, float extend);
    /// The same, rounded as double.
    [[nodiscard]] morton3d<std::uint64_t> morton_keyd(const Vector3d& p) const;
    [[nodiscard]] static morton3d<std::uint64_t> morton_keyd(const Vector3d& p, double extend);

    /// Lower corner of the root box.
    [[nodiscard]] const Vector3f& origin() const { return origin_; }
    /// Upper corner as it was given.
    [[nodiscard]] const Vector3f& top() const { return top_; }
    /// Edge of the root box.
    [[nodiscard]] float extend() const { return extend_; }
    /// Range of the scalars added; 3.4028235e38 and -3.4028235e38 before the first.
    [[nodiscard]] float scalarfieldMin() const { return scalarMin_; }
    [[nodiscard]] float scalarfieldMax() const { return scalarMax_; }

protected:
    /// Copies root box and scalar range into the tree and sets its type.
    void copyStateTo(Octree& out, Octree::OctreeType type) const;
    /// Widens the scalar range; NaN does not count.
    void widenScalarRange(float min, float max);
    /// Widens the scalar range by the cloud's scalars, if there are any.
    void widenScalarRange(const PointCloud& cloud);

    Vector3f origin_;                   ///< see `origin()`
    Vector3f top_;                      ///< see `top()`
    float extend_;                      ///< see `extend()`
    float scalarMin_ = 3.4028235e38f;   ///< see `scalarfieldMin()`
    float scalarMax_ = -3.4028235e38f;  ///< see `scalarfieldMax()`

private:
    [[nodiscard]] static Vector3f normalize(const Vector3f& p, float extend);
    [[nodiscard]] static Vector3d normalize(const Vector3d& p, double extend);
};

}  // namespace ombrix::core
