#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include <tbb/concurrent_unordered_map.h>

#include <ombrix/core/core_export.h>
#include <ombrix/core/octree/nested_cell_map.h>
#include <ombrix/core/octree/octree.h>
#include <ombrix/core/octree/octree_factory.h>
#include <ombrix/core/points/point.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/services/work_context.h>

namespace ombrix::core {

namespace detail {
class LocalPoints;
class Work;
}  // namespace detail
class NestedStreams;

/// Builds a nested octree: a level-of-detail tree in which every node holds points of its own.
///
/// A new node is a bucket. With the 65536th point it becomes a grid of 128 x 128 x 128 cells over its cube
/// that keeps at most one point a cell, the one nearest to the cell's centre; every other point goes down to
/// the child whose octant contains it. The root alone is a coarse, evenly spread sample of the whole.
///
/// Points are kept as `Point` records, position relative to the origin and `index` the Morton code of 21
/// levels; of a cloud's fields they hold "normal", "distance" and "ambient", and the others are left behind.
/// Infinite coordinates go to the root box's faces and a NaN counts as 0 on its axis; the point
/// itself stays as it is.
///
/// Points arrive one after another, and the order decides ties: the same input gives the same tree. One
/// thread inserts at a time. Derived builders may replace every step: all insertions into a node go through
/// `add(Node&, Point const&)` and all registrations of a child through `setChild`. A builder of just this
/// class takes whole clouds node by node instead, which gives the same tree several times faster.
class OMBRIX_CORE_API NestedOctreeFactory : public OctreeFactory {
public:
    static constexpr unsigned int EXPAND_THRES = 65536;  ///< points at which a bucket becomes a grid
    static constexpr unsigned int SPACING = 128;         ///< cells of a grid along each axis
    static constexpr unsigned int SPACING_DEPTH = 7;     ///< log2 of SPACING

    /// A node of the tree while it is built.
    struct Node {
        std::uint64_t key = 1;         ///< see morton.h
        std::uint8_t children = 0;     ///< bit i: the child in octant i exists
        bool expanded = false;         ///< points are in `grid`, otherwise in `points`
        bool flag = true;              ///< free for applications
        std::uint64_t pointCount = 0;  ///< handed over as the octree node's size; free for applications
        CellMap grid;                  ///< the sample, at most one point a cell
        std::vector<Point> points;     ///< the bucket, in the order of arrival

    private:
        friend class NestedOctreeFactory;

        // Children found so far, to spare the map. Nodes do not move in it, and a copy starts without.
        struct Links {
            std::array<Node*, 8> child{};
            Links() = default;
            Links(const Links& /*other*/) {}
            Links& operator=(const Links& /*other*/) { return child.fill(nullptr), *this; }
        };
        Links links_;
    };

    /// Nodes by key; none is ever removed but by `clear`.
    using NodeMap = tbb::concurrent_unordered_map<std::uint64_t, Node>;

    /// As the base's constructors; the root exists from the start.
    NestedOctreeFactory(const Vector3f& origin, const Vector3f& top);
    NestedOctreeFactory(const Vector3f& origin, float size);

    /// Removes every node; the root is made again by the next insertion.
    void clear() override;
    /// Points held, a node counting as the larger of its `pointCount` and the points it holds.
    [[nodiscard]] std::uint64_t size() const override;
    /// Inserts the points of a cloud in their order, each moved by `shift` (sum in double), and widens the
    /// scalar range.
    void add(const PointCloud& cloud, const Vector3d& shift) override;
    /// The same without a shift, origin subtracted in single precision.
    void add(const PointCloud& cloud) override;
    /// The same within a context, on one thread. When stopped, they answer false and the factory is empty:
    /// what was added before is gone, too, and the scalar range starts anew. A request that was there before
    /// changes nothing.
    [[nodiscard]] bool add(const PointCloud& cloud, const Vector3d& shift, const WorkContext& context);
    [[nodiscard]] bool add(const PointCloud& cloud, const WorkContext& context);
    /// Moves the points into the nodes of `out` and leaves the factory empty.
    ///
    /// `out` gets box, scalar range and type nested, and for every node that the children masks connect to
    /// the root: mask, `size` (the node's `pointCount`) and its points, ascending by Morton code, behind
    /// those that its cloud holds already. A node without points gets no cloud. `Octree::update_node` is
    /// called for each node when it is complete.
    void operator()(Octree& out) override;
    /// The same within a context, on one thread. When stopped, it answers false, the factory keeps its points
    /// and `out` has no nodes, also where it held some.
    [[nodiscard]] bool operator()(Octree& out, const WorkContext& context);

