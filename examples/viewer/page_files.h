#pragma once

#include <filesystem>
#include <string>
#include <unordered_map>

namespace examples::viewer {

/// A file of the page.
struct PageFile {
    std::string type;  ///< MIME type
    std::string content;
};

/// The files of the page by their path on the server: a fixed few, read once, so that no request can name any
/// other file.
using PageFiles = std::unordered_map<std::string, PageFile>;

/// Reads the page's files.
/// @throws std::runtime_error naming the one that cannot be read.
[[nodiscard]] PageFiles readPageFiles(const std::filesystem::path& folder);

}  // namespace examples::viewer
