#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include <ombrix/core/view/octree_query.h>
#include <ombrix/core/view/open_cube_detail.h>

namespace ombrix::core {
namespace {

class BoxRegion {
public:
    explicit BoxRegion(const Aabb& box) : box_(box) {}

    [[nodiscard]] bool touches(const detail::OpenCube& cube) const {
        return (cube.lower.array() <= box_.max.array()).all() &&
               (cube.upper.array() >= box_.min.array()).all();
    }
    [[nodiscard]] bool contains(const Vector3d& p) const {
        return (p.array() >= box_.min.array()).all() && (p.array() <= box_.max.array()).all();
    }

private:
    Aabb box_;
};

class SphereRegion {
public:
    SphereRegion(const Vector3d& center, double radius)
        : center_(center), reach_(radius * (1.0 + 1e-12)), sqRadius_(radius * radius) {}

    [[nodiscard]] bool touches(const detail::OpenCube& cube) const {
        const Vector3d nearest = center_.cwiseMax(cube.lower).cwiseMin(cube.upper);
        return (nearest - center_).norm() <= reach_;
    }
    [[nodiscard]] bool contains(const Vector3d& p) const { return (p - center_).squaredNorm() <= sqRadius_; }

private:
    Vector3d center_;
    double reach_;
    double sqRadius_;
};

class FrustumRegion {
public:
    FrustumRegion(const ViewFrustum& frustum, double extend) : frustum_(frustum) {
        const Vector3d center = frustum.getPosition().translation().cast<double>();
        const Vector3d x = frustum.ax().cast<double>();
        const Vector3d y = frustum.ay().cast<double>();
        const Vector3d z = frustum.az().cast<double>();
        const bool box = frustum.orthographic();
        const double aspect = frustum.aspect();
        const double slope = box ? 0.0 : frustum.slope();
        const double half = box ? frustum.orthographicSize() : 0.0;
        planes_ = {{{-z, -frustum.nearDepth()},
                    {z, frustum.farDepth()},
                    {x - aspect * slope * z, aspect * half},
                    {-x - aspect * slope * z, aspect * half},
                    {y - slope * z, half},
                    {-y - slope * z, half}}};
        // The test of points rounds as float does
        const double size = extend + center.cwiseAbs().maxCoeff();
        for (Plane& plane : planes_) {
            plane.distance += plane.normal.dot(center);
            plane.distance += 1e-5 * (plane.normal.lpNorm<1>() * size + std::abs(plane.distance));
        }
    }

    [[nodiscard]] bool touches(const detail::OpenCube& cube) const {
        for (const Plane& plane : planes_) {
            double least = 0.0;
            for (int axis = 0; axis < 3; ++axis) {
                const double n = plane.normal[axis];
                if (n != 0.0) {
                    least += n * (n > 0.0 ? cube.lower[axis] : cube.upper[axis]);
                }
            }
            if (least > plane.distance) {
                return false;
            }
        }
        return true;
    }
    [[nodiscard]] bool contains(const Vector3d& p) const {
        return frustum_.pointInFrustum(p.cast<float>()) != 0;
    }

private:
    /// Holds x where normal * x <= distance.
    struct Plane {
        Vector3d normal;
        double distance;
    };

    ViewFrustum frustum_;
    std::array<Plane, 6> planes_;
};

template <class Region>
RegionResult search(const Octree& octree, const Region& region) {
    RegionResult result;
    std::vector<std::uint64_t> queue = {octree.rootKey()};
    std::vector<std::uint64_t> indices;
    for (std::size_t next = 0; next < queue.size(); ++next) {
        const std::uint64_t key = queue[next];
        const auto found = octree.nodes().find(key);
        if (found == octree.nodes().end() || !region.touches(detail::openCube(octree, key))) {
            continue;
        }
        const Octree::Node& node = found->second;
        if (node.pc) {
            const Vector3d offset = detail::pointOffset(octree, node);
            const std::vector<Vector3f>& positions = node.pc->positions();
            indices.clear();
            for (std::size_t i = 0; i < positions.size(); ++i) {
                const Vector3d p = positions[i].cast<double>() + offset;
                if (region.contains(p) && p.allFinite()) {
                    indices.push_back(i);
                }
            }
            if (!indices.empty()) {
                result.nodes.push_back({key, indices});
                result.count += indices.size();
            }
        } else if (detail::lacksCloud(node)) {
            result.missing.push_back(key);
        }
        for (unsigned int octant = 0; octant < 8 && node_depth(key) < Octree::MAX_DEPTH; ++octant) {
            if ((node.children >> octant & 1) != 0) {
                queue.push_back(child_key(key, octant));
            }
        }
    }
    return result;
}

}  // namespace

RegionResult OctreeQuery::inBox(const Aabb& box) const {
    if (!(box.min.array() <= box.max.array()).all()) {
        return {};
    }
    return search(*octree_, BoxRegion(box));
}

RegionResult OctreeQuery::inSphere(const Vector3d& center, double radius) const {
    if (!center.allFinite() || !(radius >= 0.0)) {
        return {};
    }
    return search(*octree_, SphereRegion(center, radius));
}

RegionResult OctreeQuery::inFrustum(const ViewFrustum& frustum) const {
    if (!frustum.getPosition().matrix().allFinite()) {
        return {};
    }
    return search(*octree_, FrustumRegion(frustum, octree_->extend()));
}

void OctreeQuery::extract(const RegionResult& found, PointCloud& out) const {
    for (const NodePoints& points : found.nodes) {
        const auto node = octree_->nodes().find(points.key);
        if (node != octree_->nodes().end() && node->second.pc) {
            out.push_back(*node->second.pc, points.indices, detail::positionOffset(*octree_, node->second),
                          false);
        }
    }
}

}  // namespace ombrix::core
