#include <cassert>
#include <cmath>
#include <utility>

#include <Eigen/Geometry>

#include <ombrix/mesh/tri_mesh.h>

namespace ombrix::mesh {

namespace {

using core::Vector3d;

/// Area from the side lengths by Kahan's arrangement of Heron's formula. Rounding can make the radicand of
/// collinear corners negative, which counts as 0.
double triangleArea(double a, double b, double c) {
    double s0 = a, s1 = b, s2 = c;
    if (s0 > s1) {
        std::swap(s0, s1);
    }
    if (s1 > s2) {
        std::swap(s1, s2);
    }
    if (s0 > s1) {
        std::swap(s0, s1);
    }
    const double radicand = (s2 + s1 + s0) * (s0 - (s2 - s1)) * (s0 + (s2 - s1)) * (s2 + (s1 - s0));
    return radicand > 0 ? 0.25 * std::sqrt(radicand) : 0.0;
}

}  // namespace

// Products in double: the fourth power of an edge length leaves the range of float early.
void TriMesh::evaluateVertexNormals() {
    normals.resize(vertices.size(), Vector3f::Zero());
    for (const Face& face : faces) {
        Vector3d corner[3];
        for (int i = 0; i < 3; ++i) {
            assert(face.index[i] < vertices.size());
            corner[i] = vertices[face.index[i]].cast<double>();
        }
        const Vector3d e1 = corner[1] - corner[0];
        const Vector3d e2 = corner[2] - corner[0];
        const double area = triangleArea(e1.norm(), e2.norm(), (corner[2] - corner[1]).norm());
        const Vector3f weighted = (e1.cross(e2) * area).cast<float>();
        for (const std::uint32_t index : face.index) {
            normals[index] += weighted;
        }
    }
    for (Vector3f& normal : normals) {
        const double squared = normal.cast<double>().squaredNorm();
        if (squared > 0) {
            normal = (normal.cast<double>() / std::sqrt(squared)).cast<float>();
        }
    }
}

}  // namespace ombrix::mesh
