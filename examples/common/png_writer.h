#pragma once

#include <filesystem>

#include <examples/common/image.h>

namespace examples {

/// Writes a picture as an 8-bit RGB PNG file, replacing what is there.
///
/// @throws std::runtime_error naming the file when it cannot be written or the picture is empty.
void writePng(const std::filesystem::path& path, const Image& image);

}  // namespace examples
