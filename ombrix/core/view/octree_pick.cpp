#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

#include <ombrix/core/view/octree_query.h>
#include <ombrix/core/view/open_cube_detail.h>

namespace ombrix::core {
namespace {

constexpr double INFINITE = std::numeric_limits<double>::infinity();

/// Narrows [from, to] to where a * t >= b.
void limit(double a, double b, double& from, double& to) {
    if (a > 0.0) {
        from = std::max(from, b / a);
    } else if (a < 0.0) {
        to = std::min(to, b / a);
    } else if (b > 0.0) {
        to = -INFINITE;
    }
}

/// A node to visit; no point in it can go before `bound`.
struct Cell {
    double bound;
    std::uint64_t key;

    /// Heap order: the smallest bound on top, equal ones by key.
    friend bool operator<(const Cell& a, const Cell& b) {
        return a.bound != b.bound ? a.bound > b.bound : a.key > b.key;
    }
};

class Pick {
public:
    Pick(const Octree& octree, const PickBeam& beam, PickOrder order)
        : octree_(octree),
          beam_(beam),
          frontmost_(order == PickOrder::FRONTMOST),
          slack_(Vector3d::Constant(detail::cubeSlack(octree))) {
        beam_.direction.stableNormalize();
    }

    [[nodiscard]] PickResult run() {
        PickResult result;
        if (!holdsPoints()) {
            return result;
        }
        std::vector<std::uint64_t> missing;
        push(octree_.rootKey());
        while (!queue_.empty() && queue_.front().bound <= best_) {
            std::pop_heap(queue_.begin(), queue_.end());
            const std::uint64_t key = queue_.back().key;
            queue_.pop_back();
            const auto found = octree_.nodes().find(key);
            if (found == octree_.nodes().end()) {
                continue;
            }
            const Octree::Node& node = found->second;
            if (node.pc) {
                scan(key, *node.pc, detail::pointOffset(octree_, node));
            } else if (detail::lacksCloud(node)) {
                missing.push_back(key);
            }
            for (unsigned int octant = 0; octant < 8 && node_depth(key) < Octree::MAX_DEPTH; ++octant) {
                if ((node.children >> octant & 1) != 0) {
                    push(child_key(key, octant));
                }
            }
        }
        std::sort(missing.begin(), missing.end());
        for (const std::uint64_t key : missing) {
            if (canGoFirst(key)) {
                result.missing.push_back(key);
            }
        }
        if (best_ < INFINITE) {
            result.point = point_;
        }
        return result;
    }

private:
    [[nodiscard]] bool holdsPoints() const {
        const bool finite = beam_.origin.allFinite() && beam_.direction.allFinite() &&
                            !beam_.direction.isZero(0.0) && std::isfinite(beam_.radius) &&
                            std::isfinite(beam_.slope);
        const bool ordered = beam_.minDepth <= beam_.maxDepth && beam_.radius >= 0.0 && beam_.slope >= 0.0 &&
                             (beam_.clip.min.array() <= beam_.clip.max.array()).all();
        return finite && ordered;
    }

    /// Smallest depth at which the beam, narrowed to a share of its width, can meet the cube; infinite when
    /// it passes by. A point at depth t is off the ray by at most the width at t, so the ray is inside the
    /// cube widened by that, which bounds t by two linear inequalities on each axis.
    [[nodiscard]] double entry(const detail::OpenCube& cube, double share) const {
        const double radius = share * beam_.radius;
        const double slope = share * beam_.slope;
        double from = beam_.minDepth;
        double to = beam_.maxDepth;
        for (int axis = 0; axis < 3; ++axis) {
            const double lower = std::max(cube.lower[axis], beam_.clip.min[axis] - slack_[axis]);
            const double upper = std::min(cube.upper[axis], beam_.clip.max[axis] + slack_[axis]);
            const double d = beam_.direction[axis];
            const double o = beam_.origin[axis];
            limit(slope + d, lower - o - radius, from, to);
            limit(slope - d, o - upper - radius, from, to);
        }
        return from <= to ? from : INFINITE;
    }

