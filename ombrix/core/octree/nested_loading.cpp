#include <utility>

#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/points/point_reader_detail.h>

namespace ombrix::core {

void NestedOctreeFactory::add_node(const Octree::Node& node) {
    Node& own = this->node(node.key);
    own.key = node.key;
    own.children = node.children;
    own.expanded = node.children != 0;
}

void NestedOctreeFactory::add_node_pc(std::uint64_t key, const PointCloud& cloud) {
    add_node_pc(key, cloud, Vector3d::Zero());
}

void NestedOctreeFactory::add_node_pc(std::uint64_t key, const PointCloud& cloud, const Vector3d& shift) {
    const unsigned int depth = node_depth(key);
    if (key >> (3 * depth) != 1) {
        return;
    }
    Node& loaded = node(key);
    loaded.expanded = false;
    loaded.grid.clear();
    loaded.points.clear();
    linkToRoot(key);

    // An ancestor that was a bucket hands down what it does not keep, perhaps to this node
    const std::vector<Point> handedDown = std::exchange(loaded.points, {});
    loaded.points.reserve(cloud.size() + handedDown.size());
    const detail::PointReader reader(cloud);
    for (std::uint64_t i = 0; i < cloud.size(); ++i) {
        Point p = reader.point(i);
        const Vector3d position = p.position.cast<double>() + shift - origin_.cast<double>();
        p.position = position.cast<float>();
        p.index = morton_keyd(position).key;
        loaded.points.push_back(p);
    }
    loaded.points.insert(loaded.points.end(), handedDown.begin(), handedDown.end());

    if (loaded.points.empty() && loaded.children == 0 && depth > 0) {
        clearChild(node(parent_key(key)), static_cast<std::uint8_t>(key & 7));
    }
}

/// Makes every ancestor of `key` a grid, root first, with the child bit towards `key`.
void NestedOctreeFactory::linkToRoot(std::uint64_t key) {
    for (unsigned int above = node_depth(key); above > 0; --above) {
        Node& ancestor = node(key >> (3 * above));
        if (!ancestor.expanded && !ancestor.points.empty()) {
            expand(ancestor);
        }
        ancestor.expanded = true;
        child(ancestor, static_cast<unsigned int>(key >> (3 * (above - 1)) & 7));
    }
}

}  // namespace ombrix::core
