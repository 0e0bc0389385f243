#include <ombrix/mesh/sparse_grid.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>

#include <ombrix/core/checked_lookup_detail.h>
#include <ombrix/core/octree/morton.h>
#include <ombrix/mesh/triangle_box_detail.h>
#include <ombrix/mesh/valid_faces_detail.h>

namespace ombrix::mesh {

namespace {

using core::Vector3d;

/// Cut towards zero; 0 for NaN, and the nearest integer there is beyond the range.
std::int32_t truncated(double value) {
    constexpr double LOW = std::numeric_limits<std::int32_t>::min();
    constexpr double HIGH = std::numeric_limits<std::int32_t>::max();
    return std::isnan(value) ? 0 : static_cast<std::int32_t>(std::clamp(value, LOW, HIGH));
}

std::uint64_t voxelKey(std::int32_t i, std::int32_t j, std::int32_t k) {
    const core::morton3d<std::uint64_t> code(static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(j),
                                             static_cast<std::uint32_t>(k));
    // Three bytes of z are interleaved: its bit 21 still has room in the topmost bit.
    return code.key | static_cast<std::uint64_t>(static_cast<std::uint32_t>(k) >> 21 & 1u) << 63;
}

/// A coordinate of a corner in the grid. One that is the nearest float to a voxel face lies on the face:
/// rounding must not decide on which side.
struct GridCoordinate {
    double offset;    ///< from the grid's origin
    double position;  ///< in voxels, whole on a face

    GridCoordinate(float coordinate, double origin, double voxel)
        : offset(coordinate - origin), position(offset / voxel) {
        const double face = std::round(position);
        if (static_cast<float>(origin + face * voxel) == coordinate) {
            offset = face * voxel;
            position = face;
        }
    }
};

/// First and last voxel along one axis between two positions; a face belongs to the voxels on both sides.
struct VoxelRange {
    std::int32_t first, last;

    VoxelRange(double min, double max)
        : first(std::max(truncated(min == std::round(min) ? min - 1 : min), 0)),
          last(std::max(truncated(max), 0)) {}

    [[nodiscard]] double count() const { return static_cast<double>(last) - first + 1; }
};

/// Lower corner of the finite coordinates.
Vector3f finiteMin(const TriMesh& mesh) {
    Vector3f min = Vector3f::Constant(std::numeric_limits<float>::max());
    for (const Vector3f& vertex : mesh.vertices) {
        for (int axis = 0; axis < 3; ++axis) {
            if (std::isfinite(vertex[axis]) && vertex[axis] < min[axis]) {
                min[axis] = vertex[axis];
            }
        }
    }
    return min;
}

/// Calls visit(i, j, k) for every voxel that a triangle touches.
template <class Visit>
void forEachVoxel(const Triangle& triangle, const Vector3d& origin, double voxel, Visit&& visit) {
    Vector3d corners[3];
    Vector3d positions[3];
    for (int i = 0; i < 3; ++i) {
        for (int axis = 0; axis < 3; ++axis) {
            const GridCoordinate c(triangle.vertices[i][axis], origin[axis], voxel);
            corners[i][axis] = c.offset;
            positions[i][axis] = c.position;
        }
    }
    const Vector3d min = positions[0].cwiseMin(positions[1]).cwiseMin(positions[2]);
    const Vector3d max = positions[0].cwiseMax(positions[1]).cwiseMax(positions[2]);
    const VoxelRange x(min.x(), max.x());
    const VoxelRange y(min.y(), max.y());
    const VoxelRange z(min.z(), max.z());
    // More than any memory holds: infinite for all that a caller sees.
    constexpr double MAX_VOXELS = 0x1p40;
    if (std::max({x.count() * y.count(), y.count() * z.count(), z.count() * x.count()}) > MAX_VOXELS) {
        return;
    }
    if (x.first == x.last && y.first == y.last && z.first == z.last) {
        visit(x.first, y.first, z.first);
        return;
    }

    const detail::TriangleCubes cubes(corners, voxel * 0.5 + double{FLT_EPSILON});
    const auto center = [&](std::int64_t index) { return (static_cast<double>(index) + 0.5) * voxel; };
    for (std::int64_t i = x.first; i <= x.last; ++i) {
        for (std::int64_t j = y.first; j <= y.last; ++j) {
            if (!cubes.overlapsColumn(center(i), center(j))) {
                continue;
            }
            double low = center(z.first), high = center(z.last);
            cubes.clipColumn(center(i), center(j), low, high);
            // One more on either side, for the rounding of the clipped range.
            const std::int64_t first = std::max(truncated(low / voxel - 1), z.first);
            const std::int64_t last = std::min(truncated(high / voxel + 1), z.last);
            for (std::int64_t k = first; k <= last; ++k) {
                if (cubes.overlapsInColumn({center(i), center(j), center(k)})) {
                    visit(static_cast<std::int32_t>(i), static_cast<std::int32_t>(j),
                          static_cast<std::int32_t>(k));
                }
            }
        }
    }
}

}  // namespace

void SparseGrid::build(const TriMesh& mesh, float voxelSize) {
    origin = finiteMin(mesh);
    voxel = voxelSize;
    if (!(voxel > 0) || !std::isfinite(voxel)) {
        return;
    }
    const Vector3d corner = origin.cast<double>();
    // Neighbouring faces mostly touch the voxel of the one before.
    std::uint64_t lastKey = 0;
    Node* last = nullptr;
    for (const Face& face : mesh.faces) {
        if (!detail::isUsable(mesh, face)) {
            continue;
        }
        const Triangle triangle = mesh.make_triangle(face);
        forEachVoxel(triangle, corner, voxel, [&](std::int32_t i, std::int32_t j, std::int32_t k) {
            const std::uint64_t key = voxelKey(i, j, k);
            if (last == nullptr || key != lastKey) {
                last = &nodes[key];
                lastKey = key;
            }
            last->triangles.push_back(triangle);
        });
    }
}

void SparseGrid::clear() {
    nodes.clear();
}

std::uint64_t SparseGrid::key(const Vector3f& p) const {
    const Vector3f position = (p - origin) / voxel;
    return voxelKey(truncated(position.x()), truncated(position.y()), truncated(position.z()));
}

bool SparseGrid::count(std::uint64_t key) const {
    return nodes.find(key) != nodes.end();
}

const SparseGrid::Node& SparseGrid::node(std::uint64_t key) const {
    return core::detail::checkedLookup(nodes, key);
}

Vector3f SparseGrid::node_center(std::uint64_t key) const {
    Vector3f cell;
    core::morton3d<std::uint64_t>(key).decode(cell.x(), cell.y(), cell.z());
    return (cell.array() + 0.5f) * voxel + origin.array();
}

}  // namespace ombrix::mesh
