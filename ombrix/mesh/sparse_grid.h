#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <ombrix/core/types.h>
#include <ombrix/mesh/mesh_export.h>
#include <ombrix/mesh/tri_mesh.h>

namespace ombrix::mesh {

/// Cubic voxels of a regular grid, those only that a mesh touches, each with copies of its triangles.
///
/// A voxel's key interleaves its coordinates, counted from `origin`: bit 3n + 2 is bit n of x, bit 3n + 1
/// that of y, bit 3n that of z, for n up to 20, without a leading marker bit; bit 63 is bit 21 of z. A mesh
/// longer than 2^21 voxels along an axis has voxels with the same key.
class OMBRIX_MESH_API SparseGrid {
public:
    /// One voxel.
    struct Node {
        std::vector<Triangle> triangles;  ///< those that overlap the voxel, in face order
    };

    float voxel = 0;                                   ///< edge length
    Vector3f origin = Vector3f::Zero();                ///< lower corner of voxel (0, 0, 0)
    std::unordered_map<std::uint64_t, Node> nodes{8};  ///< the voxels by key

    /// Adds the voxels that the triangles of a mesh touch; one that lies on a voxel face, within 1.2e-7,
    /// stands on both sides. A coordinate that is the nearest float to a face counts as on it. Earlier nodes
    /// stay: `clear` first for a fresh grid.
    ///
    /// The origin becomes the lower corner of the mesh's finite vertices. Faces that name no vertex or have
    /// a coordinate that is not finite are left out. An edge length that is not positive and finite adds
    /// nothing. The time grows with the number of voxels touched; a face whose box is 2^40 voxels large on a
    /// side, which no memory holds, is left out, too.
    void build(const TriMesh& mesh, float voxel);

    /// Removes all nodes.
    void clear();

    /// Key of the voxel that contains p. Only for p inside the grid: below `origin` coordinates are cut
    /// towards zero and wrap around.
    [[nodiscard]] std::uint64_t key(const Vector3f& p) const;
    /// Whether there is a node with this key.
    [[nodiscard]] bool count(std::uint64_t key) const;
    /// @throws std::out_of_range when there is none.
    [[nodiscard]] const Node& node(std::uint64_t key) const;
    /// Centre of the voxel of a key, whether there is a node or not.
    [[nodiscard]] Vector3f node_center(std::uint64_t key) const;
    /// Edge length.
    [[nodiscard]] float voxel_size() const { return voxel; }

    /// Writes `sparse_grid_voxels.obj`, a cube for each voxel by ascending key, and
    /// `sparse_grid_triangles.obj`, each stored triangle once, into the working folder. A file that cannot
    /// be written gives a line with "ERROR " on standard output.
    void debug() const;
    /// The same with `prefix`, a folder with its slash for example, before the two names.
    void debug(const std::string& prefix) const;
};

/// Finds the occupied voxels of a grid near a point. Keeps a reference to the grid, which must outlive the
/// tree and stay as it is; queries may run at once.
class OMBRIX_MESH_API SparseGridKDTree {
public:
    /// Builds the index at once.
    explicit SparseGridKDTree(SparseGrid& grid);
    ~SparseGridKDTree();
    SparseGridKDTree(const SparseGridKDTree&) = delete;
    SparseGridKDTree& operator=(const SparseGridKDTree&) = delete;

    /// A quarter of a voxel's diagonal, not half of it: sqrt(3) * voxel / 4.
    [[nodiscard]] float node_radius() const { return radius_; }

    /// The voxels whose centres are nearer to p than the nearest centre's distance plus two node radii, as
    /// (key, distance) by ascending distance, then key. `result` is overwritten; it stays empty for an empty
    /// grid or a p that is not finite.
    void closest_nodes_dist(const Vector3f& p, std::vector<std::pair<std::uint64_t, float>>& result) const;
    /// The same with squared distances.
    void closest_nodes_dist_sq(const Vector3f& p, std::vector<std::pair<std::uint64_t, float>>& result) const;

    /// The centres as nanoflann asks for them: how many, and coordinate `dim` of centre i. A coordinate
    /// that is not finite is handed over as 0, so that it cannot spoil the index for the other centres;
    /// the distance sees its real value, so that such a centre is never found.
    [[nodiscard]] std::uint64_t kdtree_get_point_count() const { return centers_.size(); }
    [[nodiscard]] float kdtree_get_pt(std::uint64_t i, std::uint64_t dim) const;
    /// Squared distance from p to centre i over the first `size` axes.
    [[nodiscard]] float kdtree_distance(const float* p, std::uint64_t i, std::uint64_t size) const;
    /// No box is at hand: nanoflann computes it.
    template <class Box>
    [[nodiscard]] bool kdtree_get_bbox(Box&) const {
        return false;
    }

private:
    struct Index;

    SparseGrid& grid_;
    float radius_;
    std::vector<Vector3f> centers_;  ///< by ascending key
    std::unique_ptr<Index> index_;
};

}  // namespace ombrix::mesh
