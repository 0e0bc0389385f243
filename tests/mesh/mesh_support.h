#pragma once

#include <cmath>
#include <numbers>
#include <random>
#include <string>

#include <Eigen/Geometry>

#include <ombrix/mesh/tri_mesh.h>

#include "tests/support/temp_path.h"

namespace ombrix::mesh::test {

using ombrix::test::TempPath;

/// The mesh that the plain reader makes of a text.
inline TriMesh readPlain(const std::string& text) {
    const TempPath file(text);
    TriMesh mesh;
    mesh.readOBJ(file.str());
    return mesh;
}

/// Faces as text, "0 1 2, 2 1 3".
inline std::string facesOf(const TriMesh& mesh) {
    std::string text;
    for (const Face& face : mesh.faces) {
        text += text.empty() ? "" : ", ";
        for (int corner = 0; corner < 3; ++corner) {
            text += (corner == 0 ? "" : " ") + std::to_string(face.index[corner]);
        }
    }
    return text;
}

/// Unconnected triangles with corners in a cube around `center`, each at most `size` long per axis.
inline TriMesh randomTriangles(unsigned seed, std::uint32_t count, float extent, float size,
                               const Vector3f& center = Vector3f::Zero()) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> unit(-0.5f, 0.5f);
    const auto point = [&](float scale) {
        const float x = unit(random), y = unit(random), z = unit(random);
        return Vector3f(Vector3f(x, y, z) * scale);
    };
    TriMesh mesh;
    for (std::uint32_t i = 0; i < count; ++i) {
        const Vector3f base = center + point(extent);
        for (int corner = 0; corner < 3; ++corner) {
            mesh.vertices.push_back(base + point(size));
        }
        mesh.faces.push_back({{3 * i, 3 * i + 1, 3 * i + 2}});
    }
    return mesh;
}

/// Sphere of longitude-latitude quads, wound counter-clockwise seen from outside.
inline TriMesh sphereMesh(float radius, std::uint32_t rings, const Vector3f& center = Vector3f::Zero()) {
    TriMesh mesh;
    const std::uint32_t sectors = 2 * rings;
    for (std::uint32_t i = 0; i <= rings; ++i) {
        const double polar = std::numbers::pi * i / rings;
        for (std::uint32_t j = 0; j < sectors; ++j) {
            const double around = 2 * std::numbers::pi * j / sectors;
            mesh.vertices.emplace_back(center + radius * Eigen::Vector3d(std::sin(polar) * std::cos(around),
                                                                         std::sin(polar) * std::sin(around),
                                                                         std::cos(polar))
                                                             .cast<float>());
            if (i < rings) {
                const std::uint32_t next = (j + 1) % sectors, row = i * sectors, below = row + sectors;
                mesh.faces.push_back({{row + j, below + j, below + next}});
                mesh.faces.push_back({{row + j, below + next, row + next}});
            }
        }
    }
    return mesh;
}

}  // namespace ombrix::mesh::test
