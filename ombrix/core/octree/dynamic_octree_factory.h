#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include <ombrix/core/core_export.h>
#include <ombrix/core/octree/aabb.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/octree/octree_factory.h>
#include <ombrix/core/points/point.h>
#include <ombrix/core/services/work_context.h>

namespace spdlog {
class logger;
}

namespace ombrix::core {

class NestedOctreeFactory;

namespace detail {
class Work;
}

/// Builds an octree from clouds that arrive one after another: points in leaves only, leaves split above
/// `maxPoints()`, and a root cube that grows by powers of two when a cloud reaches outside.
///
/// Positions in a node are relative to the node's lower corner (flags value 8) until `factory()`, and are
/// formed in double, so that coordinates in the millions keep their precision. Points keep all fields of
/// their clouds; where a cloud lacks a field that its leaf holds, the value is zero. Leaves lie at depth 20
/// at most; one of that depth holds any number of points.
///
/// When a box is not finite, or beyond 2^124, the root grows as far as that and points outside are clamped
/// to its outer cells; a NaN coordinate counts as the lower face. Copies of a factory share its tree.
class OMBRIX_CORE_API DynamicOctreeFactory : public OctreeFactory {
public:
    /// The root cube comes from the first cloud.
    DynamicOctreeFactory();
    /// @param maxPoints  a leaf with more points than this is split.
    explicit DynamicOctreeFactory(std::uint64_t maxPoints);
    /// Fixes the root cube before the first cloud; it grows all the same. Without an extent, the root cube
    /// comes from the first cloud.
    DynamicOctreeFactory(const Vector3f& origin, const Vector3f& top);

    /// Sets the corners of the factory and of its tree.
    void setOriginTop(const Vector3f& origin, const Vector3f& top) override;

    /// Starts over with an empty tree and an empty box; a tree handed out before stays as it is.
    void clear() override;

    /// Number of points, the tree's `size()`.
    [[nodiscard]] std::uint64_t size() const override;

    /// Adds the points of a cloud, each position moved by `shift` (in double).
    ///
    /// The first cloud goes in whole. Of several points of a later cloud with the same finest-level code only
    /// the one with the lowest index is taken, on purpose; `droppedPoints()` counts the others. An empty
    /// cloud changes nothing. The result does not depend on the number of threads.
    ///
    /// When memory runs out, the factory holds what it held, and its root cube may have grown; only to leaves
    /// whose points the tree had to bring back, part of the cloud may have been added.
    void add(const PointCloud& cloud, const Vector3d& shift) override;
    void add(const PointCloud& cloud) override;
    /// The same within a context. When stopped, it answers false and the factory holds what it held; its root
    /// cube may have grown.
    [[nodiscard]] bool add(const PointCloud& cloud, const Vector3d& shift, const WorkContext& context);
    [[nodiscard]] bool add(const PointCloud& cloud, const WorkContext& context);

    /// Does nothing, on purpose: the tree is handed over by `octree()`, after `factory()`.
    void operator()(Octree& out) override;

    /// Makes the positions of all clouds held relative to the tree's origin and clears flags value 8, which
    /// it does not look at: a second call moves the points a second time. Adding may go on afterwards.
    void factory();

    /// Hands all points on to a nested factory and releases the tree's clouds; the tree keeps its nodes and
    /// their sizes.
    ///
    /// Of the fields, "normal", "distance" and "ambient" go along. Nodes with flags value 8 pass their points
    /// on in world coordinates. Clouds of other nodes are passed
    /// on as they stand, so they have to be in world coordinates: do not call `factory()` before.
    [[nodiscard]] std::shared_ptr<NestedOctreeFactory> convert();

    /// The tree under construction, shared with the factory. When the root grows, a new tree that holds the
    /// same clouds takes its place.
    [[nodiscard]] virtual std::shared_ptr<Octree> octree();

    /// The root cube in the world.
    [[nodiscard]] Aabb rootNode_aabb() const;
    /// Box of all points added, widened by 2^-23; minimum above maximum before the first. Coordinates that
    /// are not finite do not count.
    [[nodiscard]] const Aabb& pc_aabb() const { return pcAabb_; }
    /// Empties that box, as before the first cloud.
    void reset_pc_aabb();

