#pragma once

#include <ombrix/mesh/tri_mesh.h>

namespace ombrix::mesh::detail {

/// Whether the face names three vertices with finite coordinates.
[[nodiscard]] inline bool isUsable(const TriMesh& mesh, const Face& face) {
    for (const std::uint32_t index : face.index) {
        if (index >= mesh.vertices.size() || !mesh.vertices[index].allFinite()) {
            return false;
        }
    }
    return true;
}

}  // namespace ombrix::mesh::detail
