#include <cmath>
#include <cstdio>

#include <ombrix/core.h>

#include "expect.h"

using namespace ombrix::core;

int main() {
    // A survey in national grid coordinates: a tile of 100 m around (2600050, 1200050), steps of 1 cm
    const Vector3d corner(2'600'000.0, 1'200'000.0, 400.0);
    std::vector<Vector3d> survey;
    survey.reserve(100'000);
    for (int i = 0; i < 100'000; ++i) {
        survey.push_back(corner + Vector3d(i % 10'000, i / 10 * 37 % 10'000, i * 7 % 900) * 0.01);
    }

    // A float cannot hold these
    const float rounded = float(survey[1].x());
    std::printf("%.2f becomes %.2f\n", survey[1].x(), double(rounded));
    expect(std::abs(double(rounded) - survey[1].x()) > 0.005, "a float has 7 digits");

    // Keep positions small, and the shift beside them in double
    const Vector3d shift = corner;
    PointCloud cloud;
    for (const Vector3d& world : survey) {
        Point p;
        p.position = (world - shift).cast<float>();
        cloud.push_back(p, true);
    }

    // One tile: the tree lives in the shifted frame
    FullOctreeFactory tile(cloud.aabb_min(), cloud.aabb_max(), 1000);
    tile.add(cloud);
    Octree tree;
    tile(tree);
    const auto inWorld = [&](const Vector3f& relative) -> Vector3d {
        return shift + tree.origin().cast<double>() + relative.cast<double>();
    };
    const Vector3d back = inWorld(tree.node_pc(tree.first_leaf())->positions().front());
    expect((back - corner).norm() < 200.0, "a point of the tile");

    // Many tiles, each with its own shift, in a frame of the whole survey
    const Vector3d frame(2'600'000.0, 1'200'000.0, 0.0);
    DynamicOctreeFactory growing(1000);
    for (int east = 0; east < 3; ++east) {
        const Vector3d tileShift = shift + Vector3d(100.0 * east, 0.0, 0.0);
        growing.add(cloud, tileShift - frame);
    }
    growing.factory();  // positions of all nodes become relative to the tree's origin
    const auto whole = growing.octree();
    std::printf("%llu points, root cube at (%g, %g, %g) of edge %g\n",
                static_cast<unsigned long long>(whole->size()), double(whole->origin().x()),
                double(whole->origin().y()), double(whole->origin().z()), double(whole->extend()));
    expect(whole->size() + growing.droppedPoints() == 3 * cloud.size(), "every point is accounted for");
    expect(std::abs(growing.pc_aabb().max.x() - 300.0) < 0.1, "three tiles side by side");
}
