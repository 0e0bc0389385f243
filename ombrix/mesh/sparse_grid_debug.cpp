#include <array>
#include <cstring>
#include <iostream>
#include <set>

#include <ombrix/mesh/sorted_keys_detail.h>
#include <ombrix/mesh/sparse_grid.h>

namespace ombrix::mesh {

namespace {

/// Corner c of a cube has bit 0 of c as upper x, bit 1 as upper y, bit 2 as upper z; wound to be seen from
/// outside.
constexpr std::uint32_t CUBE_FACES[12][3] = {{0, 2, 3}, {0, 3, 1}, {4, 5, 7}, {4, 7, 6},
                                             {0, 1, 5}, {0, 5, 4}, {2, 6, 7}, {2, 7, 3},
                                             {0, 4, 6}, {0, 6, 2}, {1, 3, 7}, {1, 7, 5}};

TriMesh voxelCubes(const SparseGrid& grid, const std::vector<std::uint64_t>& keys) {
    TriMesh mesh;
    for (const std::uint64_t key : keys) {
        const auto base = static_cast<std::uint32_t>(mesh.vertices.size());
        const Vector3f center = grid.node_center(key);
        for (int corner = 0; corner < 8; ++corner) {
            const Vector3f side(corner & 1 ? 0.5f : -0.5f, corner & 2 ? 0.5f : -0.5f,
                                corner & 4 ? 0.5f : -0.5f);
            mesh.vertices.emplace_back(center + grid.voxel * side);
        }
        for (const auto& face : CUBE_FACES) {
            mesh.faces.push_back({{base + face[0], base + face[1], base + face[2]}});
        }
    }
    return mesh;
}

TriMesh storedTriangles(const SparseGrid& grid, const std::vector<std::uint64_t>& keys) {
    TriMesh mesh;
    std::set<std::array<float, 9>> seen;
    for (const std::uint64_t key : keys) {
        for (const Triangle& triangle : grid.node(key).triangles) {
            std::array<float, 9> corners{};
            static_assert(sizeof corners == sizeof triangle.vertices);
            std::memcpy(corners.data(), triangle.vertices, sizeof corners);
            if (seen.insert(corners).second) {
                const auto base = static_cast<std::uint32_t>(mesh.vertices.size());
                mesh.vertices.insert(mesh.vertices.end(), triangle.vertices, triangle.vertices + 3);
                mesh.faces.push_back({{base, base + 1, base + 2}});
            }
        }
    }
    return mesh;
}

void write(const TriMesh& mesh, const std::string& path) {
    const ObjWriteResult result = mesh.writeOBJ(path, ObjWriteOptions{});
    if (!result.ok()) {
        std::cout << "ERROR in SparseGrid::debug :  " << result.error << std::endl;
    }
}

}  // namespace

void SparseGrid::debug() const {
    debug(std::string());
}

void SparseGrid::debug(const std::string& prefix) const {
    const std::vector<std::uint64_t> keys = detail::sortedKeys(*this);
    write(voxelCubes(*this, keys), prefix + "sparse_grid_voxels.obj");
    write(storedTriangles(*this, keys), prefix + "sparse_grid_triangles.obj");
}

}  // namespace ombrix::mesh
