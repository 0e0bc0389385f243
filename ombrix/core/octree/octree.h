#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <unordered_map>
#include <vector>

#include <ombrix/core/core_export.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/types.h>

namespace ombrix::core {

/// Nodes by key: the tree that the factories fill and that selection and conversion read.
///
/// The hierarchy is in the keys (see morton.h): the root is 1 and the children of k are 8k to 8k + 7; a
/// node's children mask says which exist. Positions of a node's cloud and boxes of nodes are relative to
/// the tree's origin, except in nodes whose flags hold 8: their positions are relative to the node's lower
/// corner. Clouds are shared: a caller may hold one beyond the node's life.
///
/// Lookups of an absent key throw `std::out_of_range` ("invalid unordered_map<K, T> key") and never insert.
/// A tree has no lock; several threads may read one that nobody changes.
class OMBRIX_CORE_API Octree {
public:
    /// Levels below the root.
    static constexpr unsigned int MAX_DEPTH = 21;

    /// Points in every node, or in leaves only.
    enum OctreeType { NESTED = 0, FULL = 1 };

    /// The key itself: the low bits of node keys are well spread.
    struct hash {
        /// The key.
        [[nodiscard]] std::size_t operator()(std::uint64_t key) const noexcept { return key; }
    };

    /// One cube of the tree and the points that it holds.
    struct Node {
        std::uint64_t key = 0;             ///< see morton.h
        std::uint64_t size = 0;            ///< number of points of a released cloud, see `free_node`
        std::shared_ptr<PointCloud> pc;    ///< the points; empty when released or never loaded
        std::shared_ptr<void> compressed;  ///< a second form of the points, for derived trees
        std::uint8_t children = 0;         ///< bit o: the child in octant o exists
        std::uint8_t flags = 0;            ///< value 2: visible; value 8: positions relative to the node
    };

    /// A node's cube, relative to the tree's origin.
    struct Aabb {
        Vector3f center;  ///< relative to the tree's origin
        float radius;     ///< half of the edge
    };

    /// Nodes by key, in no particular order.
    using NodeMap = std::unordered_map<std::uint64_t, Node, hash>;

    Octree();
    Octree(const Octree&) = default;
    Octree(Octree&&) = default;
    Octree& operator=(const Octree&) = default;
    Octree& operator=(Octree&&) = default;
    virtual ~Octree();

    /// Number of points of all nodes: of the cloud where it is held, else the node's size.
    [[nodiscard]] virtual std::uint64_t size() const;

    /// Set corners of the root box; the edge becomes the largest component of top - origin.
    virtual void setOrigin(const Vector3f& origin);
    virtual void setTop(const Vector3f& top);
    virtual void setOriginTop(const Vector3f& origin, const Vector3f& top);

    /// The node of that key. @throws std::out_of_range
    [[nodiscard]] virtual const Node& node(std::uint64_t key) const;
    [[nodiscard]] virtual Node& node(std::uint64_t key);
    /// The node's cloud, which may be empty. @throws std::out_of_range
    [[nodiscard]] virtual std::shared_ptr<PointCloud> node_pc(std::uint64_t key);
    /// Releases both forms of the node's points and sets its size to 0; the node stays.
    /// @throws std::out_of_range
    virtual void clear_node(std::uint64_t key);
    /// Inserts a default node or finds the existing one, sets its key and returns it.
    virtual Node& add_node(std::uint64_t key);
    /// Erases the node, if there is one; masks stay as they are.
    virtual void delete_node(std::uint64_t key);

    // Hooks for derived trees; nothing happens here.

    /// Points or mask of the node were changed; the full builder does not tell. A hook: nothing happens here.
    virtual void update_node(std::uint64_t key);
    /// What is in memory may be dropped because it can be had again: cloud empty, size kept.
    virtual void recycle_node(std::uint64_t key);
    /// The points may move into `compressed`; size, box and children stay, and `node_pc` brings them back.
    virtual void compress_node_pc(std::uint64_t key);
    /// The sub-tree under `key` will not change any more: flush it, and release it when asked.
    virtual void finalize(bool release, std::uint64_t key);

    /// Replaces all nodes by nodes with these keys and sizes, without clouds, and derives the children masks
    /// from the root (which is created when it is not listed). Nodes that no listed keys connect to the root
    /// keep mask 0. Keys without a size get 0.
    virtual void set_hierarchy(const std::vector<std::uint64_t>& keys,
                               const std::vector<std::uint64_t>& sizes);
    /// Removes a node with all below it and its bit in the parent's mask.
    /// @return  the erased keys, breadth first; none when the key is absent.
    virtual std::vector<std::uint64_t> remove_branch(std::uint64_t key);

