#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <ombrix/core/octree/dynamic_split_detail.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/octree/watched_append_detail.h>

namespace ombrix::core::detail {

/// Whether points appended to one of two clouds would grow a field of the other: copies share their fields.
[[nodiscard]] bool shareFields(const PointCloud& a, const PointCloud& b);

/// Arrivals on their way down a growing tree: appends them to leaves and prepares the nodes that are missing
/// or come from splits, without changing the tree's structure. Each is used once. Descents into different
/// sub-trees may run at once; what they have found is entered into the tree afterwards. A descent that ends
/// before it has entered its points takes everything back: memory may run out, and watched work may be
/// stopped.
class Descent {
public:
    /// A node that arrivals have reached.
    struct Stop {
        Octree::Node* node;
        Arrivals arrivals;
    };

    /// @param work  null unless somebody watches.
    Descent(Octree& octree, std::uint64_t maxPoints, Work* work = nullptr)
        : octree_(octree), maxPoints_(maxPoints), work_(work) {}
    Descent(Descent&&) noexcept = default;
    ~Descent() { undo(); }

    /// Goes down to the leaves.
    void descend(Octree::Node& node, const Arrivals& arrivals) { descend(node, arrivals, nullptr); }
    /// Goes down to leaves, and to nodes with few arrivals, and appends these to `stops` instead of going on.
    void descend(Octree::Node& node, const Arrivals& arrivals, std::vector<Stop>* stops);

    /// Splits a leaf and enters the result into the tree.
    /// @param levels  deepest level below the leaf to split to, at least 1.
    /// @return        the keys of the nodes below the leaf, parents first.
    std::vector<std::uint64_t> split(const Octree::Node& leaf, const PointCloud& cloud, unsigned int levels);

    /// Leaves whose clouds were not at hand: the caller has to provide them and descend again.
    std::vector<Stop>& deferred() { return deferred_; }

    /// Adds the new nodes to the tree, still without points.
    void addNodes();
    /// Puts clouds, sizes and masks into the tree; needs no memory, and does nothing a second time. Different
    /// descents may do so at once.
    void enter() noexcept;
    /// Tells the tree every change.
    void report();

private:
    void undo() noexcept;
    void fill(Octree::Node& leaf, const Arrivals& arrivals);
    void remember(Octree::Node& leaf, const PointCloud& arriving);
    void create(Octree::Node& parent, unsigned int octant, const Arrivals& arrivals);
    [[nodiscard]] Octree::Node* find(const Octree::Node& parent, unsigned int octant) const;

    struct Adoption {
        Octree::Node* parent;
        unsigned int octant;
    };

    /// A leaf that took points, and how it was.
    struct Filled {
        Octree::Node* leaf;
        std::uint64_t size;
        bool plain;  ///< the size tells all; otherwise `contents_` has the rest
    };

    Octree& octree_;
    std::uint64_t maxPoints_;
    Work* work_;
    SplitScratch scratch_;
    std::vector<SplitNode> nodes_;     ///< to enter: new ones, and leaves that become inner nodes
    std::vector<Adoption> adoptions_;  ///< bits to set in children masks
    std::vector<Filled> filled_;
    std::vector<AppendRollback> contents_;
    std::vector<Stop> deferred_;
    bool entered_ = false;
};

}  // namespace ombrix::core::detail
