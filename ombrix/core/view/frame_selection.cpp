#include <algorithm>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/view/frame_selection.h>
#include <ombrix/core/view/projected_size_detail.h>

namespace ombrix::core {
namespace {

template <class T>
void makeRoomForOne(std::vector<T>& list) {
    if (list.size() == list.capacity()) {
        list.reserve(std::max<std::size_t>(64, 2 * list.size()));
    }
}

}  // namespace

FrameSelection::FrameSelection(const Octree& octree) : octree_(&octree) {}

void FrameSelection::setHysteresis(float margin) {
    margin_ = margin > 0.0f ? std::min(margin, 0.9f) : 0.0f;
}

void FrameSelection::reset() {
    frame_ = 1;
    pointCount_ = 0;
    records_ = {};
    queue_ = {};
    selected_ = {};
    before_ = {};
    keys_.clear();
    entered_.clear();
    left_.clear();
}

std::uint64_t FrameSelection::update(const ViewFrustum& frustum, std::uint64_t budget, float minSize) {
    dropUnused();
    left_.reserve(selected_.size());
    left_.clear();
    before_.swap(selected_);
    selected_.clear();
    keys_.clear();
    entered_.clear();
    pointCount_ = 0;
    ++frame_;
    try {
        select(frustum, budget, minSize);
    } catch (...) {
        finishFrame();
        throw;
    }
    finishFrame();
    return pointCount_;
}

void FrameSelection::select(const ViewFrustum& frustum, std::uint64_t budget, float minSize) {
    queue_.clear();
    prepareRecords();
    consider(frustum, minSize, 0);

    const std::uint64_t budgetOfNew =
        budget - static_cast<std::uint64_t>(static_cast<double>(budget) * static_cast<double>(margin_));
    bool closed = false;  // to nodes that were not in the last frame
    while (!queue_.empty() && pointCount_ < budget) {
        std::pop_heap(queue_.begin(), queue_.end());
        const std::uint32_t index = queue_.back().record;
        queue_.pop_back();
        const bool kept = stays(records_[index]);
        if (closed && !kept) {
            continue;
        }
        const Octree::Node& node = octree_->node(records_[index].key);
        const std::uint64_t points = node.pc ? node.pc->size() : node.size;
        const std::uint64_t limit = kept ? budget : budgetOfNew;
        if (pointCount_ >= limit || (strict_ && points > limit - pointCount_)) {
            if (kept || margin_ == 0.0f) {
                break;
            }
            closed = true;
            continue;
        }
        take(index, points);
        if (node.children != 0 && node_depth(records_[index].key) < Octree::MAX_DEPTH) {
            examineChildren(index, node.children);
            for (std::uint32_t octant = 0; octant < 8; ++octant) {
                if ((node.children >> octant & 1) != 0) {
                    consider(frustum, minSize, records_[index].children + octant);
                }
            }
        }
    }
}

/// Makes the root's record, and all boxes anew when the root's box was changed.
void FrameSelection::prepareRecords() {
    const Octree::Node& root = octree_->node(octree_->rootKey());
    if (records_.empty()) {
        records_.resize(1);
        records_[0] = {octree_->node_aabb(root), octree_->rootKey(), 0, 0, 0};
    }
    if (octree_->extend() != extend_) {
        Octree::Node node;
        for (Record& record : records_) {
            node.key = record.key;
            record.box = octree_->node_aabb(node);
        }
        extend_ = octree_->extend();
    }
}

bool FrameSelection::stays(const Record& record) const {
    return margin_ > 0.0f && record.frame == frame_ - 1;
}

void FrameSelection::consider(const ViewFrustum& frustum, float minSize, std::uint32_t index) {
    const Record& record = records_[index];
    float size = detail::projectedSize(frustum, record.box);
    if (stays(record)) {
        size *= 1.0f + margin_;
    }
    if (size > minSize) {
        queue_.push_back({size, index});
        std::push_heap(queue_.begin(), queue_.end());
    }
}

void FrameSelection::take(std::uint32_t index, std::uint64_t points) {
    // First all that can fail, so that the lists always agree
    makeRoomForOne(keys_);
    makeRoomForOne(entered_);
    makeRoomForOne(selected_);
    Record& record = records_[index];
    keys_.push_back(record.key);
    selected_.push_back(index);
    if (record.frame != frame_ - 1) {
        entered_.push_back(record.key);
    }
    record.frame = frame_;
    pointCount_ += points;
}

void FrameSelection::examineChildren(std::uint32_t index, std::uint8_t mask) {
    if (records_[index].children == 0) {
        const auto first = static_cast<std::uint32_t>(records_.size());
        records_.resize(records_.size() + 8);
        records_[index].children = first;
    }
    Record& record = records_[index];
    record.known &= mask;
    for (unsigned int octant = 0; record.known != mask && octant < 8; ++octant) {
        if (((mask & ~record.known) >> octant & 1) != 0) {
            Record& child = records_[record.children + octant];
            child.key = child_key(record.key, octant);
            child.box = octree_->node_aabb(octree_->node(child.key));
            record.known |= static_cast<std::uint8_t>(1u << octant);
        }
    }
}

void FrameSelection::finishFrame() noexcept {
    for (std::size_t i = before_.size(); i-- > 0;) {
        if (records_[before_[i]].frame != frame_) {
            left_.push_back(records_[before_[i]].key);
        }
    }
}

/// Forgets what the last frame did not examine when that is most of the records.
void FrameSelection::dropUnused() {
    if (records_.size() < 4096 + 32 * selected_.size()) {
        return;
    }
    std::vector<Record> records;
    std::vector<std::uint32_t> selected;
    std::vector<std::uint32_t> moved(records_.size());
    records.reserve(1 + 8 * selected_.size());
    selected.reserve(selected_.size());
    records.push_back(records_[0]);
    records[0].children = 0;
    records[0].known = 0;
    for (const std::uint32_t old : selected_) {  // parents come before their children
        const std::uint32_t index = moved[old];
        selected.push_back(index);
        if (records_[old].children != 0) {
            records[index].children = static_cast<std::uint32_t>(records.size());
            records[index].known = records_[old].known;
            for (std::uint32_t octant = 0; octant < 8; ++octant) {
                const std::uint32_t child = records_[old].children + octant;
                moved[child] = static_cast<std::uint32_t>(records.size());
                records.push_back(records_[child]);
                records.back().children = 0;
                records.back().known = 0;
            }
        }
    }
    records_.swap(records);
    selected_.swap(selected);
}

}  // namespace ombrix::core