    /// A lower bound of the measure of all points in the cube; infinite when it has none.
    [[nodiscard]] double bound(const detail::OpenCube& cube) const {
        const double depth = entry(cube, 1.0);
        if (frontmost_ || depth == INFINITE) {
            return depth;
        }
        double empty = 0.0;
        if (entry(cube, empty) < INFINITE) {
            return 0.0;
        }
        for (double step = 0.5; step > 0.01; step *= 0.5) {
            if (entry(cube, empty + step) == INFINITE) {
                empty += step;
            }
        }
        return empty;
    }

    void push(std::uint64_t key) {
        const double b = bound(detail::openCube(octree_, key));
        if (b <= best_ && b < INFINITE) {
            queue_.push_back({b, key});
            std::push_heap(queue_.begin(), queue_.end());
        }
    }

    /// Whether the node may hold a point that goes before the best.
    [[nodiscard]] bool canGoFirst(std::uint64_t key) const {
        const detail::OpenCube cube = detail::openCube(octree_, key);
        if (frontmost_) {
            const double depth = entry(cube, 1.0);
            return depth < INFINITE && depth <= best_;
        }
        constexpr double ROUNDING = 1.0 + 1e-12;
        return entry(cube, std::min(1.0, best_ * ROUNDING)) < INFINITE;
    }

    void scan(std::uint64_t key, const PointCloud& cloud, const Vector3d& offset) {
        const Vector3d origin = beam_.origin - offset;
        const Vector3d lower = beam_.clip.min - offset;
        const Vector3d upper = beam_.clip.max - offset;
        const std::vector<Vector3f>& positions = cloud.positions();
        for (std::size_t i = 0; i < positions.size(); ++i) {
            const Vector3d p = positions[i].cast<double>();
            const Vector3d v = p - origin;
            const double depth = v.dot(beam_.direction);
            if (!(depth >= beam_.minDepth && depth <= beam_.maxDepth) || (frontmost_ && depth > best_)) {
                continue;
            }
            const double width = beam_.radius + beam_.slope * depth;
            const double sqOffset = (v - depth * beam_.direction).squaredNorm();
            if (width >= 0.0 && sqOffset <= width * width && (p.array() >= lower.array()).all() &&
                (p.array() <= upper.array()).all()) {
                offer({key, i, p + offset, depth, std::sqrt(sqOffset)}, width);
            }
        }
    }

    void offer(const PickedPoint& point, double width) {
        const double share = point.offset > 0.0 ? point.offset / width : 0.0;
        const double first = frontmost_ ? point.depth : share;
        const double second = frontmost_ ? point.offset : point.depth;
        if (std::tie(first, second, point.key, point.index) <
            std::tie(best_, second_, point_.key, point_.index)) {
            best_ = first;
            second_ = second;
            point_ = point;
        }
    }

    const Octree& octree_;
    PickBeam beam_;
    bool frontmost_;
    Vector3d slack_;
    std::vector<Cell> queue_;
    double best_ = INFINITE;    ///< depth or share of the best point so far
    double second_ = INFINITE;  ///< what decides between equal ones
    PickedPoint point_{};
};

}  // namespace

PickResult OctreeQuery::pick(const PickBeam& beam, PickOrder order) const {
    return Pick(*octree_, beam, order).run();
}

PickBeam cursorBeam(const ViewFrustum& frustum, double u, double v, double pixels) {
    const Eigen::Matrix3d axes = frustum.getPosition().linear().cast<double>();
    const Vector3d center = frustum.getPosition().translation().cast<double>();
    // Camera coordinates are dot products with the axes, which may be scaled
    const Eigen::Matrix3d fromCamera = axes.transpose().inverse();
    const double height = frustum.orthographic() ? frustum.orthographicSize() : frustum.slope();
    const double pixel = 2.0 * height / frustum.pixelHeight() / axes.col(2).norm();
    const Vector3d across = fromCamera * Vector3d(u * height * frustum.aspect(), v * height, 0.0);
    const Vector3d forward = fromCamera.col(2);

    PickBeam beam;
    if (frustum.orthographic()) {
        beam.origin = center + across;
        beam.direction = forward;
        beam.radius = pixels * pixel;
    } else {
        beam.origin = center;
        beam.direction = forward + across;
        beam.slope = pixels * pixel / beam.direction.norm();
    }
    const double length = beam.direction.norm();  // from the plane at depth 0 to that at depth 1
    beam.minDepth = frustum.nearDepth() * length;
    beam.maxDepth = frustum.farDepth() * length;
    return beam;
}

}  // namespace ombrix::core
