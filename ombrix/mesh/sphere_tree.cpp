#include <ombrix/mesh/sphere_tree.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include <ombrix/mesh/enclosing_ball_detail.h>
#include <ombrix/mesh/valid_faces_detail.h>

namespace ombrix::mesh {

namespace {

using core::Vector3d;

/// Rounds to the float that is not smaller, so that a bound still holds what it held.
float roundedUp(double value) {
    const auto rounded = static_cast<float>(value);
    return static_cast<double>(rounded) < value ? std::nextafter(rounded, std::numeric_limits<float>::max())
                                                : rounded;
}

/// The smallest sphere around two: one of them, or the one that spans both.
SphereTree::Sphere sphereAround(const SphereTree::Sphere& a, const SphereTree::Sphere& b) {
    const Vector3d ca = a.center.cast<double>(), cb = b.center.cast<double>();
    const double ra = a.radius, rb = b.radius, apart = (cb - ca).norm();
    if (apart + rb <= ra) {
        return a;
    }
    if (apart + ra <= rb) {
        return b;
    }
    const double share = ((apart + rb - ra) / 2) / apart;
    const Vector3f center = (ca + share * (cb - ca)).cast<float>();
    const Vector3d rounded = center.cast<double>();
    return {center, roundedUp(std::max((rounded - ca).norm() + ra, (rounded - cb).norm() + rb))};
}

/// Rounds to the float that is not larger.
float roundedDown(double value) {
    return -roundedUp(-value);
}

struct Box {
    Vector3f min = Vector3f::Constant(std::numeric_limits<float>::max());
    Vector3f max = Vector3f::Constant(-std::numeric_limits<float>::max());

    void enclose(const Vector3f& p) {
        min = min.cwiseMin(p);
        max = max.cwiseMax(p);
    }
    [[nodiscard]] SphereTree::Sphere sphere() const {
        const Vector3d low = min.cast<double>(), high = max.cast<double>();
        const Vector3f center = ((low + high) / 2).cast<float>();
        const Vector3d rounded = center.cast<double>();
        return {center, roundedUp((high - rounded).cwiseMax(rounded - low).norm())};
    }
};

}  // namespace

struct SphereTree::Builder {
    Builder(SphereTree& built, unsigned leafSize) : tree(built), mesh(*built.mesh_), leaf(leafSize) {
        centroids.resize(mesh.faces.size());
        for (std::uint32_t i = 0; i < mesh.faces.size(); ++i) {
            const Face& face = mesh.faces[i];
            if (detail::isUsable(mesh, face)) {
                tree.order_.push_back(i);
                // Thirds first: the sum of three large coordinates could overflow.
                centroids[i] = corner(face, 0) / 3 + corner(face, 1) / 3 + corner(face, 2) / 3;
            }
        }
    }

    [[nodiscard]] const Vector3f& corner(const Face& face, int i) const {
        return mesh.vertices[face.index[i]];
    }

    /// What a node hands up to its parent.
    struct Part {
        Box box;              ///< of all corners
        Vector3d areaNormal;  ///< sum of the faces' cross products
    };

    /// Makes the node `self` of the faces [first, last) and adds those below it.
    Part make(std::uint32_t self, std::size_t first, std::size_t last) {
        Part part;
        if (last - first <= leaf) {
            part = makeLeaf(tree.nodes_[self], first, last);
        } else {
            const std::size_t middle = split(first, last);
            const auto children = static_cast<std::uint32_t>(tree.nodes_.size());
            tree.nodes_.resize(tree.nodes_.size() + 2);
            part = make(children, first, middle);
            const Part other = make(children + 1, middle, last);
            part.box.enclose(other.box.min);
            part.box.enclose(other.box.max);
            part.areaNormal += other.areaNormal;

            const Sphere spanned =
                sphereAround(tree.nodes_[children].sphere, tree.nodes_[children + 1].sphere);
            const Sphere boxed = part.box.sphere();
            Node& node = tree.nodes_[self];
            node.sphere = spanned.radius <= boxed.radius ? spanned : boxed;
            node.link = children;
            node.count = 0;
        }
        setSlab(tree.nodes_[self], part.areaNormal, first, last);
        return part;
    }

