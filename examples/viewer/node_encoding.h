#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <ombrix/core/octree/octree.h>
#include <ombrix/core/types.h>

#include "model.h"

namespace examples::viewer {

/// A key as a page reads it: octal, so that the root is "1", every further digit is an octant, and the text
/// without its last digit is the parent.
[[nodiscard]] std::string keyText(std::uint64_t key);
/// The key of a text; none when no node can have it.
[[nodiscard]] std::optional<std::uint64_t> keyOf(std::string_view text);

/// The points of a node for a graphics card, little-endian:
///
///     uint32     number of points n
///     float32    lower corner of the node's cube, x, y, z, relative to the tree
///     float32    edge of the cube
///     float32    spacing: how far the points are from one another
///     uint16     n times x, y, z, intensity: 0 and 65535 are the faces of the cube, and the ends of the
///     range uint8      n times red, green, blue, 255
///
/// The spacing is that of points strewn over a surface, the edge of cells of which 63 in 100 points would
/// have one to themselves; at most a 64th of the cube's edge, for a parent's sample is as fine. A position is
/// off by at most edge / 131070 on each axis. Points without a colour are white; an intensity outside of the
/// range counts as its nearer end, one that is not a number as its lower end.
[[nodiscard]] std::string encodeNode(const ombrix::core::Octree& tree, const ombrix::core::Octree::Node& node,
                                     const Range& intensity);

/// Normals as signed bytes x, y, z, 0.
[[nodiscard]] std::string encodeNormals(const ombrix::core::Vector3f* normals, std::size_t count);
/// Numbers as 16-bit shares of the range, like intensities.
[[nodiscard]] std::string encodeNumbers(const float* values, std::size_t count, const Range& range);

}  // namespace examples::viewer