    /// The first root cube's edge is the smallest power of two times this that exceeds the cloud's largest
    /// side; 1 at first. A value that is not positive and finite counts as 1.
    [[nodiscard]] float leafSize() const { return leafSize_; }
    void setLeafSize(float leafSize) { leafSize_ = leafSize; }
    /// A leaf with more points than this is split, unless it lies at depth 20.
    [[nodiscard]] std::uint64_t maxPoints() const { return maxPoints_; }
    /// Receives the two messages of the builder; empty for none.
    void setLogger(std::shared_ptr<spdlog::logger> logger) { logger_ = std::move(logger); }
    /// Number of points of later clouds that were not taken because of an equal finest-level code.
    [[nodiscard]] std::uint64_t droppedPoints() const { return droppedPoints_; }

protected:
    /// Adds a point, relative to the tree's origin, to a leaf and splits the leaf when it is too full;
    /// nothing happens to a node with children.
    virtual void add(Octree::Node& node, const Point& point);

    /// A new tree for the root to grow into.
    [[nodiscard]] virtual std::shared_ptr<Octree> create_octree();
    /// Replaces the factory's tree. `keys` is for derived factories: for every node of the old tree its old
    /// key, and its new key or that of the node it was merged into.
    virtual void update_octree(std::shared_ptr<Octree>& tree,
                               const std::vector<std::pair<std::uint64_t, std::uint64_t>>& keys);

    /// Adds a point, relative to the tree's origin and with its code as index, to its leaf without splitting.
    /// @return  the leaf's key.
    std::uint64_t push_to_leaf(const Point& point);
    /// Distributes all points of a cloud to the leaves and splits those that are too full.
    void push_to_leaf(const PointCloud& cloud, const Vector3d& shift);
    /// The same for one point of each finest-level code: the one with the lowest index.
    void push_to_leaf_morton(const PointCloud& cloud, const Vector3d& shift);

    /// Grows the root cube so that it contains a box of the world.
    void expand_octree(const Aabb& box);
    /// Splits a leaf that is too full, and what comes of it, until no leaf is.
    void expand_nodes(Octree::Node& node);
    /// Splits a leaf above depth 20 into its children.
    /// @return  keys of the children that received points.
    std::vector<std::uint64_t> expand_node(Octree::Node& node);

private:
    /// A root cube.
    struct Frame {
        Vector3f origin;
        float extend;
    };
    struct Growth;

    [[nodiscard]] static unsigned int next_pow2(unsigned int v);
    [[nodiscard]] static std::uint64_t next_pow2(std::uint64_t v);
    [[nodiscard]] static unsigned int inv_pow2(unsigned int v);

    [[nodiscard]] Frame firstFrame(const Aabb& box) const;
    [[nodiscard]] static bool contains(const Frame& frame, const Aabb& box);
    [[nodiscard]] static bool grow(const Frame& frame, const Aabb& box, Growth& growth);
    void setFrame(Octree& tree, const Frame& frame);
    void passFrameTo(Octree& tree) const;
    void expand(const Aabb& box, detail::Work* work);
    void hang(const Growth& growth, detail::Work* work);
    void rebuild(const Growth& growth, detail::Work* work);
    void splitMergedLeaves();

    void addWithin(const PointCloud& cloud, const Vector3d& shift, detail::Work* work);
    void addFirst(const PointCloud& cloud, const Vector3d& shift, const Aabb& box, detail::Work* work);
    void distribute(const PointCloud& cloud, const Vector3d& shift, bool onePerCode, detail::Work* work);
    void distribute(const PointCloud& cloud, const Vector3d& shift, bool onePerCode, detail::Work* work,
                    bool& entered);
    Octree::Node& root();
    Octree::Node& child(Octree::Node& node, unsigned int octant);
    PointCloud& ownCloud(Octree::Node& node);
    std::vector<std::uint64_t> split(Octree::Node& node, unsigned int levels, detail::Work* work = nullptr);
    [[nodiscard]] bool mustSplit(const Octree::Node& node) const;

    std::shared_ptr<Octree> octree_;
    std::uint64_t maxPoints_ = 65536;
    float leafSize_ = 1.0f;
    Aabb pcAabb_;
    std::shared_ptr<spdlog::logger> logger_;
    std::uint64_t droppedPoints_ = 0;
};

}  // namespace ombrix::core
