#include <cmath>
#include <limits>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/node_frame_detail.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/octree/octree_factory.h>
#include <ombrix/core/octree/padded_append_detail.h>

namespace ombrix::core {

void Octree::extractPointCloud(std::uint64_t key, unsigned int depth, PointCloud& out) {
    for (const std::uint64_t k : branch(key, depth)) {
        if (const std::shared_ptr<PointCloud> cloud = node_pc(k)) {
            out.push_back(*cloud, false);
        }
    }
}

void Octree::extractUpperPointCloud(std::uint64_t key, PointCloud& out) {
    const unsigned int depth = node_depth(key);
    std::vector<std::uint64_t> inside;
    for (unsigned int level = 0; level < depth; ++level) {
        const auto ancestor = nodes_.find(key >> (3 * (depth - level)));
        if (ancestor == nodes_.end()) {
            continue;
        }
        const std::shared_ptr<PointCloud> cloud = node_pc(ancestor->first);
        if (!cloud) {
            continue;
        }
        const Vector3f offset = detail::positionOffset(*this, ancestor->second);
        inside.clear();
        for (std::uint64_t i = 0; i < cloud->size(); ++i) {
            const Vector3d p = (cloud->positions()[i] + offset).cast<double>();
            const std::uint64_t code = OctreeFactory::morton_keyd(p, extend_).key;
            if (node_key(code, depth) == key) {
                inside.push_back(i);
            }
        }
        if (!inside.empty()) {
            PointCloud padded;
            PointCloud selected;
            selected.push_back(detail::evenCloud(*cloud, padded), inside, offset, false);
            detail::appendEven(out, selected, Vector3d::Zero(), false);
        }
    }
}

Octree::Box Octree::pointBox() {
    constexpr float LARGEST = std::numeric_limits<float>::max();
    Box box{Vector3f::Constant(LARGEST), Vector3f::Constant(-LARGEST)};
    const auto enclose = [&box](const Vector3f& p) {
        for (int axis = 0; axis < 3; ++axis) {
            if (std::isfinite(p[axis])) {
                box.min[axis] = std::min(box.min[axis], p[axis]);
                box.max[axis] = std::max(box.max[axis], p[axis]);
            }
        }
    };
    for (const auto& [key, node] : nodes_) {
        if (node.pc) {
            const Vector3f offset = detail::positionOffset(*this, node);
            for (const Vector3f& p : node.pc->positions()) {
                enclose(p + offset);
            }
        } else if (node.children == 0 && node.size > 0) {
            enclose(node_origin(node));
            enclose(node_top(node));
        }
    }
    for (int axis = 0; axis < 3; ++axis) {
        if (box.min[axis] > box.max[axis]) {
            box.min[axis] = 0.0f;
            box.max[axis] = 0.0f;
        }
    }
    return box;
}

Vector3f Octree::pc_origin() {
    return pointBox().min;
}

Vector3f Octree::pc_top() {
    return pointBox().max;
}

Vector3f Octree::pc_extend() {
    const Box box = pointBox();
    return box.max - box.min;
}

}  // namespace ombrix::core
