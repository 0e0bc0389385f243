#pragma once

#include <cstdint>
#include <vector>

#include <ombrix/core/core_export.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/view/view_frustum.h>

namespace ombrix::core {

/// The selection of one view from frame to frame: what to draw, what to add and what to drop.
///
/// As it is made, it selects what `Visibility` selects, in the same order, but it writes nothing into the
/// tree and examines only the nodes it selects and their children: a frame costs in proportion to the nodes
/// selected, whatever the tree's size. Several views may select from one tree at once, each through an
/// object of its own, as long as nobody changes the tree.
///
/// Keeps a reference to the tree, which must outlive it and stay where it is, and remembers what it
/// examined by key. Between frames the tree may change: clouds may come and go, and nodes too, together
/// with their bits in the masks. A node that was erased while its parent's mask still names it may be
/// noticed only when it would be selected. Call `reset` when keys came to name other cells, as they do after
/// the root of a growing tree has grown.
class OMBRIX_CORE_API FrameSelection {
public:
    /// Only takes the tree's address.
    explicit FrameSelection(const Octree& octree);

    /// How firmly nodes of the last frame stay, so that nodes at the border do not flicker: 0 at first,
    /// which is not at all; 0.1 suits a moving camera. Values outside of [0, 0.9] are clamped, NaN is 0.
    ///
    /// A node of the last frame counts as (1 + margin) times its projected size, both against `minSize` and
    /// against other nodes. Nodes that were not in the last frame enter only until (1 - margin) of the
    /// budget is used; the rest is for those that stay.
    void setHysteresis(float margin);
    [[nodiscard]] float hysteresis() const { return margin_; }

    /// Whether the number of points never passes the budget; not at first. The selection then ends before
    /// the first node that does not fit, so it is what the other mode selects, without the last node if
    /// that one passes the budget. With hysteresis, nodes that stay are still taken after a new one that
    /// does not fit.
    void setStrict(bool strict) { strict_ = strict; }
    [[nodiscard]] bool strict() const { return strict_; }

    /// Selects nodes for a frame, the one with the largest projected size first, children only after their
    /// parent.
    ///
    /// @param frustum  the camera; its pose is relative to the tree's origin.
    /// @param budget   number of points after which the selection ends; unless strict, the last node may
    ///                 pass it. 0 selects nothing.
    /// @param minSize  nodes are selected whose projected size, the radius of their bounding sphere in
    ///                 pixels, is larger than this.
    /// @return         number of points selected.
    /// @throws std::out_of_range when a node that a mask names is absent, or the root. What was selected
    ///         until then is the selection, and all lists agree with it.
    std::uint64_t update(const ViewFrustum& frustum, std::uint64_t budget, float minSize);

    /// The nodes selected, in the order of their selection.
    [[nodiscard]] const std::vector<std::uint64_t>& keys() const { return keys_; }
    /// Those of them that the frame before did not hold, in the same order: largest projected size first,
    /// parents before their children.
    [[nodiscard]] const std::vector<std::uint64_t>& entered() const { return entered_; }
    /// The nodes of the frame before that are not selected any more, children before their parents. The tree
    /// may not hold them any more.
    [[nodiscard]] const std::vector<std::uint64_t>& left() const { return left_; }
    /// Number of points selected: of a node's cloud where it is held, else the node's size.
    [[nodiscard]] std::uint64_t pointCount() const { return pointCount_; }

    /// Forgets everything but the settings: nothing is selected, and all nodes of the next frame enter.
    void reset();

private:
    /// A node that was examined. Records of a node's children stand together, one per octant.
    struct Record {
        Octree::Aabb box;
        std::uint64_t key;
        std::uint64_t frame;     ///< the last one that selected the node; 0 for none
        std::uint32_t children;  ///< index of the record of octant 0; 0 for none yet
        std::uint8_t known;      ///< bit o: the record of octant o is filled
    };
    struct Candidate {
        float size;
        std::uint32_t record;

        friend bool operator<(const Candidate& a, const Candidate& b) { return a.size < b.size; }
    };

    void prepareRecords();
    void select(const ViewFrustum& frustum, std::uint64_t budget, float minSize);
    void consider(const ViewFrustum& frustum, float minSize, std::uint32_t index);
    void take(std::uint32_t index, std::uint64_t points);
    void examineChildren(std::uint32_t index, std::uint8_t mask);
    void finishFrame() noexcept;
    void dropUnused();
    [[nodiscard]] bool stays(const Record& record) const;

    const Octree* octree_;
    float margin_ = 0.0f;
    bool strict_ = false;

    float extend_ = 0.0f;          ///< edge of the tree's root that the records' boxes were made for
    std::uint64_t frame_ = 1;      ///< above 0, the number that stands for no frame
    std::vector<Record> records_;  ///< the root's first
    std::vector<Candidate> queue_;
    std::vector<std::uint32_t> selected_;  ///< records of `keys_`
    std::vector<std::uint32_t> before_;    ///< records of the frame before
    std::vector<std::uint64_t> keys_;
    std::vector<std::uint64_t> entered_;
    std::vector<std::uint64_t> left_;
    std::uint64_t pointCount_ = 0;
};

}  // namespace ombrix::core
