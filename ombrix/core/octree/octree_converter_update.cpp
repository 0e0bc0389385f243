#include <algorithm>
#include <array>
#include <memory>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/node_frame_detail.h>
#include <ombrix/core/octree/octree_converter.h>
#include <ombrix/core/octree/octree_factory.h>
#include <ombrix/core/octree/padded_append_detail.h>

namespace ombrix::core {
namespace {

/// A node with its mask and a cloud, as `recursiveBuild` makes it; positions relative to the tree's origin.
void writeNode(Octree& octree, std::uint64_t key, std::uint8_t children, std::shared_ptr<PointCloud> cloud) {
    Octree::Node& node = octree.add_node(key);
    node.children = children;
    node.size = 1;
    node.pc = cloud ? std::move(cloud) : std::make_shared<PointCloud>();
    node.compressed.reset();
    node.flags &= static_cast<std::uint8_t>(~detail::NODE_RELATIVE);
    octree.update_node(key);
}

/// Splits a leaf along the path down to `key`: points in other octants go to sibling leaves, those in the
/// cell of `key` are left out.
void splitTowards(Octree& octree, std::uint64_t leaf, std::uint64_t key) {
    const std::shared_ptr<PointCloud> cloud = octree.node_pc(leaf);
    const Vector3f offset = detail::positionOffset(octree, octree.node(leaf));
    PointCloud padded;
    const PointCloud& source = detail::evenCloud(*cloud, padded);
    const unsigned int from = node_depth(leaf);
    const unsigned int to = node_depth(key);

    std::array<std::array<std::vector<std::uint64_t>, 8>, MORTON_LEVELS> siblings;
    for (std::uint64_t i = 0; i < source.size(); ++i) {
        const Vector3d p = (source.positions()[i] + offset).cast<double>();
        const std::uint64_t code = OctreeFactory::morton_keyd(p, octree.extend()).key;
        unsigned int depth = from;
        unsigned int octant = 0;
        for (; depth < to; ++depth) {
            octant = static_cast<unsigned int>(code >> (3 * (MORTON_LEVELS - 1 - depth)) & 7);
            if (octant != (key >> (3 * (to - 1 - depth)) & 7)) {
                break;
            }
        }
        if (depth < to) {
            siblings[depth][octant].push_back(i);
        }
    }
    for (unsigned int depth = from; depth < to; ++depth) {
        const std::uint64_t inner = key >> (3 * (to - depth));
        auto children = static_cast<std::uint8_t>(1u << (key >> (3 * (to - 1 - depth)) & 7));
        for (unsigned int octant = 0; octant < 8; ++octant) {
            if (const auto& indices = siblings[depth][octant]; !indices.empty()) {
                auto points = std::make_shared<PointCloud>();
                points->push_back(source, indices, offset, false);
                writeNode(octree, child_key(inner, octant), 0, std::move(points));
                children |= static_cast<std::uint8_t>(1u << octant);
            }
        }
        writeNode(octree, inner, children, nullptr);
    }
}

/// Makes every proper ancestor of `key` an inner node that leads towards it.
void connectToRoot(Octree& octree, std::uint64_t key) {
    for (unsigned int level = 0; level < node_depth(key); ++level) {
        const std::uint64_t ancestor = key >> (3 * (node_depth(key) - level));
        const std::uint64_t next = key >> (3 * (node_depth(key) - level - 1));
        const auto found = octree.nodes().find(ancestor);
        if (found == octree.nodes().end()) {
            writeNode(octree, ancestor, 0, nullptr);
        } else if (found->second.children == 0) {
            if (const auto cloud = octree.node_pc(ancestor); cloud && cloud->size() > 0) {
                splitTowards(octree, ancestor, key);
            }
        }
        Octree::Node& node = octree.node(ancestor);
        const std::uint8_t before = node.children;
        node.children |= static_cast<std::uint8_t>(1u << (next & 7));
        if (node.children != before) {
            octree.update_node(ancestor);
        }
    }
}

}  // namespace

void OctreeConverter::updateFullOctree(const Octree& partial, std::uint64_t key, Octree& full) {
    if (&partial == &full) {
        return;
    }
    full.remove_branch(key);
    if (!partial.hasKey(key)) {
        return;
    }
    connectToRoot(full, key);
    for (const std::uint64_t k : partial.branch(key, Octree::MAX_DEPTH)) {
        full.add_node(k) = partial.node(k);
        full.update_node(k);
    }
    full.setScalarFieldMinMax(std::min(full.scalarfieldMin(), partial.scalarfieldMin()),
                              std::max(full.scalarfieldMax(), partial.scalarfieldMax()));
}

}  // namespace ombrix::core
