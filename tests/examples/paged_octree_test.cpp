#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <ombrix/core/octree/nested_octree_factory.h>

#include "examples/paged_octree/paged_octree.h"
#include "tests/support/clouds.h"
#include "tests/support/octree_checks.h"

namespace {

using namespace ombrix::core;
using ombrix::test::rowsOf;
using paged::PagedOctree;

constexpr float EDGE = 100.0f;

/// A page file's path that is free, and freed again.
class PagedOctreeTest : public testing::Test {
protected:
    const std::string path_ =
        testing::TempDir() + testing::UnitTest::GetInstance()->current_test_info()->name() + ".pages";
    ~PagedOctreeTest() override { std::filesystem::remove(path_); }
};

PointCloud gathered(PagedOctree& octree) {
    PointCloud all;
    octree.extractPointCloud(1, Octree::MAX_DEPTH, all);
    return all;
}

TEST_F(PagedOctreeTest, TenTimesTheBoundComesBackWhole) {
    constexpr std::size_t BOUND = 2;
    PointCloud cloud = ombrix::test::withAttributes(ombrix::test::uniformPoints(400'000, EDGE));
    for (Vector3f& p : cloud.positions()) {
        p.z() *= 0.01f;  // a thin sheet, for many nodes
    }
    cloud.normals() = cloud.positions();

    PagedOctree octree(path_, BOUND);
    NestedOctreeFactory factory(Vector3f::Zero(), EDGE);
    factory.add(cloud);
    factory(octree);
    ASSERT_GE(octree.keyCount(), 10 * BOUND);
    EXPECT_EQ(octree.size(), cloud.size());
    ombrix::test::expectMasksAgree(octree);

    const PointCloud back = gathered(octree);
    EXPECT_EQ(rowsOf(back), rowsOf(cloud));
    EXPECT_EQ(back.normals(), back.positions());
    EXPECT_EQ(octree.mostHeld(), BOUND);
    const auto inMemory = std::count_if(octree.nodes().begin(), octree.nodes().end(),
                                        [](const auto& entry) { return entry.second.pc != nullptr; });
    EXPECT_LE(inMemory, static_cast<std::ptrdiff_t>(BOUND));

    // More points into the same nodes, of which most are in the file
    factory.add(cloud);
    factory(octree);
    EXPECT_EQ(octree.size(), 2 * cloud.size());
    PointCloud twice = cloud;
    twice.push_back(cloud, true);
    EXPECT_EQ(rowsOf(gathered(octree)), rowsOf(twice));
    EXPECT_EQ(octree.mostHeld(), BOUND);
}

TEST_F(PagedOctreeTest, FinalizeWritesAndReleasesASubTree) {
    PagedOctree octree(path_, 100);
    NestedOctreeFactory factory(Vector3f::Zero(), EDGE);
    factory.add(ombrix::test::withAttributes(ombrix::test::uniformPoints(100'000, EDGE)));
    factory(octree);
    ASSERT_GT(octree.keyCount(), 1u);
    const std::size_t before = octree.held();
    octree.finalize(false, 1);
    EXPECT_EQ(octree.held(), before);
    EXPECT_EQ(octree.pagesWritten(), before);
    octree.finalize(true, 1);
    EXPECT_EQ(octree.held(), 0u);
    EXPECT_EQ(octree.pagesWritten(), before);
    EXPECT_EQ(octree.size(), 100'000u);

    octree.clear_node(1);
    EXPECT_EQ(octree.node_pc(1), nullptr);
}

TEST_F(PagedOctreeTest, SaysWhichFileFails) {
    const auto expectNamed = [](const std::string& name, const auto& call) {
        try {
            call();
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::runtime_error& error) {
            EXPECT_NE(std::string(error.what()).find(name), std::string::npos) << error.what();
        }
    };
    expectNamed("/no/such/folder", [] { PagedOctree("/no/such/folder/pages", 1); });

    PagedOctree octree(path_, 1);
    octree.add_node(1).pc = std::make_shared<PointCloud>();
    octree.node(1).pc->positions().assign(100, Vector3f::Zero());
    octree.finalize(true, 1);
    std::filesystem::resize_file(path_, 50);
    expectNamed(path_, [&] { static_cast<void>(octree.node_pc(1)); });
    EXPECT_EQ(octree.node(1).size, 100u);
}

}  // namespace
