#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/points/point.h>

namespace ombrix::core {

/// Inserts many points into the tree of a `NestedOctreeFactory`, node by node.
///
/// What becomes of a node depends only on the points that reach it and their order, and every node passes
/// displaced points on in the order in which it displaces them. So the points of a whole cloud can go through
/// one node first and wait in a stream for each child: the tree is the same as when one point after another
/// goes all the way down, but the grid at work stays in the processor's cache.
class NestedStreams {
public:
    explicit NestedStreams(NestedOctreeFactory& factory) : factory_(factory) {}

    /// Inserts pointAt(0) to pointAt(count - 1), which are local points with their codes, at the root.
    template <class PointAt>
    void insert(std::uint64_t count, const PointAt& pointAt) {
        for (std::uint64_t first = 0; first < count; first += BATCH) {
            const std::uint64_t last = count - first < BATCH ? count : first + BATCH;
            Inlet inlet(*this, factory_.node(1), last - first);
            for (std::uint64_t i = first; i < last; ++i) {
                inlet.put(pointAt(i));
            }
            inlet.close();
        }
    }

private:
    using Node = NestedOctreeFactory::Node;

    static constexpr std::uint64_t BATCH = 1 << 24;  ///< bounds the memory of waiting points, 0.9 GB
    static constexpr std::size_t BLOCK = 1024;       ///< points of a block of a stream
    static constexpr std::size_t RUN = 32;           ///< points whose cells are fetched ahead together

    /// Points that wait for a node.
    class Stream {
    public:
        void push(const Point& p) {
            if (blocks_.empty() || blocks_.back().size() == BLOCK) {
                blocks_.emplace_back().reserve(BLOCK);
            }
            blocks_.back().push_back(p);
        }
        [[nodiscard]] std::size_t size() const {
            return blocks_.empty() ? 0 : (blocks_.size() - 1) * BLOCK + blocks_.back().size();
        }
        [[nodiscard]] std::vector<std::vector<Point>>& blocks() { return blocks_; }

    private:
        std::vector<std::vector<Point>> blocks_;
    };

    /// Feeds a node whose number of arriving points is known, and then its children.
    class Inlet {
    public:
        Inlet(NestedStreams& streams, Node& node, std::uint64_t arriving);
        void put(const Point& p) {
            if (!node_.expanded) {
                node_.points.push_back(p);
                return;
            }
            run_[waiting_++] = p;
            if (waiting_ == RUN) {
                flush();
            }
        }
        /// No more points: continues below.
        void close();

    private:
        void flush();

        NestedStreams& streams_;
        Node& node_;
        std::array<Point, RUN> run_;
        std::size_t waiting_ = 0;
        std::array<Stream, 8> below_;
    };

    NestedOctreeFactory& factory_;
};

}  // namespace ombrix::core
