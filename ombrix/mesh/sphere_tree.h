#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <ombrix/core/types.h>
#include <ombrix/mesh/mesh_export.h>
#include <ombrix/mesh/tri_mesh.h>

namespace ombrix::mesh {

/// Binary tree of bounding spheres over the faces of a mesh, for closest points, rays and sphere overlaps.
///
/// Faces are split at the median of their centroids along the longest axis. A leaf has the smallest sphere
/// around its corners; an inner node the smaller of the one around its children's spheres and the one
/// around the box of its corners.
///
/// Keeps a reference to the mesh, which must outlive the tree, and a copy of the corners in the tree's own
/// order (36 bytes a face): changes of the mesh are not seen. Const queries may run at once. Degenerate faces
/// act as segments. Faces that name no vertex or have a coordinate that is not finite are left out. Computes
/// in double; of equal answers the face with the lowest index is given.
class OMBRIX_MESH_API SphereTree {
public:
    /// A ball in the mesh's frame.
    struct Sphere {
        Vector3f center;  ///< position
        float radius;     ///< in units of position
    };

    /// What `closestPoint` finds.
    struct ClosestPoint {
        std::uint32_t face;  ///< index in the mesh
        Vector3f point;      ///< on that face
        float distance;      ///< not squared
    };

    /// The point origin + t * direction = (1 - u - v) * corner 0 + u * corner 1 + v * corner 2.
    struct RayHit {
        std::uint32_t face;  ///< index in the mesh
        float t;             ///< >= 0, in lengths of the direction
        float u;             ///< >= 0, u + v <= 1
        float v;             ///< >= 0, u + v <= 1
    };

    /// @param leaf  most faces in a leaf; 0 counts as 1.
    explicit SphereTree(const TriMesh& mesh, unsigned leaf = 8);

    /// The mesh that the tree refers to.
    [[nodiscard]] const TriMesh& mesh() const { return *mesh_; }

    /// A sphere around the whole mesh; radius 0 at the origin when there are no faces.
    [[nodiscard]] Sphere root() const;

    /// The nearest point of the mesh; nothing for an empty mesh or a p that is not finite.
    [[nodiscard]] std::optional<ClosestPoint> closestPoint(const Vector3f& p) const;

    /// The first face that a ray meets, from either side. A ray through a common edge never slips between
    /// its two faces. Nothing for a zero direction; degenerate faces are never hit.
    /// @param direction  of any length.
    [[nodiscard]] std::optional<RayHit> firstHit(const Vector3f& origin, const Vector3f& direction) const;

    /// The faces within `radius` of `center`, touching included, by ascending index; `faces` is
    /// overwritten.
    void overlappingFaces(const Vector3f& center, float radius, std::vector<std::uint32_t>& faces) const;

private:
    /// All corners below a node lie in the sphere and in
    /// the slab between two planes, which on a smooth surface is thin: low and high are measured from the
    /// sphere's centre along the mean normal.
    struct Node {
        Sphere sphere;
        Vector3f normal;  ///< unit length to float precision, any direction where the mean is zero
        float low, high;
        std::uint32_t link;   ///< inner node: its children are link and link + 1; leaf: first entry in order_
        std::uint32_t count;  ///< faces of a leaf; 0: inner node
    };
    struct Corners {
        Vector3f a, b, c;
    };
    struct Builder;

    const TriMesh* mesh_;
    std::vector<Node> nodes_;
    std::vector<std::uint32_t> order_;  ///< face indices, leaf by leaf
    std::vector<Corners> corners_;      ///< of the faces in order_, so that a leaf is read at one place
};

}  // namespace ombrix::mesh
