// Memory that runs out at any point of any operation: no leak, no crash, and what is left can be used.

#include <sstream>

#include <tbb/global_control.h>

#include <ombrix/core.h>
#include <ombrix/io.h>
#include <ombrix/mesh.h>

#include "tests/faults/failing_new.h"
#include "tests/support/clouds.h"
#include "tests/support/octree_checks.h"
#include "tests/support/temp_path.h"

namespace {

using namespace ombrix;
using namespace ombrix::core;
using ombrix::test::expectEveryAllocationMayFail;
using ombrix::test::TempPath;

/// One worker, so that the n-th allocation is always the same.
class Allocation : public ::testing::Test {
private:
    tbb::global_control limit_{tbb::global_control::max_allowed_parallelism, 1};
};

const auto NOTHING = [](auto&) {};

PointCloud smallCloud(std::size_t n = 60, unsigned int seed = 1) {
    PointCloud cloud = ombrix::test::withAttributes(ombrix::test::uniformPoints(n, 1.0f, seed));
    cloud.fields().addField<float>(FIELD_DISTANCE).first->data() = cloud.scalars();
    return cloud;
}

Octree smallTree() {
    return ombrix::test::fullTree(smallCloud(), 1.0f, 8);
}

/// Small, but of several levels, which buckets of 65536 points would not give.
Octree smallNestedTree() {
    NestedOctreeFactory factory(Vector3f::Zero(), 1.0f);
    for (const std::uint64_t key : {1, 8, 15, 64}) {
        Octree::Node node;
        node.key = key;
        node.children = key == 1 ? 0x81 : 1;
        factory.add_node(node);
    }
    factory.add(smallCloud(200));
    Octree octree;
    factory(octree);
    return octree;
}

void expectEven(const PointCloud& cloud, std::size_t n) {
    EXPECT_EQ(cloud.size(), n);
    EXPECT_EQ(cloud.colors().size(), n);
    EXPECT_EQ(cloud.scalars().size(), n);
    for (const auto& [name, field] : cloud.fields()) {
        EXPECT_EQ(field->size(), n) << name;
    }
}

TEST_F(Allocation, OfPointClouds) {
    struct Clouds {
        PointCloud target = smallCloud(5, 2);
        PointCloud source = smallCloud(40);
    };
    const auto make = [] { return Clouds(); };
    const std::vector<std::uint64_t> indices = {7, 3, 39};
    const auto usable = [&](Clouds& clouds) {
        expectEven(clouds.source, 40);
        clouds.target.clear();
        clouds.target.push_back(clouds.source, false);
        expectEven(clouds.target, 40);
        EXPECT_EQ(clouds.target.normals(), clouds.source.normals());
    };
    const auto expectFor = [&](const char* name, const auto& run) {
        expectEveryAllocationMayFail(name, make, run, usable);
    };
    expectFor("push_back", [](Clouds& c) { c.target.push_back(c.source, false); });
    expectFor("push_back range", [](Clouds& c) { c.target.push_back(c.source, 3, 30, false); });
    expectFor("push_back indices", [&](Clouds& c) { c.target.push_back(c.source, indices, false); });
    expectFor("push_back shifted", [](Clouds& c) { c.target.push_back(c.source, Vector3d(1, 2, 3), false); });
    expectFor("push_back point", [](Clouds& c) { c.target.push_back(c.source.point(3), false); });
    expectFor("reserve", [](Clouds& c) { c.target.reserve(100); });
    expectFor("resize", [](Clouds& c) { c.target.resize(100); });
    expectFor("copyFrom", [](Clouds& c) { c.target.copyFrom(c.source, false); });
    expectFor("copyFrom indices", [&](Clouds& c) { c.target.copyFrom(c.source, indices, false); });
    expectFor("copy", [](Clouds& c) { PointCloud copy(c.source); });
    expectFor("assign", [](Clouds& c) { c.target = c.source; });
    expectEveryAllocationMayFail(
        "new field", make,
        [](Clouds& c) {
            c.target.fields().addField<Vector3d>("another").first->resize(5);
            c.target.fields().detach(FIELD_NORMAL);
        },
        NOTHING);
    expectFor("transform", [](Clouds& c) {
        c.target.transform(Eigen::Transform<double, 3, Eigen::Affine>::Identity());
        c.target.reserve(100);
    });
}

TEST_F(Allocation, OfTheFullBuilder) {
    expectEveryAllocationMayFail(
        "add", [] { return FullOctreeFactory(Vector3f::Zero(), 1.0f, 8); },
        [](FullOctreeFactory& factory) {
            factory.add(smallCloud());
            factory.add(smallCloud(30, 2), Vector3d(0.1, 0, 0));
        },
        [](FullOctreeFactory& factory) {
            Octree octree;
            factory(octree);
            ombrix::test::expectMasksAgree(octree);
        });
    expectEveryAllocationMayFail(
        "build",
        [] {
            FullOctreeFactory factory(Vector3f::Zero(), 1.0f, 8);
            factory.add(smallCloud());
            return factory;
        },
        [](FullOctreeFactory& factory) {
            Octree octree;
            factory(octree);
        },
        [](FullOctreeFactory& factory) {
            Octree octree;
            factory(octree);
            EXPECT_EQ(octree.size(), 60u);
        });
}

TEST_F(Allocation, OfTheNestedBuilder) {
    const auto make = [] {
        NestedOctreeFactory factory(Vector3f::Zero(), 1.0f);
        Octree::Node node;
        node.key = 1;
        node.children = 1;
        factory.add_node(node);
        return factory;
    };
    const auto usable = [](NestedOctreeFactory& factory) {
        const std::uint64_t held = factory.size();
        factory.add(smallCloud(3));
        EXPECT_EQ(factory.size(), held + 3);
        Octree octree;
        factory(octree);
        EXPECT_EQ(octree.size(), held + 3);
        ombrix::test::expectMasksAgree(octree);
    };
    expectEveryAllocationMayFail(
        "add", make, [](NestedOctreeFactory& factory) { factory.add(smallCloud(20)); }, usable);
    expectEveryAllocationMayFail(
        "add points", make,
        [](NestedOctreeFactory& factory) {
            const PointCloud cloud = smallCloud(20);
            for (std::uint64_t i = 0; i < cloud.size(); ++i) {
                factory.add(cloud.point(i));
            }
        },
        usable);
    expectEveryAllocationMayFail(
        "load", make, [](NestedOctreeFactory& factory) { factory.add_node_pc(8 * 8 + 3, smallCloud(20)); },
        usable);
    expectEveryAllocationMayFail(
        "build", make,
        [](NestedOctreeFactory& factory) {
            factory.add(smallCloud(20));
            Octree octree;
            factory(octree);
        },
        usable);
}

TEST_F(Allocation, OfTheDynamicBuilder) {
    struct Builder : DynamicOctreeFactory {
        Builder() : DynamicOctreeFactory(8) {}
    };
    const auto grow = [](auto& factory) {
        factory.add(smallCloud(40));
        factory.add(smallCloud(40, 2), Vector3d(3, 0, 0));
        factory.add(smallCloud(20, 3), Vector3d(-70, 20, 0));
    };
    const auto usable = [](auto& factory) {
        // The tree holds whole points, and takes a cloud that fits
        factory.clear();
        factory.add(smallCloud(40));
        EXPECT_EQ(factory.size(), 40u);
        ombrix::test::expectMasksAgree(*factory.octree(), 20);
        ombrix::test::expectPointsInBoxes(*factory.octree(), 1e-6f);
    };
    const auto make = [] { return DynamicOctreeFactory(8); };
    expectEveryAllocationMayFail("add", make, grow, usable);
    expectEveryAllocationMayFail(
        "convert",
        [&] {
            DynamicOctreeFactory factory(8);
            factory.add(smallCloud(40));
            return factory;
        },
        [](DynamicOctreeFactory& factory) { static_cast<void>(factory.convert()); }, usable);
}

TEST_F(Allocation, OfTreesAndConversions) {
    const auto stillThere = [](Octree& octree) { EXPECT_EQ(octree.size(), 200u); };
    const auto expectFor = [&](const char* name, const auto& run) {
        expectEveryAllocationMayFail(name, smallNestedTree, run, stillThere);
    };
    expectFor("nested to full", [](Octree& nested) {
        Octree full;
        OctreeConverter::nestedOctree2FullOctree(nested, -1, 8, full, false);
    });
    expectFor("partial", [](Octree& nested) {
        Octree full;
        full.copyBox(nested);
        Octree partial;
        OctreeConverter::nestedOctreeNode2PartialFullOctree(nested, 8, full, 8, partial, false);
        OctreeConverter::updateFullOctree(partial, 8, full);
    });
    expectFor("merge front", [](Octree& nested) {
        PointCloud out;
        OctreeConverter::mergeFrontNodeWithAncestors(nested, 8, out, false);
        nested.extractPointCloud(8, 3, out);
        nested.extractUpperPointCloud(64, out);
    });
    expectFor("copy and walk", [](Octree& nested) {
        Octree copy = nested;
        copy.set_hierarchy(nested.keys(), {1, 2, 3});
        static_cast<void>(copy.front(-1));
        static_cast<void>(copy.remove_branch(8));
    });
    expectFor("search", [](Octree& nested) {
        std::vector<Point> found;
        std::vector<std::uint64_t> keys;
        kNNSearch(nested).search(Vector3f(0.5f, 0.5f, 0.5f), -1, 5, found, keys);
    });
    expectFor("select", [](Octree& nested) {
        ViewFrustum frustum(60.0f, 60.0f);
        frustum.setIntrinsics(60.0f, 1.0f);
        frustum.setPixelSize(500, 500);
        frustum.setClipPlane(0.01f, 100.0f);
        ViewFrustum::Pose pose = ViewFrustum::Pose::Identity();
        pose.translation() = Vector3f(0.5f, 0.5f, -2.0f);
        frustum.setPosition(pose);
        Visibility visibility(nested);
        EXPECT_GT(visibility.update(frustum, 1000000, 0.0f), 0u);
        visibility.buildHierarchy(false);
    });
    expectFor("normals of a tree", [](Octree& nested) { NormalEstimator::compute(nested, 5, 21); });
    expectEveryAllocationMayFail(
        "full to nested", smallTree,
        [](Octree& full) {
            Octree nested;
            OctreeConverter::fullOctreeToNestedOctree(full, nested);
        },
        [](Octree& full) { EXPECT_EQ(full.size(), 60u); });
}

TEST_F(Allocation, OfAnalyses) {
    const auto stillThere = [](PointCloud& cloud) { expectEven(cloud, 60); };
    const auto expectFor = [&](const char* name, const auto& run) {
        expectEveryAllocationMayFail(
            name, [] { return smallCloud(); }, run, stillThere);
    };
    expectFor("tree", [](PointCloud& cloud) {
        KDTree tree(cloud);
        const KDTree copy = tree;
        std::vector<std::size_t> indices;
        std::vector<float> distances;
        copy.knnSearch(Vector3f::Zero(), 5, indices, distances);
        static_cast<void>(copy.radiusSearch(Vector3f::Zero(), 1.0f));
    });
    expectFor("normals", [](PointCloud& cloud) { NormalEstimator::compute(cloud, 5); });
    expectFor("orientation", [](PointCloud& cloud) { NormalOrientation::alongSpanningTree(cloud, 5); });
    expectFor("density", [](PointCloud& cloud) {
        const KDTree tree(cloud);
        Density density;
        density.approximateDensity(cloud.positions(), tree);
        density.surfaceDensity_omp(cloud.positions(), tree, 0.2f);
        density.volumeDensity(cloud.positions(), tree, 0.2f);
    });
    expectFor("statistics", [](PointCloud& cloud) {
        static_cast<void>(ResolutionEstimator::statistical_mean_dist(cloud.positions(), 4));
        static_cast<void>(StatisticalOutliers::find(cloud.positions(), 4, 1.0f));
    });
    expectFor("projection", [](PointCloud& cloud) {
        const KDTree tree(cloud);
        static_cast<void>(QuasiMLS(cloud.positions(), tree).projection(Vector3f(0.5f, 0.5f, 0.5f), 8));
    });
    expectFor("merge", [](PointCloud& cloud) {
        for (const bool averaging : {false, true}) {
            Merge merge(0.25f);
            merge.setAveraging(averaging);
            merge.add(cloud, Vector3d::Zero());
            merge.add(cloud, Vector3d(0.1, 0, 0));
            PointCloud out;
            std::vector<Merge::Source> sources;
            merge.result(out, sources);
        }
    });
    expectFor("linear octree", [](PointCloud& cloud) {
        const PointCloudMorton morton(cloud, Vector3f::Zero(), 1.0f);
        static_cast<void>(morton.keys(4));
        static_cast<void>(morton.pairs());
    });
}

TEST_F(Allocation, OfColorMaps) {
    expectEveryAllocationMayFail(
        "colours",
        [] {
            return ColorMap(0.0f, 1.0f, {0, 0, 0}, {1, 1, 1});
        },
        [](ColorMap& map) {
            map.insert({0.5f, {1, 0, 0}}, true);
            map.set_colors(VIRIDIS);
        },
        [](ColorMap& map) {
            map.set_colors(GRAY);
            EXPECT_EQ(map.color(1023).r, 1.0f);
        });
}

TEST_F(Allocation, OfMeshes) {
    const std::string text =
        "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0.5\nvn 0 0 1\nf 1//1 2//1 3//1 4//1\nf 1 2 9\n";
    const TempPath file(text);
    const TempPath out;
    const auto empty = [] { return mesh::TriMesh(); };
    expectEveryAllocationMayFail(
        "plain reading", empty, [&](mesh::TriMesh& mesh) { mesh.readOBJ(file.str()); },
        [&](mesh::TriMesh& mesh) {
            mesh.clear();
            mesh.readOBJ(file.str());
            EXPECT_EQ(mesh.vertices.size(), 4u);
        });
    expectEveryAllocationMayFail(
        "reading", empty, [&](mesh::TriMesh& mesh) { static_cast<void>(mesh.readOBJ(file.str(), {})); },
        [](mesh::TriMesh& mesh) { EXPECT_TRUE(mesh.vertices.empty() && mesh.faces.empty()) << "unchanged"; });

    const auto full = [&] {
        mesh::TriMesh mesh;
        EXPECT_TRUE(mesh.readOBJ(file.str(), {}).ok());
        return mesh;
    };
    const auto whole = [](mesh::TriMesh& mesh) { EXPECT_EQ(mesh.faces.size(), 2u); };
    expectEveryAllocationMayFail(
        "writing", full, [&](mesh::TriMesh& mesh) { static_cast<void>(mesh.writeOBJ(out.str(), {})); },
        whole);
    expectEveryAllocationMayFail(
        "normals", full,
        [](mesh::TriMesh& mesh) {
            mesh.normals.clear();
            mesh.normals.shrink_to_fit();
            mesh.evaluateVertexNormals();
        },
        whole);
    expectEveryAllocationMayFail(
        "voxels", full,
        [](mesh::TriMesh& mesh) {
            mesh::SparseGrid grid;
            grid.build(mesh, 0.25f);
            const mesh::SparseGridKDTree tree(grid);
            std::vector<std::pair<std::uint64_t, float>> found;
            tree.closest_nodes_dist(Vector3f::Zero(), found);
        },
        whole);
    expectEveryAllocationMayFail(
        "spheres", full,
        [](mesh::TriMesh& mesh) {
            const mesh::SphereTree tree(mesh, 1);
            std::vector<std::uint32_t> faces;
            tree.overlappingFaces(Vector3f::Zero(), 10.0f, faces);
            EXPECT_TRUE(tree.closestPoint(Vector3f::Zero()).has_value());
        },
        whole);
}

TEST_F(Allocation, OfPointFiles) {
    const TempPath folder;
    std::filesystem::create_directories(folder.str());
    const auto path = [&](const char* name) { return std::filesystem::path(folder.str()) / name; };
    const auto cloud = [] { return smallCloud(10); };
    const auto whole = [](PointCloud& written) { expectEven(written, 10); };
    for (const char* name : {"a.ply", "a.las"}) {
        expectEveryAllocationMayFail(
            name, cloud,
            [&](PointCloud& written) {
                std::string(name) == "a.ply" ? io::writePly(path(name), written)
                                             : io::writeLas(path(name), written);
            },
            whole);
    }
    std::ofstream(path("a.csv")) << "x,y,z,red,green,blue,label\n1,2,3,4,5,6,7\n8,9,10,11,12,13,14\n";
    std::ofstream(path("a.obj")) << "v 1 2 3 0.5 0.5 1\nv 4 5 6 1 1 1\n";
    for (const char* name : {"a.ply", "a.las", "a.csv", "a.obj"}) {
        expectEveryAllocationMayFail(
            name, [] { return io::ReadOptions(); },
            [&](io::ReadOptions& options) {
                EXPECT_GT(io::readPoints(path(name), options).cloud.size(), 1u);
            },
            NOTHING);
    }
}

TEST_F(Allocation, OfMappedFilesAndProgress) {
    const TempPath file(std::string(5000, 'x'));
    expectEveryAllocationMayFail(
        "mapping", [] { return MemoryMapped(); },
        [&](MemoryMapped& mapped) {
            mapped = MemoryMapped(file.str() + std::string());
            EXPECT_TRUE(mapped.isValid());
        },
        [&](MemoryMapped& mapped) {
            EXPECT_TRUE(mapped.open(file.str()));
            EXPECT_EQ(mapped.at(4999), 'x');
        });
}

}  // namespace