    /// Makes the factory's node of that key, with `node`'s children mask: a grid when it has children, else
    /// a bucket. Its points are not touched.
    virtual void add_node(const Octree::Node& node);

protected:
    /// Inserts a point (see the class) into a node and what it displaces below it.
    virtual void add(Node& node, const Point& point);

public:
    /// Inserts one point, origin subtracted in single precision, and widens the scalar range.
    virtual void add(const Point& point);

    /// Loads a cloud as the bucket of the node `key`, in its order, replacing the points that the node holds;
    /// its children stay. Ancestors are created, and expanded where they hold a bucket, so that the node is
    /// reachable; a node that becomes empty and has no children is taken out of its parent's mask. A `key`
    /// that no node can have is ignored. The scalar range stays as it is.
    virtual void add_node_pc(std::uint64_t key, const PointCloud& cloud, const Vector3d& shift);
    virtual void add_node_pc(std::uint64_t key, const PointCloud& cloud);

    /// As `add` for a point relative to the origin already.
    virtual void add_local(const Point& point);
    /// Colours every point held.
    virtual void setColor(ColorRGB& color);

protected:
    /// Sets and clears bit i of the node's children mask.
    virtual void setChild(Node& node, std::uint8_t i);
    virtual void clearChild(Node& node, std::uint8_t i);

public:
    /// Depth of the deepest grid; 0 when there is none. Buckets do not count, on purpose: the deepest level,
    /// which holds only buckets, does not show.
    [[nodiscard]] std::uint64_t maxDepth() const;

    /// The nodes built so far.
    [[nodiscard]] const NodeMap& nodes() const { return nodes_; }

protected:
    /// Inserts the points of a cloud in the order of their codes. Where a cell is taken, grids on this way
    /// compare codes (Manhattan distance on the finest cells) instead of positions, name cells by Morton
    /// prefixes, and expand at any depth above 21; deliberately different from `add`.
    void add_optim(const PointCloud& cloud);
    /// The same for one point in one node; what is displaced goes down through `add(Node&, Point const&)`.
    void add_optim(Node& node, const Point& point);

    /// Writes the nodes into an octree, see `operator()`; they stay in the factory.
    void factory(Octree& out);

    /// The node of that key, created as an empty bucket when absent.
    Node& node(std::uint64_t key);

private:
    friend class NestedStreams;

    void insertAll(const PointCloud& cloud, const detail::LocalPoints& points, detail::Work* work);
    bool insertWatched(const PointCloud& cloud, const detail::LocalPoints& points,
                       const WorkContext& context);
    void writeTo(Octree& out, detail::Work* work);
    static void reserveBucket(Node& node);
    void keepInBucket(Node& node, const Point& point, unsigned int deepestGrid);
    void expand(Node& node);
    void becomeGrid(Node& node);
    void pushDown(Node& node, const Point& displaced, unsigned int octant);
    Node& child(Node& parent, unsigned int octant);
    [[nodiscard]] Point localPoint(const Point& point) const;
    void linkToRoot(std::uint64_t key);

    static constexpr unsigned int DEEPEST_GRID = 19;  ///< buckets below stay buckets, save in add_optim

    NodeMap nodes_;
};

}  // namespace ombrix::core
