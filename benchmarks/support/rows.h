#pragma once

#include "benchmarks/support/measure.h"

namespace ombrix::benchmarks {

// What all libraries of a row are asked for.
inline constexpr unsigned int LEAF_CAPACITY = 128;
inline constexpr unsigned int NEIGHBOURS = 16;  ///< the point itself among them
inline constexpr std::size_t SINGLE_QUERIES = 200'000;

/// All points are in leaves of at most the capacity.
inline Answer leafAnswer(std::uint64_t points, std::uint64_t largestLeaf) {
    return {static_cast<double>(points), largestLeaf <= LEAF_CAPACITY ? 1.0 : 0.0};
}

/// The rows of the performance page; what each answers with is said beside it.
namespace rows {

constexpr double SINGLE = 1e-4;  // sums and means of floats, in another order

// Trees
inline constexpr Row FULL_OCTREE{"full_octree"};      ///< points in leaves, whether all leaves keep the rule
inline constexpr Row NESTED_OCTREE{"nested_octree"};  ///< points
inline constexpr Row DYNAMIC_OCTREE{"dynamic_octree"};    ///< points, lost ones counted
inline constexpr Row KDTREE_BUILD{"kdtree_build", 1e-6};  ///< squared distances of sampled points' neighbours

// Neighbourhoods
inline constexpr Row KNN_QUERIES{"knn16_queries", 1e-6};        ///< sum of squared distances to the last
inline constexpr Row KNN_PASS{"knn16_pass", SINGLE};            ///< mean of all distances
inline constexpr Row RADIUS_LISTS{"radius_lists", 1e-6};        ///< neighbours found in all
inline constexpr Row DENSITY{"surface_density", 0.0, 1e-3};     ///< neighbours of sampled points
inline constexpr Row NEAREST{"mean_nearest_distance", SINGLE};  ///< the mean
inline constexpr Row NORMALS{"normals16", 2e-2, 2e-2};          ///< n nᵀ of sampled points

// Clouds and files
inline constexpr Row GRID_MEAN{"grid_merge_mean", 2e-2};  ///< number of cells
inline constexpr Row GRID_PICK{"grid_merge_pick", 2e-2};  ///< number of cells
inline constexpr Row READ_PLY{"ply_read", SINGLE};        ///< points, means of coordinates

// Meshes
inline constexpr Row READ_OBJ{"obj_read", SINGLE, 0.0, 1'000'000};  ///< vertices, faces, means of coordinates
inline constexpr Row WRITE_OBJ{"obj_write", SINGLE, 0.0,
                               1'000'000};                         ///< the same of the file when read again
inline constexpr Row VOXELS{"mesh_voxels", 5e-3, 0.0, 1'000'000};  ///< occupied voxels
inline constexpr Row SMALL_VOXELS{"small_mesh_voxels", 1e-2, 0.0, 10'000};  ///< occupied voxels

// The machine's limits
inline constexpr Row HASH{"hash64"};
inline constexpr Row MORTON{"morton_codes"};

}  // namespace rows

}  // namespace ombrix::benchmarks
