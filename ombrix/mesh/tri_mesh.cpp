#include <ombrix/mesh/tri_mesh.h>

#include <algorithm>
#include <cassert>
#include <limits>
#include <utility>

namespace ombrix::mesh {

void TriMesh::clear() {
    vertices.clear();
    normals.clear();
    faces.clear();
}

void TriMesh::add(TriMesh& other) {
    if (!normals.empty() && other.normals.empty()) {
        other.evaluateVertexNormals();
    }
    const auto base = static_cast<std::uint32_t>(vertices.size());
    // Counts first, then element by element from `other`: the mesh may be appended to itself.
    const std::size_t addedVertices = other.vertices.size();
    const std::size_t addedNormals = other.normals.size();
    const std::size_t addedFaces = other.faces.size();

    // All memory first: when it runs out, the mesh stays as it is.
    const auto makeRoom = [](auto& to, std::size_t count) {
        if (to.size() + count > to.capacity()) {
            to.reserve(std::max(to.size() + count, 2 * to.capacity()));
        }
    };
    makeRoom(vertices, addedVertices);
    makeRoom(normals, addedNormals);
    makeRoom(faces, addedFaces);
    const auto append = [](auto& to, const auto& from, std::size_t count) {
        const std::size_t old = to.size();
        to.resize(old + count);
        std::copy_n(from.begin(), count, to.begin() + static_cast<std::ptrdiff_t>(old));
    };
    append(vertices, other.vertices, addedVertices);
    append(normals, other.normals, addedNormals);
    const std::size_t firstFace = faces.size();
    append(faces, other.faces, addedFaces);
    for (std::size_t i = firstFace; i < faces.size(); ++i) {
        for (std::uint32_t& index : faces[i].index) {
            index += base;
        }
    }
}

void TriMesh::translate(const Vector3f& t) {
    for (Vector3f& vertex : vertices) {
        vertex += t;
    }
}

void TriMesh::invertYZ() {
    for (Vector3f& vertex : vertices) {
        std::swap(vertex.y(), vertex.z());
    }
    normals.clear();
    evaluateVertexNormals();
}

void TriMesh::getMinMax(Vector3f& min, Vector3f& max) const {
    Vector3f low = Vector3f::Constant(std::numeric_limits<float>::max());
    Vector3f high = -low;
    for (const Vector3f& vertex : vertices) {
        for (int axis = 0; axis < 3; ++axis) {
            low[axis] = vertex[axis] < low[axis] ? vertex[axis] : low[axis];
            high[axis] = vertex[axis] > high[axis] ? vertex[axis] : high[axis];
        }
    }
    min = low;
    max = high;
}

Triangle TriMesh::make_triangle(const Face& face) const {
    Triangle triangle;
    for (int corner = 0; corner < 3; ++corner) {
        const std::uint32_t index = face.index[corner];
        assert(index < vertices.size());
        triangle.vertices[corner] = vertices[index];
        // A file may have brought fewer normals than vertices.
        triangle.normals[corner] = index < normals.size() ? normals[index] : Vector3f::Zero().eval();
    }
    return triangle;
}

}  // namespace ombrix::mesh
