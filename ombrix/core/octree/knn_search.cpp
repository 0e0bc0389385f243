#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <tuple>

#include <ombrix/core/octree/knn_search.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/node_frame_detail.h>
#include <ombrix/core/points/point_reader_detail.h>

namespace ombrix::core {
namespace {

/// A node to visit and the squared distance of its cube from the query.
struct Cell {
    double sqDist;
    std::uint64_t key;

    /// Heap order: the nearest on top, equal distances by key.
    friend bool operator<(const Cell& a, const Cell& b) {
        return a.sqDist != b.sqDist ? a.sqDist > b.sqDist : a.key > b.key;
    }
};

struct Candidate {
    double sqDist;
    std::uint64_t key;
    std::uint64_t index;
    std::size_t cloud;  ///< position in the list of visited clouds

    /// Heap order: the worst on top.
    friend bool operator<(const Candidate& a, const Candidate& b) {
        return std::tie(a.sqDist, a.key, a.index) < std::tie(b.sqDist, b.key, b.index);
    }
};

struct VisitedCloud {
    std::shared_ptr<PointCloud> cloud;  ///< held, because paging in another node may drop this one
    Vector3f offset;
    std::optional<detail::PointReader> reader;
};

/// Buffers of a query, kept per thread.
struct Scratch {
    std::vector<Cell> queue;
    std::vector<Candidate> heap;
    std::vector<VisitedCloud> clouds;
};

/// Lets go of the clouds at the end, however it comes: the thread's buffers must not keep them alive.
struct HeldOnlyMeanwhile {
    std::vector<VisitedCloud>& clouds;
    ~HeldOnlyMeanwhile() { clouds.clear(); }
};

/// Squared distance from a query to a node's cube, never more than to any point that builders put there:
/// a cube at the border of the root reaches outwards without end, and all faces give way by the rounding of
/// positions.
class CubeDistance {
public:
    CubeDistance(const Vector3d& query, double extend)
        : query_(query), extend_(extend), slack_(extend * 0x1p-22) {}

    [[nodiscard]] double operator()(std::uint64_t key) const {
        const unsigned int depth = node_depth(key);
        const std::uint32_t last = (1u << depth) - 1;
        std::uint32_t cell[3];
        morton3d<std::uint64_t>(key ^ std::uint64_t{1} << (3 * depth)).decode(cell[0], cell[1], cell[2]);
        const double edge = extend_ / static_cast<double>(1u << depth);
        double sum = 0.0;
        for (int axis = 0; axis < 3; ++axis) {
            const double lower = cell[axis] * edge - slack_ - query_[axis];
            const double upper = query_[axis] - (cell[axis] + 1.0) * edge - slack_;
            double gap = 0.0;
            if (lower > 0.0 && cell[axis] > 0) {
                gap = lower;
            } else if (upper > 0.0 && cell[axis] < last) {
                gap = upper;
            }
            sum += gap * gap;
        }
        return sum;
    }

private:
    Vector3d query_;
    double extend_;
    double slack_;
};

/// The k best candidates so far.
class Best {
public:
    Best(std::vector<Candidate>& heap, unsigned int k) : heap_(heap), k_(k) { heap_.clear(); }

    /// No farther point can be among the results.
    [[nodiscard]] double worst() const { return worst_; }

    void scan(const VisitedCloud& visited, std::size_t cloud, std::uint64_t key, const Vector3d& query) {
        const Vector3d relative = query - visited.offset.cast<double>();
        const std::vector<Vector3f>& positions = visited.cloud->positions();
        for (std::size_t i = 0; i < positions.size(); ++i) {
            const double sqDist = (positions[i].cast<double>() - relative).squaredNorm();
            if (sqDist <= worst_) {
                insert({sqDist, key, i, cloud});
            }
        }
    }

private:
    void insert(const Candidate& candidate) {
        if (heap_.size() == k_) {
            if (!(candidate < heap_.front())) {
                return;
            }
            std::pop_heap(heap_.begin(), heap_.end());
            heap_.pop_back();
        }
        heap_.push_back(candidate);
        std::push_heap(heap_.begin(), heap_.end());
        if (heap_.size() == k_) {
            worst_ = heap_.front().sqDist;
        }
    }

    std::vector<Candidate>& heap_;
    std::size_t k_;
    double worst_ = std::numeric_limits<double>::max();  // so that infinite distances never qualify
};

}  // namespace

std::uint64_t kNNSearch::search(const Vector3f& p, int depth, unsigned int k, std::vector<Point>& out) const {
    return search(p, depth, k, out, nullptr);
}

std::uint64_t kNNSearch::search(const Vector3f& p, int depth, unsigned int k, std::vector<Point>& out,
                                std::vector<std::uint64_t>& keys) const {
    keys.clear();
    return search(p, depth, k, out, &keys);
}

std::uint64_t kNNSearch::search(const Vector3f& p, int depth, unsigned int k, std::vector<Point>& out,
                                std::vector<std::uint64_t>* keys) const {
    out.clear();
    if (k == 0 || !p.allFinite() || !octree_->hasKey(octree_->rootKey())) {
        return 0;
    }
    thread_local Scratch scratch;
    auto& [queue, heap, clouds] = scratch;
    queue.clear();
    const HeldOnlyMeanwhile held{clouds};

    const unsigned int deepest =
        depth < 0 ? Octree::MAX_DEPTH : std::min(static_cast<unsigned int>(depth), Octree::MAX_DEPTH);
    const Vector3d query = p.cast<double>();
    const CubeDistance cubeDistance(query, octree_->extend());
    Best best(heap, k);
    std::uint64_t skipped = 0;

    queue.push_back({0.0, octree_->rootKey()});
    while (!queue.empty() && queue.front().sqDist <= best.worst()) {
        std::pop_heap(queue.begin(), queue.end());
        const std::uint64_t key = queue.back().key;
        queue.pop_back();
        const auto found = octree_->nodes().find(key);
        if (found == octree_->nodes().end()) {
            continue;  // a mask may name children that the tree does not hold
        }
        const Octree::Node& node = found->second;
        const unsigned int level = node_depth(key);
        const std::uint8_t mask = level < deepest ? node.children : std::uint8_t{0};
        const std::shared_ptr<PointCloud> cloud = node.pc || node.size == 0 ? node.pc : octree_->node_pc(key);
        if (cloud && !cloud->positions().empty()) {
            clouds.push_back({cloud, detail::positionOffset(*octree_, node), std::nullopt});
            best.scan(clouds.back(), clouds.size() - 1, key, query);
        } else if (!cloud && node.size > 0) {
            ++skipped;
        }
        for (unsigned int octant = 0; octant < 8; ++octant) {
            if ((mask >> octant & 1u) != 0) {
                const Cell child{cubeDistance(child_key(key, octant)), child_key(key, octant)};
                if (child.sqDist <= best.worst()) {
                    queue.push_back(child);
                    std::push_heap(queue.begin(), queue.end());
                }
            }
        }
    }

    std::sort_heap(heap.begin(), heap.end());
    out.reserve(heap.size());
    for (const Candidate& candidate : heap) {
        VisitedCloud& visited = clouds[candidate.cloud];
        if (!visited.reader) {
            visited.reader.emplace(*visited.cloud);
        }
        out.push_back(visited.reader->point(candidate.index));
        out.back().position += visited.offset;
        if (keys != nullptr) {
            keys->push_back(candidate.key);
        }
    }
    return skipped;
}

}  // namespace ombrix::core
