#pragma once

#include <cstdint>
#include <vector>

#include <ombrix/core/core_export.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/types.h>
#include <ombrix/core/view/view_frustum.h>

namespace ombrix::core {

/// Chooses the nodes of a tree that are worth drawing for a camera, within a budget of points.
///
/// Keeps a reference to the tree, which must outlive it. A selection is marked in the tree itself, as
/// value 2 of the nodes' flags, so nobody else may use the tree during `update`. The camera's pose is
/// relative to the tree's origin. Not for destruction through this base.
class OMBRIX_CORE_API Visibility {
public:
    /// A selected node, for upload to a renderer. The selected children of a node follow one another.
    struct HNode {
        std::uint64_t key;          ///< of the node
        std::uint32_t childMask;    ///< bit i: the child in octant i is selected, too
        std::uint64_t childOffset;  ///< index of the first selected child minus the own index; 0 for none
    };

    /// Only takes the tree's address.
    explicit Visibility(Octree& octree);

    /// Selects nodes, the one with the largest projected size first, children only after their parent.
    ///
    /// The visible flag of all nodes is reset first, a walk over the whole tree.
    ///
    /// @param budget   number of points after which the selection ends. The last node may pass it, so up to
    ///                 one node's points more are selected; 0 selects nothing.
    /// @param minSize  nodes are selected whose projected size, the radius of their bounding sphere in
    ///                 pixels, is larger than this.
    /// @return         number of points selected.
    /// @throws std::out_of_range when a node that a mask names is absent, or the root; what was selected
    ///         until then stays selected.
    virtual std::uint64_t update(const ViewFrustum& frustum, std::uint64_t budget, float minSize);
    /// The nodes of the last selection, largest projected size first.
    [[nodiscard]] virtual const std::vector<std::uint64_t>& getVisibleNodeKeys();

    /// Rebuilds the hierarchy of the selected nodes, breadth first. With `onlyLoaded`, nodes without a cloud
    /// are left out with all below them. A tree without a root has an empty hierarchy.
    void buildHierarchy(bool onlyLoaded);
    /// The hierarchy as last built.
    [[nodiscard]] const std::vector<HNode>& getHierarchy() const { return hierarchy_; }
    /// Writes a line "h childMask childOffset" for every entry of the hierarchy to standard output.
    void debugHierarchyNodes();

protected:
    /// Resets the visible flag of all nodes.
    void clear();
    /// Selects, see `update`, without resetting first.
    std::uint64_t computeVisibleNodes(const ViewFrustum& frustum, std::uint64_t budget, float minSize);
    /// Radius of the node's bounding sphere in pixels; 0 outside of the frustum. In an orthographic frustum
    /// it shrinks with the depth along the view axis, on purpose.
    [[nodiscard]] float projectedSize(const ViewFrustum& frustum, const Octree::Node& node) const;
    /// Whether the node is selected and, with `onlyLoaded`, has its cloud.
    [[nodiscard]] bool visibleNode(const Octree::Node& node, bool onlyLoaded) const;
    /// Depth of detail that the hierarchy draws at p, a position relative to the tree's origin.
    ///
    /// On purpose the octant's number, not its rank among the selected children, is added to childOffset: a
    /// renderer's lookup does the same. Where that leads past the hierarchy's end, the depth reached counts.
    [[nodiscard]] float getVisibleDepth(Vector3f& p);

private:
    Octree* octree_;
    std::vector<HNode> hierarchy_;
    std::vector<std::uint64_t> visibleKeys_;
};

}  // namespace ombrix::core
