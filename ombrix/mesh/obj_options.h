#pragma once

#include <cstdint>
#include <string>

namespace ombrix::mesh {

/// What `TriMesh::readOBJ` takes from a file.
struct ObjReadOptions {
    bool triangulate = true;  ///< polygons as triangle fans; false: the first triangle of each
    bool normals = true;      ///< "vn" lines; false: they are skipped
};

/// What `TriMesh::readOBJ` met in a file.
struct ObjReadResult {
    std::string error;                     ///< empty on success, else a line that names the file
    bool stopped = false;                  ///< the error is that the caller's context ended the reading
    std::uint64_t lines = 0;               ///< all lines, blank ones too
    std::uint64_t vertices = 0;            ///< appended to the mesh
    std::uint64_t normals = 0;             ///< "vn" lines read
    std::uint64_t triangles = 0;           ///< appended to the mesh
    std::uint64_t polygons = 0;            ///< face lines with more than three corners
    std::uint64_t textureCoordinates = 0;  ///< "vt" lines, which a mesh does not keep
    std::uint64_t otherLines = 0;        ///< lines with other keywords: groups, materials, lines, points ...
    std::uint64_t malformedLines = 0;    ///< kept with 0 for the unreadable number, or without the corner
    std::uint64_t skippedFaces = 0;      ///< face lines with fewer than three readable corners
    std::uint64_t droppedTriangles = 0;  ///< an index names no vertex
    std::uint64_t firstProblemLine = 0;  ///< 1-based, the first malformed line or skipped face; 0: none

    /// Whether there is no error.
    [[nodiscard]] bool ok() const { return error.empty(); }
};

/// How `TriMesh::writeOBJ` writes a file.
struct ObjWriteOptions {
    bool normals = true;        ///< write normals when there is one per vertex
    int significantDigits = 9;  ///< 1 to 9; 9 bring every float back exactly
};

/// What `TriMesh::writeOBJ` did.
struct ObjWriteResult {
    std::string error;        ///< empty on success, else a line that names the file
    std::uint64_t bytes = 0;  ///< written
    /// Whether there is no error.
    [[nodiscard]] bool ok() const { return error.empty(); }
};

}  // namespace ombrix::mesh
