#include "paged_octree.h"

#include <algorithm>
#include <memory>

using namespace ombrix::core;

namespace paged {

PagedOctree::PagedOctree(const std::string& path, std::size_t bound)
    : file_(path), bound_(std::max<std::size_t>(bound, 1)) {}

std::shared_ptr<PointCloud> PagedOctree::node_pc(std::uint64_t key) {
    Node& n = node(key);
    if (!n.pc && n.compressed) {
        n.pc = readBack(n);
    }
    std::shared_ptr<PointCloud> cloud = n.pc;
    if (cloud) {
        touch(key);
    }
    return cloud;
}

void PagedOctree::update_node(std::uint64_t key) {
    Node& n = node(key);
    if (!n.pc) {
        return;
    }
    if (n.compressed && place_.count(key) == 0) {
        const std::shared_ptr<PointCloud> whole = readBack(n);
        whole->push_back(*n.pc, false);
        n.pc = whole;
    }
    n.compressed.reset();  // the page is out of date
    n.size = n.pc->size();
    touch(key);
}

void PagedOctree::compress_node_pc(std::uint64_t key) {
    Node& n = node(key);
    if (n.pc && !n.compressed) {
        n.compressed = std::make_shared<Page>(file_.write(*n.pc));
        ++pagesWritten_;
    }
}

void PagedOctree::recycle_node(std::uint64_t key) {
    compress_node_pc(key);
    Node& n = node(key);
    if (n.pc) {
        n.size = n.pc->size();
        n.pc.reset();
    }
    forget(key);
}

void PagedOctree::finalize(bool release, std::uint64_t key) {
    for (const std::uint64_t below : branch(key)) {
        release ? recycle_node(below) : compress_node_pc(below);
    }
}

void PagedOctree::clear_node(std::uint64_t key) {
    Octree::clear_node(key);
    forget(key);
}

void PagedOctree::delete_node(std::uint64_t key) {
    Octree::delete_node(key);
    forget(key);
}

std::shared_ptr<PointCloud> PagedOctree::readBack(const Node& n) {
    ++pagesRead_;
    return file_.read(*std::static_pointer_cast<Page>(n.compressed));
}

/// Makes the node the latest used one, and sends the surplus away.
void PagedOctree::touch(std::uint64_t key) {
    forget(key);
    recent_.push_front(key);
    place_[key] = recent_.begin();
    while (recent_.size() > bound_) {
        recycle_node(recent_.back());
    }
    mostHeld_ = std::max(mostHeld_, recent_.size());
}

void PagedOctree::forget(std::uint64_t key) {
    const auto found = place_.find(key);
    if (found != place_.end()) {
        recent_.erase(found->second);
        place_.erase(found);
    }
}

}  // namespace paged
