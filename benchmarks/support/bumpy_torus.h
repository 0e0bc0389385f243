#pragma once

#include <cmath>
#include <cstdint>
#include <map>
#include <numbers>

#include <ombrix/mesh/tri_mesh.h>

namespace ombrix::benchmarks {

/// A torus with bumps, about 3 units wide: `across` times twice as many vertices, and four times across²
/// triangles. A million of them unless said.
inline const mesh::TriMesh& bumpyTorus(std::uint32_t across = 500) {
    static std::map<std::uint32_t, mesh::TriMesh> made;
    const auto [it, isNew] = made.try_emplace(across);
    mesh::TriMesh& torus = it->second;
    if (!isNew) {
        return torus;
    }
    constexpr double TURN = 2 * std::numbers::pi;
    const std::uint32_t around = 2 * across;
    torus.vertices.reserve(std::size_t{around} * across);
    torus.faces.reserve(std::size_t{2} * around * across);
    for (std::uint32_t i = 0; i < around; ++i) {
        for (std::uint32_t j = 0; j < across; ++j) {
            const double u = TURN * i / around, v = TURN * j / across;
            const double tube = 0.4 + 0.05 * std::sin(9 * u + 0.3) * std::cos(7 * v + 0.1);
            const double ring = 1 + tube * std::cos(v);
            torus.vertices.emplace_back(static_cast<float>(ring * std::cos(u)),
                                        static_cast<float>(ring * std::sin(u)),
                                        static_cast<float>(tube * std::sin(v)));
            const std::uint32_t next = (i + 1) % around * across, row = i * across;
            const std::uint32_t up = (j + 1) % across;
            torus.faces.push_back({{row + j, next + j, next + up}});
            torus.faces.push_back({{row + j, next + up, row + up}});
        }
    }
    return torus;
}

}  // namespace ombrix::benchmarks
