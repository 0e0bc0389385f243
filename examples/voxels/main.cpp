/// Voxelises a mesh and draws it, its voxels, and the voxels nearest to a few probes, side by side:
///
///     voxels [mesh.obj] [voxels along the longest side] [picture.png]
///
/// Without arguments it takes a torus with bumps, 40 voxels and voxels.png.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <numbers>
#include <set>
#include <string>

#include <examples/common/png_writer.h>
#include <ombrix/mesh.h>

#include "cube_renderer.h"

using ombrix::mesh::SparseGrid;
using ombrix::mesh::SparseGridKDTree;
using ombrix::mesh::SphereTree;
using ombrix::mesh::TriMesh;
using ombrix::mesh::Vector3f;

namespace {

constexpr int PANEL = 640;
const Color STONE(0.62f, 0.68f, 0.78f), WOOD(0.85f, 0.74f, 0.56f), FOUND(0.90f, 0.25f, 0.20f),
    PROBE(0.1f, 0.3f, 0.8f);

TriMesh bumpyTorus() {
    constexpr std::uint32_t AROUND = 240, ACROSS = 120;
    constexpr float TURN = 2 * std::numbers::pi_v<float>;
    TriMesh torus;
    for (std::uint32_t i = 0; i < AROUND; ++i) {
        for (std::uint32_t j = 0; j < ACROSS; ++j) {
            const float u = TURN * static_cast<float>(i) / AROUND, v = TURN * static_cast<float>(j) / ACROSS;
            const float tube = 0.4f + 0.07f * std::sin(9 * u) * std::cos(3 * v);
            const float ring = 1 + tube * std::cos(v);
            torus.vertices.emplace_back(ring * std::cos(u), ring * std::sin(u), tube * std::sin(v));
            const std::uint32_t row = i * ACROSS, next = (i + 1) % AROUND * ACROSS, up = (j + 1) % ACROSS;
            torus.faces.push_back({{row + j, next + j, next + up}});
            torus.faces.push_back({{row + j, next + up, row + up}});
        }
    }
    return torus;
}

int run(int argc, char** argv) {
    // The mesh
    TriMesh mesh;
    if (argc > 1) {
        const auto result = mesh.readOBJ(argv[1], ombrix::mesh::ObjReadOptions{});
        if (!result.ok()) {
            std::fprintf(stderr, "%s\n", result.error.c_str());
            return 1;
        }
    } else {
        mesh = bumpyTorus();
    }
    if (mesh.faces.empty()) {
        std::fprintf(stderr, "The mesh has no faces\n");
        return 1;
    }

    // Its voxels and the tree of their centres
    Vector3f min, max;
    mesh.getMinMax(min, max);
    const float longest = (max - min).maxCoeff();
    const int along = argc > 2 ? std::atoi(argv[2]) : 40;
    if (along < 1 || along > 512) {
        std::fprintf(stderr, "Between 1 and 512 voxels along the longest side, please\n");
        return 1;
    }
    SparseGrid grid;
    grid.build(mesh, longest / static_cast<float>(along));
    const SparseGridKDTree nearest(grid);
    const SphereTree surface(mesh);
    std::printf("%zu triangles, %zu voxels with an edge of %g\n", mesh.faces.size(), grid.nodes.size(),
                static_cast<double>(grid.voxel_size()));

    // Probes above the mesh, on a circle, and the voxels nearest to each
    const Vector3f center = (min + max) / 2;
    std::set<std::uint64_t> found;
    std::vector<Vector3f> probes;
    for (int i = 0; i < 5; ++i) {
        const float angle = 2 * std::numbers::pi_v<float> * static_cast<float>(i) / 5;
        probes.emplace_back(center.x() + 0.36f * longest * std::cos(angle),
                            center.y() + 0.36f * longest * std::sin(angle), max.z() + 0.06f * longest);
        std::vector<std::pair<std::uint64_t, float>> hits;
        nearest.closest_nodes_dist(probes.back(), hits);
        for (const auto& hit : hits) {
            found.insert(hit.first);
        }
        std::printf("probe %d: %zu nearest voxels from %.4f on, the surface at %.4f\n", i, hits.size(),
                    static_cast<double>(hits.front().second),
                    static_cast<double>(surface.closestPoint(probes.back())->distance));
    }

    // The picture
    const SphereTree::Sphere bounds = surface.root();
    CubeRenderer left(PANEL, bounds.center, bounds.radius), right(PANEL, bounds.center, bounds.radius);
    left.mesh(mesh, STONE);
    for (const auto& entry : grid.nodes) {
        right.cube(grid.node_center(entry.first), grid.voxel_size(),
                   found.count(entry.first) != 0 ? FOUND : WOOD);
    }
    for (const Vector3f& probe : probes) {
        right.cube(probe, 0.8f * grid.voxel_size(), PROBE);
    }
    examples::Image image(2 * PANEL, PANEL);
    left.copyTo(image, 0);
    right.copyTo(image, PANEL);
    const std::string picture = argc > 3 ? argv[3] : "voxels.png";
    examples::writePng(picture, image);
    std::printf("Wrote %s\n", picture.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
