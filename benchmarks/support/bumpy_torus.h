#pragma once

#include <cmath>
#include <numbers>

#include <ombrix/mesh/tri_mesh.h>

namespace ombrix::benchmarks {

/// A torus with bumps: 500,000 vertices and one million triangles in random-looking but fixed shape, about
/// 3 units wide.
inline const mesh::TriMesh& bumpyTorus() {
    static const mesh::TriMesh made = [] {
        constexpr std::uint32_t AROUND = 1000, ACROSS = 500;
        constexpr double TURN = 2 * std::numbers::pi;
        mesh::TriMesh torus;
        torus.vertices.reserve(AROUND * ACROSS);
        torus.faces.reserve(2 * AROUND * ACROSS);
        for (std::uint32_t i = 0; i < AROUND; ++i) {
            for (std::uint32_t j = 0; j < ACROSS; ++j) {
                const double u = TURN * i / AROUND, v = TURN * j / ACROSS;
                const double tube = 0.4 + 0.05 * std::sin(9 * u + 0.3) * std::cos(7 * v + 0.1);
                const double ring = 1 + tube * std::cos(v);
                torus.vertices.emplace_back(static_cast<float>(ring * std::cos(u)),
                                            static_cast<float>(ring * std::sin(u)),
                                            static_cast<float>(tube * std::sin(v)));
                const std::uint32_t next = (i + 1) % AROUND * ACROSS, row = i * ACROSS;
                const std::uint32_t up = (j + 1) % ACROSS;
                torus.faces.push_back({{row + j, next + j, next + up}});
                torus.faces.push_back({{row + j, next + up, row + up}});
            }
        }
        return torus;
    }();
    return made;
}

}  // namespace ombrix::benchmarks
