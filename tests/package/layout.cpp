#include "layout.h"

#include <cstddef>
#include <sstream>

#include <ombrix/core.h>
#include <ombrix/io.h>
#include <ombrix/mesh.h>

namespace ombrix::tests {

using namespace ombrix::core;
using namespace ombrix::mesh;

namespace {

/// Writes lines like "Point size 64 align 8: index 0, position 8".
class Sheet {
public:
    template <class T>
    Sheet& type(const char* name) {
        out_ << (first_ ? "" : "\n") << name << " size " << sizeof(T) << " align " << alignof(T);
        first_ = false;
        separator_ = ": ";
        return *this;
    }
    void member(const char* name, std::size_t offset) {
        out_ << separator_ << name << ' ' << offset;
        separator_ = ", ";
    }
    [[nodiscard]] std::string text() const { return out_.str() + '\n'; }

private:
    std::ostringstream out_;
    bool first_ = true;
    const char* separator_ = "";
};

// Offsets in types that are not standard-layout (a vector holds pointers): well defined on the compilers
// that are supported.
#if defined(__GNUC__)
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
#endif
#define TYPE(T) sheet.type<T>(#T)
#define MEMBER(T, m) sheet.member(#m, offsetof(T, m))

void layOutColorsAndPoints(Sheet& sheet) {
    TYPE(ColorRGB), MEMBER(ColorRGB, g), MEMBER(ColorRGB, b);
    TYPE(ColorRGBA), MEMBER(ColorRGBA, a);
    TYPE(ColorRGB_16), MEMBER(ColorRGB_16, b);
    TYPE(ColorRGB_565), MEMBER(ColorRGB_565, value);
    TYPE(ColorRGB_F), MEMBER(ColorRGB_F, b);
    TYPE(ColorHSV), MEMBER(ColorHSV, v);
    TYPE(ColorLab), MEMBER(ColorLab, b);
    TYPE(ColorMap::Element), MEMBER(ColorMap::Element, color);
    TYPE(ColorMap);
    TYPE(Vector3f), TYPE(Vector3d);
    TYPE(Point), MEMBER(Point, index), MEMBER(Point, position), MEMBER(Point, color), MEMBER(Point, scalar),
        MEMBER(Point, normal), MEMBER(Point, distance), MEMBER(Point, ambient), MEMBER(Point, flags);
    TYPE(Pointd), MEMBER(Pointd, index), MEMBER(Pointd, position), MEMBER(Pointd, color),
        MEMBER(Pointd, scalar), MEMBER(Pointd, normal), MEMBER(Pointd, distance), MEMBER(Pointd, ambient),
        MEMBER(Pointd, flags);
    TYPE(FieldType), MEMBER(FieldType, name), MEMBER(FieldType, description), MEMBER(FieldType, components);
    TYPE(FieldArray<float>), TYPE(FieldArray<Vector3f>), TYPE(FieldArray<Vector3d>);
    TYPE(FieldContainer), TYPE(PointCloud);
}

void layOutOctrees(Sheet& sheet) {
    TYPE(morton3d<std::uint64_t>), MEMBER(morton3d<std::uint64_t>, key);
    TYPE(core::Aabb), MEMBER(core::Aabb, min), MEMBER(core::Aabb, max);
    TYPE(Octree::Node), MEMBER(Octree::Node, key), MEMBER(Octree::Node, size), MEMBER(Octree::Node, pc),
        MEMBER(Octree::Node, compressed), MEMBER(Octree::Node, children), MEMBER(Octree::Node, flags);
    TYPE(Octree::Aabb), MEMBER(Octree::Aabb, center), MEMBER(Octree::Aabb, radius);
    TYPE(Octree), TYPE(OctreeFactory), TYPE(FullOctreeFactory), TYPE(NestedOctreeFactory);
    TYPE(NestedOctreeFactory::Node), MEMBER(NestedOctreeFactory::Node, key),
        MEMBER(NestedOctreeFactory::Node, children), MEMBER(NestedOctreeFactory::Node, expanded),
        MEMBER(NestedOctreeFactory::Node, flag), MEMBER(NestedOctreeFactory::Node, pointCount),
        MEMBER(NestedOctreeFactory::Node, grid), MEMBER(NestedOctreeFactory::Node, points);
    TYPE(CellMap), TYPE(CellMap::value_type), TYPE(DynamicOctreeFactory);
    TYPE(OctreeConverter::NodeChunk), MEMBER(OctreeConverter::NodeChunk, first),
        MEMBER(OctreeConverter::NodeChunk, last), MEMBER(OctreeConverter::NodeChunk, key),
        MEMBER(OctreeConverter::NodeChunk, depth);
    TYPE(kNNSearch), TYPE(Merge), TYPE(PointCloudMorton);
    TYPE(Merge::Source), MEMBER(Merge::Source, cloud), MEMBER(Merge::Source, index);
}

void layOutTheRest(Sheet& sheet) {
    TYPE(ViewFrustum), TYPE(Visibility);
    TYPE(Visibility::HNode), MEMBER(Visibility::HNode, key), MEMBER(Visibility::HNode, childMask),
        MEMBER(Visibility::HNode, childOffset);
    TYPE(FrameSelection), TYPE(OctreeQuery), TYPE(WorkContext), MEMBER(WorkContext, progress),
        MEMBER(WorkContext, arena);
    TYPE(PickBeam), MEMBER(PickBeam, direction), MEMBER(PickBeam, radius), MEMBER(PickBeam, slope),
        MEMBER(PickBeam, minDepth), MEMBER(PickBeam, maxDepth), MEMBER(PickBeam, clip);
    TYPE(PickedPoint), MEMBER(PickedPoint, index), MEMBER(PickedPoint, position), MEMBER(PickedPoint, depth),
        MEMBER(PickedPoint, offset);
    TYPE(PickResult), MEMBER(PickResult, point), MEMBER(PickResult, missing);
    TYPE(NodePoints), MEMBER(NodePoints, indices);
    TYPE(RegionResult), MEMBER(RegionResult, count), MEMBER(RegionResult, missing);
    TYPE(KDTree), TYPE(PCA), TYPE(EigenPCA), TYPE(Curvature), TYPE(Density), TYPE(QuasiMLS);
    TYPE(MemoryMapped), TYPE(ProgressBar), TYPE(PointProgressBar);
    TYPE(Progress), MEMBER(Progress, text), MEMBER(Progress, current), MEMBER(Progress, total),
        MEMBER(Progress, code), MEMBER(Progress, flag);
    TYPE(Face), TYPE(Triangle), MEMBER(Triangle, vertices), MEMBER(Triangle, normals);
    TYPE(TriMesh), MEMBER(TriMesh, vertices), MEMBER(TriMesh, normals), MEMBER(TriMesh, faces);
    TYPE(SparseGrid), MEMBER(SparseGrid, voxel), MEMBER(SparseGrid, origin), MEMBER(SparseGrid, nodes);
    TYPE(SparseGrid::Node), TYPE(SparseGridKDTree), TYPE(SphereTree);
    TYPE(SphereTree::Sphere), MEMBER(SphereTree::Sphere, radius);
    TYPE(SphereTree::ClosestPoint), MEMBER(SphereTree::ClosestPoint, point),
        MEMBER(SphereTree::ClosestPoint, distance);
    TYPE(SphereTree::RayHit), MEMBER(SphereTree::RayHit, t), MEMBER(SphereTree::RayHit, u),
        MEMBER(SphereTree::RayHit, v);
    TYPE(ObjReadOptions), MEMBER(ObjReadOptions, normals);
    TYPE(ObjReadResult), MEMBER(ObjReadResult, lines), MEMBER(ObjReadResult, firstProblemLine);
    TYPE(ObjWriteOptions), MEMBER(ObjWriteOptions, significantDigits);
    TYPE(ObjWriteResult), MEMBER(ObjWriteResult, bytes);
    TYPE(io::ReadOptions), TYPE(io::Error), TYPE(io::Stopped);
    TYPE(io::PointFile), MEMBER(io::PointFile, cloud), MEMBER(io::PointFile, shift),
        MEMBER(io::PointFile, hasColors);
}

}  // namespace

std::string layouts() {
    Sheet sheet;
    layOutColorsAndPoints(sheet);
    layOutOctrees(sheet);
    layOutTheRest(sheet);
    return sheet.text();
}

std::string results() {
    std::ostringstream out;
    out << std::hexfloat;

    // Coordinates that are exact in every arithmetic, so that only the library can tell results apart
    PointCloud cloud;
    cloud.normals();
    for (int i = 0; i < 20000; ++i) {
        Point point;
        point.position = Vector3f(float(i * 37 % 1000), float(i * 91 % 777), float(i * 13 % 501)) * 0.25f;
        point.normal = Vector3f::UnitZ();
        point.flags = Point::HAS_NORMAL;
        cloud.push_back(point, false);
    }
    Eigen::Transform<double, 3, Eigen::Affine> turn = Eigen::Transform<double, 3, Eigen::Affine>::Identity();
    turn.linear() << 0.0, -1.0, 0.0, 1.0, 0.0, 0.0, 0.0, 0.0, 1.0;
    turn.translation() << 200.0, 0.5, -0.25;
    cloud.transform(turn);
    for (std::size_t i = 0; i < cloud.size(); i += 997) {
        out << cloud.positions()[i].transpose() << ' ' << cloud.normals()[i].transpose() << '\n';
    }

    FullOctreeFactory factory(cloud.aabb_min(), cloud.aabb_max(), 100);
    factory.add(cloud);
    Octree tree;
    factory(tree);

    ViewFrustum camera;
    camera.setIntrinsics(60.0f, 1.5f);
    camera.setPixelSize(1000, 1500);
    camera.setClipPlane(1.0f, 2000.0f);
    ViewFrustum::Pose pose(Eigen::Translation3f(100.0f, 90.0f, -150.0f));
    pose.linear() << 1.0f, 0.0f, 0.0f, 0.0f, 0.8f, -0.6f, 0.0f, 0.6f, 0.8f;
    camera.setPosition(pose);
    out << camera.getPosition().matrix() << '\n' << camera.slope() << ' ' << camera.hFov() << '\n';
    Visibility visibility(tree);
    out << visibility.update(camera, 5000, 1.0f) << '\n';
    visibility.buildHierarchy(false);
    for (const Visibility::HNode& node : visibility.getHierarchy()) {
        out << node.key << ' ' << node.childMask << ' ' << node.childOffset << '\n';
    }

    kNNSearch search(tree);
    std::vector<Point> nearest;
    search.search(Vector3f(50.0f, 60.0f, 70.0f), -1, 20, nearest);
    EigenPCA axes;
    std::vector<Vector3f> positions;
    for (const Point& point : nearest) {
        out << point.index << ' ' << point.position.transpose() << ' ' << int(point.flags) << '\n';
        positions.push_back(point.position);
    }
    axes.compute(positions);
    out << axes.eigenValues().transpose() << '\n' << axes.eigenVectors() << '\n';
    return out.str();
}

}  // namespace ombrix::tests
