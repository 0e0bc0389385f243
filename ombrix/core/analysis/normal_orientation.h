#pragma once

#include <cstddef>
#include <vector>

#include <ombrix/core/core_export.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/types.h>

namespace ombrix::core {

/// Turns normals to sides that agree: a normal is negated or stays as it is.
///
/// There must be a normal for every position: `normals` of at least their length, or the cloud's
/// `normals()`.
class OMBRIX_CORE_API NormalOrientation {
public:
    /// Every normal to the side of its point from which `viewpoint` sees it. A normal at a right angle to the
    /// line of sight stays as it is.
    /// Source: Rusu, "Semantic 3D Object Maps for Everyday Manipulation in Human Living Environments", KI 24,
    /// 2010.
    static void towardsViewpoint(const std::vector<Vector3f>& positions, const Vector3f& viewpoint,
                                 std::vector<Vector3f>& normals);
    static void towardsViewpoint(PointCloud& cloud, const Vector3f& viewpoint);

    /// Normals of neighbours to the same side, from one to the next along a minimum spanning tree.
    ///
    /// The graph joins each point to its k nearest others; an edge costs 1 - |n1 . n2|, so that sides are
    /// handed on over the flattest way and across edges last. In each connected part of the graph the normal
    /// of the highest point (greatest z, the first of several) is turned to z >= 0 and decides for the part.
    /// For normals of unit length. Takes 24 bytes a point and neighbour; k of 6 to 16 is usual.
    ///
    /// Source: Hoppe, DeRose, Duchamp, McDonald, Stuetzle, "Surface Reconstruction from Unorganized Points",
    /// SIGGRAPH 1992; tree by Kruskal's algorithm, Proceedings of the AMS 7, 1956.
    static void alongSpanningTree(const std::vector<Vector3f>& positions, std::size_t k,
                                  std::vector<Vector3f>& normals);
    static void alongSpanningTree(PointCloud& cloud, std::size_t k);
};

}  // namespace ombrix::core