    /// Key of the root, whether a key has a node, and the number of nodes.
    [[nodiscard]] std::uint64_t rootKey() const { return 1; }
    [[nodiscard]] bool hasKey(std::uint64_t key) const { return nodes_.count(key) != 0; }
    [[nodiscard]] std::uint64_t keyCount() const { return nodes_.size(); }
    /// All keys, in the map's order.
    [[nodiscard]] std::vector<std::uint64_t> keys() const;
    /// The keys of nodes whose children mask is 0, in the map's order.
    [[nodiscard]] std::vector<std::uint64_t> leaves() const;
    /// The first of `leaves()`; 0 when there is none.
    [[nodiscard]] std::uint64_t first_leaf() const;
    /// Depth of the deepest leaf; 0 for an empty tree.
    [[nodiscard]] unsigned int max_depth() const;
    /// The shallowest depth at which a 128th of a node's edge is at most `spacing`, no deeper than the
    /// deepest leaf. @throws std::out_of_range without a root.
    [[nodiscard]] unsigned int max_depth(float spacing) const;
    /// `size()` over the nodes of depth <= `depth`.
    [[nodiscard]] std::uint64_t size(unsigned int depth) const;

    /// Stores the cloud's point count as the node's size and releases both forms of its points. A node
    /// without a cloud keeps its size. @throws std::out_of_range
    void free_node(std::uint64_t key);
    /// Whether the node is held and visible (flags value 2). @throws std::out_of_range
    [[nodiscard]] bool visible_node_pc(std::uint64_t key) const;

    /// The node's cube. Relative to the tree's origin, on purpose: callers add it themselves.
    [[nodiscard]] Aabb node_aabb(const Node& node) const;
    /// Corners of the node's cube, relative to the tree's origin.
    [[nodiscard]] Vector3f node_origin(const Node& node) const;
    [[nodiscard]] Vector3f node_top(const Node& node) const;

    /// Keys of the sub-tree under `key` of depth <= `depth` (of the tree, not below the key), breadth first,
    /// children in octant order; none when the key is absent.
    [[nodiscard]] std::vector<std::uint64_t> branch(std::uint64_t key, unsigned int depth) const;
    [[nodiscard]] std::vector<std::uint64_t> branch(std::uint64_t key) const;

    /// The nodes of a depth and the leaves above it, breadth first; all leaves for a negative depth.
    /// @throws std::out_of_range without a root.
    [[nodiscard]] std::list<std::uint64_t> front(int depth) const;
    /// Appends the keys above the front to `back` and the front to `front`.
    /// @throws std::out_of_range without a root.
    void back_and_front(int depth, std::list<std::uint64_t>& back, std::list<std::uint64_t>& front) const;

    /// Appends the clouds, with fields, of `branch(key, depth)` in that order, as they stand. Nodes whose
    /// cloud `node_pc` does not give are left out.
    void extractPointCloud(std::uint64_t key, unsigned int depth, PointCloud& out);
    /// Appends, root first, the points with fields that proper ancestors of `key` hold inside its cell,
    /// relative to the tree's origin. With `extractPointCloud` these are all points of the cell.
    void extractUpperPointCloud(std::uint64_t key, PointCloud& out);

    /// Lower and upper corner of the points: of all clouds held, and of the cubes of leaves whose points are
    /// released. Relative to the tree's origin; coordinates that are not finite do not count. Both are zero
    /// when there are no points.
    [[nodiscard]] Vector3f pc_origin();
    [[nodiscard]] Vector3f pc_top();
    /// pc_top() - pc_origin().
    [[nodiscard]] Vector3f pc_extend();

    /// Lower and upper corner of the root box as they were set.
    [[nodiscard]] const Vector3f& origin() const { return origin_; }
    [[nodiscard]] const Vector3f& top() const { return top_; }
    /// Edge of the root cube.
    [[nodiscard]] float extend() const { return extend_; }
    /// What kind of tree this is.
    [[nodiscard]] OctreeType type() const { return type_; }
    [[nodiscard]] OctreeType& type() { return type_; }
    /// Range of the points' scalars; 3.4028235e38 and -3.4028235e38 before the first.
    [[nodiscard]] float scalarfieldMin() const { return scalarMin_; }
    [[nodiscard]] float scalarfieldMax() const { return scalarMax_; }
    void setScalarFieldMinMax(float min, float max);
    /// Takes the root box of another tree as it is; the edge is not derived again, which could round it.
    void copyBox(const Octree& other);

    /// The tree itself.
    [[nodiscard]] Octree& get() { return *this; }
    [[nodiscard]] const Octree& get() const { return *this; }
    /// The nodes themselves: whoever adds or erases here cares for the masks.
    [[nodiscard]] NodeMap& nodes() { return nodes_; }
    [[nodiscard]] const NodeMap& nodes() const { return nodes_; }

private:
    friend class OctreeFactory;

    struct Box {
        Vector3f min;
        Vector3f max;
    };
    [[nodiscard]] Box pointBox();

    Vector3f origin_ = Vector3f::Zero();
    Vector3f top_ = Vector3f::Zero();
    float extend_ = 0.0f;
    float scalarMin_ = 3.4028235e38f;
    float scalarMax_ = -3.4028235e38f;
    OctreeType type_ = NESTED;
    NodeMap nodes_;
};

}  // namespace ombrix::core
