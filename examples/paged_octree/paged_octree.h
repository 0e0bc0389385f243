#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <unordered_map>

#include <ombrix/core/octree/octree.h>

#include "page_file.h"

namespace paged {

/// An octree that holds at most a given number of node clouds in memory; the others wait in a page file.
///
/// Builders and readers notice nothing: a factory reports each finished node through `update_node`, which is
/// where surplus clouds leave, and `node_pc` brings a cloud back. The cloud used longest ago leaves first. A
/// node's `compressed` is its page. A caller who holds a cloud keeps it; changes made to it must be reported
/// through `update_node` while the tree still holds the cloud, too.
class PagedOctree : public ombrix::core::Octree {
public:
    /// @param path   of the page file, which is created or emptied.
    /// @param bound  clouds held in memory, at least 1.
    PagedOctree(const std::string& path, std::size_t bound);
    PagedOctree(const PagedOctree&) = delete;
    PagedOctree& operator=(const PagedOctree&) = delete;

    /// The node's cloud, read back when it is not in memory; empty only for a node without points.
    std::shared_ptr<ombrix::core::PointCloud> node_pc(std::uint64_t key) override;

    /// Takes note of new points. Points that came while the others were in the file are joined with them.
    void update_node(std::uint64_t key) override;
    /// Writes the node's cloud to the file, if it changed since it was.
    void compress_node_pc(std::uint64_t key) override;
    /// Drops the node's cloud from memory, written before where necessary.
    void recycle_node(std::uint64_t key) override;
    /// Writes every cloud of the sub-tree, and drops it when `release`.
    void finalize(bool release, std::uint64_t key) override;

    void clear_node(std::uint64_t key) override;
    void delete_node(std::uint64_t key) override;

    [[nodiscard]] std::size_t held() const { return recent_.size(); }
    [[nodiscard]] std::size_t mostHeld() const { return mostHeld_; }
    [[nodiscard]] std::uint64_t pagesWritten() const { return pagesWritten_; }
    [[nodiscard]] std::uint64_t pagesRead() const { return pagesRead_; }
    [[nodiscard]] std::uint64_t fileBytes() const { return file_.bytes(); }

private:
    std::shared_ptr<ombrix::core::PointCloud> readBack(const Node& node);
    void touch(std::uint64_t key);
    void forget(std::uint64_t key);

    PageFile file_;
    std::size_t bound_;
    std::list<std::uint64_t> recent_;  ///< nodes whose cloud is in memory, the latest first
    std::unordered_map<std::uint64_t, std::list<std::uint64_t>::iterator> place_;  ///< in `recent_`
    std::size_t mostHeld_ = 0;
    std::uint64_t pagesWritten_ = 0;
    std::uint64_t pagesRead_ = 0;
};

}  // namespace paged