    /// Parts the faces at the median of their centroids along the longest axis; gives the first of the
    /// second part.
    std::size_t split(std::size_t first, std::size_t last) {
        Box centers;
        for (std::size_t i = first; i < last; ++i) {
            centers.enclose(centroids[tree.order_[i]]);
        }
        Eigen::Index axis = 0;
        (centers.max / 2 - centers.min / 2).maxCoeff(&axis);
        const std::size_t middle = first + (last - first) / 2;
        const auto at = [&](std::size_t i) { return tree.order_.begin() + static_cast<std::ptrdiff_t>(i); };
        std::nth_element(at(first), at(middle), at(last), [&](std::uint32_t a, std::uint32_t b) {
            const float ca = centroids[a][axis], cb = centroids[b][axis];
            return ca < cb || (ca == cb && a < b);
        });
        return middle;
    }

    Part makeLeaf(Node& node, std::size_t first, std::size_t last) {
        Part part{{}, Vector3d::Zero()};
        corners.clear();
        forEachCorner(first, last, [&](const Vector3f& position) {
            part.box.enclose(position);
            corners.push_back(position.cast<double>());
        });
        for (std::size_t i = 0; i < corners.size(); i += 3) {
            part.areaNormal += (corners[i + 1] - corners[i]).cross(corners[i + 2] - corners[i]);
        }
        const Vector3f center = detail::smallestBall(corners).center.cast<float>();
        double radius = 0;
        for (const Vector3d& position : corners) {
            radius = std::max(radius, (position - center.cast<double>()).norm());
        }
        node.sphere = {center, roundedUp(radius)};
        node.link = static_cast<std::uint32_t>(first);
        node.count = static_cast<std::uint32_t>(last - first);
        return part;
    }

    void setSlab(Node& node, const Vector3d& areaNormal, std::size_t first, std::size_t last) const {
        node.normal = areaNormal.stableNormalized().cast<float>();
        if (!(node.normal.squaredNorm() > 0.9f)) {
            node.normal = Vector3f::UnitZ();
        }
        const Vector3d unit = node.normal.cast<double>().normalized();
        const Vector3d center = node.sphere.center.cast<double>();
        double low = std::numeric_limits<double>::max(), high = -low;
        forEachCorner(first, last, [&](const Vector3f& position) {
            const double along = unit.dot(position.cast<double>() - center);
            low = std::min(low, along);
            high = std::max(high, along);
        });
        const double rounding = 1e-14 * node.sphere.radius;  // of what queries compute for the same corner
        node.low = roundedDown(low - rounding);
        node.high = roundedUp(high + rounding);
    }

    template <class Visit>
    void forEachCorner(std::size_t first, std::size_t last, Visit&& visit) const {
        for (std::size_t i = first; i < last; ++i) {
            for (int c = 0; c < 3; ++c) {
                visit(corner(mesh.faces[tree.order_[i]], c));
            }
        }
    }

    SphereTree& tree;
    const TriMesh& mesh;
    const std::size_t leaf;
    std::vector<Vector3f> centroids;
    std::vector<Vector3d> corners;
};

SphereTree::SphereTree(const TriMesh& mesh, unsigned leaf) : mesh_(&mesh) {
    Builder builder(*this, std::max(leaf, 1u));
    if (!order_.empty()) {
        nodes_.reserve(2 * (2 * order_.size() / std::max(leaf, 1u) + 1));
        nodes_.resize(1);
        builder.make(0, 0, order_.size());
    }
    corners_.reserve(order_.size());
    for (const std::uint32_t index : order_) {
        const Face& face = mesh.faces[index];
        corners_.push_back({builder.corner(face, 0), builder.corner(face, 1), builder.corner(face, 2)});
    }
}

SphereTree::Sphere SphereTree::root() const {
    return nodes_.empty() ? Sphere{Vector3f::Zero(), 0} : nodes_.front().sphere;
}

}  // namespace ombrix::mesh
