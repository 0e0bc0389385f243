#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include <ombrix/core/octree/nested_local_points_detail.h>
#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/points/point.h>
#include <ombrix/core/services/work_detail.h>

namespace ombrix::core {

/// Inserts the points of a cloud into the tree of a `NestedOctreeFactory`, node by node.
///
/// What becomes of a node depends only on the points that reach it and their order, and every node passes
/// displaced points on in the order in which it displaces them. So the points of a whole cloud can go through
/// one node first and wait in a stream for each child: the tree is the same as when one point after another
/// goes all the way down, but the grid at work stays in the processor's cache.
///
/// Waiting points take half the memory of a record: values of the predefined fields are fetched where a point
/// comes to rest.
class NestedStreams {
public:
    /// @param work  null unless somebody watches.
    NestedStreams(NestedOctreeFactory& factory, const detail::LocalPoints& points, detail::Work* work)
        : factory_(factory), points_(points), work_(work) {}

    /// Inserts all points at the root. When it is stopped, points are missing in the factory.
    void insert();

private:
    using Node = NestedOctreeFactory::Node;

    /// A point on its way down.
    struct Item {
        std::uint64_t code;
        Vector3f position;
        float scalar;
        ColorRGB color;
        std::uint8_t flags;
        std::uint32_t
            fields;  ///< where its fields are, if flags: point of the batch, or behind it in `aside_`
    };
    static_assert(sizeof(Item) == 32);

    /// Items that wait for a node.
    class Stream {
    public:
        static constexpr std::size_t BLOCK = 1024;
        using Block = std::vector<Item>;

        void push(const Item& item) {
            if (size_ % BLOCK == 0) {
                blocks_.emplace_back().reserve(BLOCK);
            }
            blocks_.back().push_back(item);
            ++size_;
        }
        [[nodiscard]] std::size_t size() const { return size_; }
        [[nodiscard]] std::vector<Block>& blocks() { return blocks_; }

    private:
        std::vector<Block> blocks_;
        std::size_t size_ = 0;
    };

    /// Children's streams of a node.
    using Below = std::array<Stream, 8>;

    void insertBatch(std::uint64_t count);
    void enter(Node& node, Stream stream);
    bool prepare(Node& node, std::size_t arriving, Below& below);
    void keepInBucket(Node& node, const Stream::Block& block);
    void passGrid(Node& node, const Item* items, std::size_t count, Below& below);
    void passOn(Node& node, Below& below);
    void tell(std::uint64_t points);

    [[nodiscard]] static Item itemOf(const Point& p, std::uint32_t fields);
    [[nodiscard]] Item displace(const Point& p);
    [[nodiscard]] Point settle(const Item& item);

    NestedOctreeFactory& factory_;
    const detail::LocalPoints& points_;
    detail::Work* work_;
    std::uint64_t atRest_ = 0;           ///< points that came to rest, not told to `work_` yet
    std::uint64_t first_ = 0;            ///< of the batch
    std::uint32_t count_ = 0;            ///< of the batch
    std::vector<Point> aside_;           ///< displaced points with fields on their way
    std::vector<std::uint32_t> vacant_;  ///< free places of `aside_`
};

}  // namespace ombrix::core
