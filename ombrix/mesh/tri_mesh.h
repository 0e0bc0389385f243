#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <ombrix/core/types.h>
#include <ombrix/mesh/mesh_export.h>
#include <ombrix/mesh/obj_options.h>

namespace ombrix::core {
struct WorkContext;
}  // namespace ombrix::core

namespace ombrix::mesh {

using core::Vector3f;

/// Three vertex indices, 0-based, in winding order.
struct Face {
    std::uint32_t index[3];  ///< positions in `TriMesh::vertices`
};

/// One face with its corners copied out.
struct Triangle {
    Vector3f vertices[3];  ///< corner positions
    Vector3f normals[3];   ///< corner normals, all zero when the mesh has none
};

/// Indexed triangle mesh with optional vertex normals. Owns its arrays; copies are deep.
///
/// That faces index existing vertices is the caller's to care for, except where an operation says that it
/// checks.
class OMBRIX_MESH_API TriMesh {
public:
    std::vector<Vector3f> vertices;  ///< positions
    std::vector<Vector3f> normals;   ///< empty, or normal k belongs to vertex k
    std::vector<Face> faces;         ///< triangles

    /// Empties the three arrays.
    void clear();

    /// Appends another mesh, or this one once more. When this mesh has normals and `other` has none, the
    /// normals of `other` are computed first, in `other` itself.
    void add(TriMesh& other);

    /// Adds t to every vertex.
    void translate(const Vector3f& t);

    /// Swaps y and z of every vertex and computes the normals anew. No sign changes, so the mesh is
    /// mirrored; the winding of the faces stays, so the normals point to the other side.
    void invertYZ();

    /// Corners of the box of all vertices; NaN coordinates do not count.
    /// Without vertices: +3.4028235e38 in every component of `min`, the negative in `max`.
    void getMinMax(Vector3f& min, Vector3f& max) const;

    /// Unit vertex normals from the adjacent faces, zero where there is no face with an area.
    ///
    /// A face adds its cross product (length 2 * area) times its area to its corners, so its weight grows
    /// with the square of the area. Normals that exist already are added to, not reset: empty `normals`
    /// first for fresh ones. The area is Heron's formula in the form that is stable on needles.
    /// Source: Kahan, "Miscalculating Area and Angles of a Needle-like Triangle", 2014.
    void evaluateVertexNormals();

    /// The corners of a face of this mesh, with the normals of those vertices that have one, else zero.
    [[nodiscard]] Triangle make_triangle(const Face& face) const;

    /// Appends the records of a Wavefront OBJ file, without shifting the face indices: read into an empty
    /// mesh. Independent of the locale.
    ///
    /// Of each face the first three corners are kept, and of each corner the vertex index, unchecked;
    /// indices 0 and below wrap around to large ones. Normals are those of the "vn" lines in file order.
    /// A malformed or missing number counts as 0 and the record is kept, so that later indices stay right;
    /// a face without three readable corners is skipped. Lines with other keywords are skipped.
    ///
    /// A file that cannot be opened changes nothing and prints
    /// "ERROR in TriMesh::readOBJ :  file not found" to standard output; a read that fails midway keeps
    /// what was read. The overload with options reads more of the format and tells what it met.
    void readOBJ(const std::string& path);

    /// Writes an OBJ file in the plain form, and " Write OBJ file " with the path to standard output.
    ///
    /// Six significant digits. Normals have the keyword "n", not "vn", so that `readOBJ` skips them.
    /// Failures are not reported. The overload with options writes everything so that it is read back.
    void writeOBJ(const std::string& path) const;

    /// Appends an OBJ file: polygons become triangle fans, negative indices count back from the latest
    /// vertex, a backslash at the end of a line continues it. Face indices are shifted by the number of
    /// vertices present before. Prints nothing. Independent of the locale.
    ///
    /// Triangles with an index that names no vertex of the file are left out. Normals end up one per
    /// vertex: the one that the vertex's corners name, the normalised mean when they name several, or the
    /// "vn" lines in order where no corner names one and there are as many as vertices.
    /// On an error the mesh is unchanged.
    [[nodiscard]] ObjReadResult readOBJ(const std::string& path, const ObjReadOptions& options);
    /// The same within a context (ombrix/core/services/work_context.h), on the calling thread. When stopped,
    /// the result has an error and says so, and the mesh is unchanged.
    [[nodiscard]] ObjReadResult readOBJ(const std::string& path, const ObjReadOptions& options,
                                        const core::WorkContext& context);

    /// Writes an OBJ file that `readOBJ` with options reads back: nine significant digits give the same
    /// floats, normals have the keyword "vn". Normals are written when there is one per vertex.
    /// Prints nothing. Independent of the locale.
    [[nodiscard]] ObjWriteResult writeOBJ(const std::string& path, const ObjWriteOptions& options) const;
};

}  // namespace ombrix::mesh
