#pragma once

#include <cmath>
#include <cstdint>
#include <string>

#include <ombrix/mesh/tri_mesh.h>

#include "benchmarks/support/answers.h"
#include "benchmarks/support/bumpy_torus.h"

namespace ombrix::benchmarks {

/// Vertices, their mean, and faces.
inline Answer meshAnswer(const mesh::TriMesh& mesh) {
    Answer answer = meanPointAnswer(mesh.vertices.size(), [&](std::size_t i) -> core::Vector3d {
        return mesh.vertices[i].cast<double>();
    });
    answer.push_back(static_cast<double>(mesh.faces.size()));
    return answer;
}

/// The same of a file that a measure wrote.
inline Answer writtenAnswer(const std::string& path) {
    mesh::TriMesh mesh;
    (void)mesh.readOBJ(path, mesh::ObjReadOptions{});
    return meshAnswer(mesh);
}

inline const mesh::TriMesh& torusOf(std::int64_t triangles) {
    return bumpyTorus(static_cast<std::uint32_t>(std::lround(std::sqrt(static_cast<double>(triangles) / 4))));
}

/// Voxels for a mesh of that many triangles: 256 along its longest side for a million, and in proportion.
inline float voxelEdge(std::int64_t triangles) {
    core::Vector3f min, max;
    torusOf(triangles).getMinMax(min, max);
    return (max - min).maxCoeff() / (256.0f * std::sqrt(static_cast<float>(triangles) / 1e6f));
}

}  // namespace ombrix::benchmarks
