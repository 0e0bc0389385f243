#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <ombrix/core/octree/dynamic_split_detail.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/octree/watched_append_detail.h>

namespace ombrix::core::detail {

/// Arrivals on their way down a growing tree: appends them to leaves and prepares the nodes that are missing
/// or come from splits, without changing the tree's structure. Descents into different sub-trees may run at
/// once; what they have found is entered into the tree afterwards.
class Descent {
public:
    /// A node that arrivals have reached.
    struct Stop {
        Octree::Node* node;
        Arrivals arrivals;
    };

    /// @param work  null unless somebody watches; a descent that may be stopped can be taken back.
    Descent(Octree& octree, std::uint64_t maxPoints, Work* work = nullptr)
        : octree_(octree), maxPoints_(maxPoints), work_(work) {}

    /// Goes down to the leaves.
    void descend(Octree::Node& node, const Arrivals& arrivals) { descend(node, arrivals, nullptr); }
    /// Goes down to leaves, and to nodes with few arrivals, and appends these to `stops` instead of going on.
    void descend(Octree::Node& node, const Arrivals& arrivals, std::vector<Stop>* stops);

    /// Splits a leaf and enters the result into the tree.
    /// @param levels  deepest level below the leaf to split to, at least 1.
    /// @return        the keys of the nodes below the leaf, parents first.
    std::vector<std::uint64_t> split(const Octree::Node& leaf, const PointCloud& cloud, unsigned int levels);

    /// Takes back what was done to leaves since the last `enter`, and forgets the rest.
    void undo();

    /// Puts the new nodes into the tree, sets the masks and reports every change to the tree.
    /// @return  nodes whose clouds were not at hand: the caller has to provide them and descend again.
    std::vector<Stop> enter();

private:
    void fill(Octree::Node& leaf, const Arrivals& arrivals);
    void create(Octree::Node& parent, unsigned int octant, const Arrivals& arrivals);
    [[nodiscard]] Octree::Node* find(const Octree::Node& parent, unsigned int octant) const;

    struct Adoption {
        Octree::Node* parent;
        unsigned int octant;
    };

    /// A leaf as it was.
    struct Changed {
        Octree::Node* leaf;
        std::uint64_t size;
        std::shared_ptr<PointCloud> cloud;
        AppendRollback content;
    };

    Octree& octree_;
    std::uint64_t maxPoints_;
    Work* work_;
    std::vector<Changed> changed_;  ///< only where somebody watches
    SplitScratch scratch_;
    std::vector<SplitNode> nodes_;       ///< to enter: new ones, and leaves that became inner nodes
    std::vector<Adoption> adoptions_;    ///< bits to set in children masks
    std::vector<std::uint64_t> filled_;  ///< keys of leaves that took points
    std::vector<Stop> deferred_;
};

}  // namespace ombrix::core::detail
