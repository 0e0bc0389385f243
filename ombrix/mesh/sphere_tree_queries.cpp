#include <algorithm>
#include <cmath>
#include <limits>

#include <ombrix/mesh/sphere_tree.h>
#include <ombrix/mesh/triangle_query_detail.h>

namespace ombrix::mesh {

namespace {

using core::Vector3d;

constexpr double INF = std::numeric_limits<double>::infinity();

/// Halving at most 2^32 faces leaves no more than this many nodes waiting.
constexpr std::size_t MAX_WAITING = 40;

/// Corners seen from a point.
template <class Corners>
detail::Corners seenFrom(const Vector3d& from, const Corners& corners) {
    return {corners.a.template cast<double>() - from, corners.b.template cast<double>() - from,
            corners.c.template cast<double>() - from};
}

/// Whether a triangle certainly lies farther from the origin of coordinates than a distance: beyond the plane
/// across the direction of its centre that has this distance. A cheap test that spares most exact ones.
bool isFartherThan(const detail::Corners& t, double squaredDistance) {
    const Vector3d center = t.a + t.b + t.c;
    const double least = std::min({center.dot(t.a), center.dot(t.b), center.dot(t.c)});
    return least > 0 && least * least * (1 - 1e-12) > squaredDistance * center.squaredNorm();
}

/// Nodes still to be visited, each with what it promises at best.
template <class Entry>
class Stack {
public:
    void push(const Entry& entry) { entries_[size_++] = entry; }
    Entry pop() { return entries_[--size_]; }
    [[nodiscard]] bool empty() const { return size_ == 0; }

private:
    Entry entries_[MAX_WAITING];
    std::size_t size_ = 0;
};

struct Waiting {
    std::uint32_t node;
    double bound;
};

/// A lower bound of the squared distance from p to the corners and faces below a node: the squared distance
/// to the cylinder around the mean normal that holds the sphere's part of the slab. Computed only as far as
/// it takes to pass `limit`.
template <class Node>
double squaredLeastDistance(const Node& node, const Vector3d& p, double limit) {
    const Vector3d d = p - node.sphere.center.template cast<double>();
    const Vector3d normal = node.normal.template cast<double>();
    // 1 / |n| = 1.5 - |n|^2 / 2 up to the square of the rounding of n.
    const double along = normal.dot(d) * (1.5 - 0.5 * normal.squaredNorm());
    const double low = node.low, high = node.high, radius = node.sphere.radius;
    const double gap = std::max({low - along, along - high, 0.0});
    double bound = gap * gap;
    const double squaredAcross = d.squaredNorm() - along * along;
    if (squaredAcross > radius * radius && bound <= limit) {
        const double across = std::sqrt(squaredAcross) - radius;
        bound += across * across;
    }
    return bound * (1 - 1e-12);
}

/// Asks for memory that is read soon: most of a query's time is waiting for nodes and corners.
template <class T>
void prefetch([[maybe_unused]] const T* first, [[maybe_unused]] std::size_t count) {
#if defined(__GNUC__)
    constexpr std::size_t LINE = 64;
    for (std::size_t byte = 0; byte < count * sizeof(T); byte += LINE) {
        __builtin_prefetch(reinterpret_cast<const char*>(first) + byte);
    }
#endif
}

/// Where a ray enters a sphere, in lengths of its direction, 0 inside; infinite when it misses.
double entry(const SphereTree::Sphere& sphere, const Vector3d& origin, const Vector3d& direction,
             double squaredLength) {
    const Vector3d toCenter = sphere.center.cast<double>() - origin;
    const double nearest = toCenter.dot(direction) / squaredLength;
    // A little larger, for the rounding of what follows on a distant sphere.
    const double radius = static_cast<double>(sphere.radius) * (1 + 1e-9) + 1e-12 * toCenter.lpNorm<1>();
    const double outside = (toCenter - nearest * direction).squaredNorm();
    if (outside > radius * radius) {
        return INF;
    }
    const double half = std::sqrt((radius * radius - outside) / squaredLength);
    return nearest + half < 0 ? INF : std::max(nearest - half, 0.0);
}

}  // namespace

std::optional<SphereTree::ClosestPoint> SphereTree::closestPoint(const Vector3f& p) const {
    if (nodes_.empty() || !p.allFinite()) {
        return std::nullopt;
    }
    const Vector3d query = p.cast<double>();
    double bestSquared = INF;
    std::uint32_t bestFace = 0;
    Vector3d bestOffset = Vector3d::Zero();

    Stack<Waiting> stack;
    stack.push({0, 0});
    while (!stack.empty()) {
        const Waiting top = stack.pop();
        if (top.bound > bestSquared) {
            continue;
        }
        const Node& node = nodes_[top.node];
        if (node.count == 0) {
            const Node* children = &nodes_[node.link];
            for (const Node* child : {children, children + 1}) {
                if (child->count == 0) {
                    prefetch(&nodes_[child->link], 2);
                } else {
                    prefetch(&corners_[child->link], child->count);
                }
            }
            // The child with the nearer centre first: its faces are the better guess where bounds overlap.
            const Vector3d c0 = children[0].sphere.center.cast<double>();
            const Vector3d c1 = children[1].sphere.center.cast<double>();
            const std::uint32_t nearer = (c1 - query).squaredNorm() < (c0 - query).squaredNorm() ? 1 : 0;
            for (const std::uint32_t child : {1 - nearer, nearer}) {
                const double bound = squaredLeastDistance(children[child], query, bestSquared);
                if (bound <= bestSquared) {
                    stack.push({node.link + child, bound});
                }
            }
            continue;
        }
        for (std::uint32_t i = node.link; i < node.link + node.count; ++i) {
            const detail::Corners corners = seenFrom(query, corners_[i]);
            if (isFartherThan(corners, bestSquared)) {
                continue;
            }
            const Vector3d offset = detail::closestOnTriangle(corners, Vector3d::Zero());
            const double squared = offset.squaredNorm();
            if (squared < bestSquared || (squared == bestSquared && order_[i] < bestFace)) {
                bestSquared = squared;
                bestFace = order_[i];
                bestOffset = offset;
            }
        }
    }
    return ClosestPoint{bestFace, (query + bestOffset).cast<float>(),
                        static_cast<float>(std::sqrt(bestSquared))};
}

std::optional<SphereTree::RayHit> SphereTree::firstHit(const Vector3f& origin,
                                                       const Vector3f& direction) const {
    const Vector3d from = origin.cast<double>(), along = direction.cast<double>();
    const double squaredLength = along.squaredNorm();
    if (nodes_.empty() || !origin.allFinite() || !direction.allFinite() || squaredLength == 0) {
        return std::nullopt;
    }
    detail::TriangleHit best{INF, 0, 0};
    std::uint32_t bestFace = std::numeric_limits<std::uint32_t>::max();

    Stack<Waiting> stack;
    stack.push({0, entry(nodes_[0].sphere, from, along, squaredLength)});
    while (!stack.empty()) {
        const Waiting top = stack.pop();
        if (top.bound == INF || top.bound > best.t) {
            continue;
        }
        const Node& node = nodes_[top.node];
        if (node.count == 0) {
            Waiting near{node.link, entry(nodes_[node.link].sphere, from, along, squaredLength)};
            Waiting far{node.link + 1, entry(nodes_[node.link + 1].sphere, from, along, squaredLength)};
            if (far.bound < near.bound) {
                std::swap(near, far);
            }
            stack.push(far);
            stack.push(near);
            continue;
        }
        for (std::uint32_t i = node.link; i < node.link + node.count; ++i) {
            const auto hit = detail::meetRay(seenFrom(from, corners_[i]), along);
            if (hit && (hit->t < best.t || (hit->t == best.t && order_[i] < bestFace))) {
                best = *hit;
                bestFace = order_[i];
            }
        }
    }
    if (best.t == INF) {
        return std::nullopt;
    }
    return RayHit{bestFace, static_cast<float>(best.t), static_cast<float>(best.u),
                  static_cast<float>(best.v)};
}

void SphereTree::overlappingFaces(const Vector3f& center, float radius,
                                  std::vector<std::uint32_t>& faces) const {
    faces.clear();
    if (nodes_.empty() || !center.allFinite() || !(radius >= 0)) {
        return;
    }
    const Vector3d query = center.cast<double>();
    const double reach = radius;
    Stack<std::uint32_t> stack;
    stack.push(0);
    while (!stack.empty()) {
        const std::uint32_t index = stack.pop();
        const Node& node = nodes_[index];
        if (squaredLeastDistance(node, query, reach * reach) > reach * reach) {
            continue;
        }
        if (node.count == 0) {
            stack.push(node.link);
            stack.push(node.link + 1);
            continue;
        }
        for (std::uint32_t i = node.link; i < node.link + node.count; ++i) {
            const detail::Corners corners = seenFrom(query, corners_[i]);
            if (detail::closestOnTriangle(corners, Vector3d::Zero()).squaredNorm() <= reach * reach) {
                faces.push_back(order_[i]);
            }
        }
    }
    std::sort(faces.begin(), faces.end());
}

}  // namespace ombrix::mesh
