#include <queue>
#include <utility>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/view/projected_size_detail.h>
#include <ombrix/core/view/visibility.h>

namespace ombrix::core {
namespace {

constexpr std::uint8_t VISIBLE = 2;

struct Candidate {
    float size;
    std::uint64_t key;
};

bool smaller(const Candidate& a, const Candidate& b) {
    return a.size < b.size;
}

}  // namespace

Visibility::Visibility(Octree& octree) : octree_(&octree) {}

std::uint64_t Visibility::update(const ViewFrustum& frustum, std::uint64_t budget, float minSize) {
    clear();
    return computeVisibleNodes(frustum, budget, minSize);
}

const std::vector<std::uint64_t>& Visibility::getVisibleNodeKeys() {
    return visibleKeys_;
}

void Visibility::clear() {
    for (auto& [key, node] : octree_->nodes()) {
        node.flags &= static_cast<std::uint8_t>(~VISIBLE);
    }
}

std::uint64_t Visibility::computeVisibleNodes(const ViewFrustum& frustum, std::uint64_t budget,
                                              float minSize) {
    visibleKeys_.clear();
    std::priority_queue<Candidate, std::vector<Candidate>, decltype(&smaller)> queue(&smaller);
    const auto consider = [&](std::uint64_t key) {
        const float size = projectedSize(frustum, octree_->node(key));
        if (size > minSize) {
            queue.push({size, key});
        }
    };
    consider(octree_->rootKey());

    std::uint64_t count = 0;
    while (!queue.empty() && count < budget) {
        const std::uint64_t key = queue.top().key;
        queue.pop();
        Octree::Node& node = octree_->node(key);
        node.flags |= VISIBLE;
        visibleKeys_.push_back(key);
        count += node.pc ? node.pc->size() : node.size;
        if (node_depth(key) < Octree::MAX_DEPTH) {
            for (unsigned int octant = 0; octant < 8; ++octant) {
                if ((node.children >> octant & 1) != 0) {
                    consider(child_key(key, octant));
                }
            }
        }
    }
    return count;
}

float Visibility::projectedSize(const ViewFrustum& frustum, const Octree::Node& node) const {
    return detail::projectedSize(frustum, octree_->node_aabb(node));
}

bool Visibility::visibleNode(const Octree::Node& node, bool onlyLoaded) const {
    return (node.flags & VISIBLE) != 0 && (!onlyLoaded || node.pc != nullptr);
}

}  // namespace ombrix::core
