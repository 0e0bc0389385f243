#include <cstdio>

#include <ombrix/core.h>
#include <ombrix/io.h>
#include <ombrix/mesh.h>

int main() {
    ombrix::core::PointCloud cloud;
    for (int i = 0; i < 1000; ++i) {
        ombrix::core::Point point;
        point.position = ombrix::core::Vector3f(float(i % 10), float(i / 10 % 10), float(i / 100));
        point.normal = ombrix::core::Vector3f::UnitZ();
        point.flags = ombrix::core::Point::HAS_NORMAL;
        cloud.normals();
        cloud.push_back(point, false);
    }
    ombrix::core::FullOctreeFactory factory(ombrix::core::Vector3f::Zero(), 10.0f, 16);
    factory.add(cloud);
    ombrix::core::Octree octree;
    factory(octree);

    // The field's type has to be the same one on both sides of the library's border.
    const auto normals = cloud.fields().get<ombrix::core::Vector3f>(ombrix::core::FIELD_NORMAL);
    ombrix::io::writePly("consumer.ply", cloud, ombrix::core::Vector3d::Zero());
    const auto read = ombrix::io::readPoints("consumer.ply");
    ombrix::mesh::TriMesh mesh;
    const bool good = octree.size() == 1000 && normals && normals->size() == 1000 &&
                      read.cloud.size() == 1000 && read.cloud.hasNormals() && mesh.faces.empty();
    std::puts(good ? "consumer: good" : "consumer: bad");
    return good ? 0 : 1;
}
