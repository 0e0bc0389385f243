#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

#include <ombrix/core/points/point_cloud.h>

namespace paged {

/// A cloud's place in a page file.
struct Page {
    std::uint64_t offset;
    std::uint64_t bytes;
};

/// Clouds one behind the other in a file of this process: positions, colours, scalars and all fields, as they
/// lie in memory. A page that is written again goes to the end; its old place is not used again.
class PageFile {
public:
    /// Creates the file, or empties it. @throws std::runtime_error when that fails.
    explicit PageFile(const std::string& path);

    /// @throws std::runtime_error when the file cannot take the cloud.
    Page write(const ombrix::core::PointCloud& cloud);
    /// @throws std::runtime_error when the file does not hold what was written.
    std::shared_ptr<ombrix::core::PointCloud> read(const Page& page);

    [[nodiscard]] std::uint64_t bytes() const { return end_; }

private:
    std::string path_;
    std::fstream file_;
    std::uint64_t end_ = 0;
};

}  // namespace paged
