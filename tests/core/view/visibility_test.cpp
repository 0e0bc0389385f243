#include <map>
#include <set>

#include <gtest/gtest.h>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/view/visibility.h>

#include "tests/core/view/scenes.h"
#include "tests/support/expect_throw.h"

namespace {

using namespace ombrix::core;
using ombrix::test::Keys;
using ombrix::test::randomCamera;
using ombrix::test::randomTree;

/// Makes the protected operations callable.
struct OpenVisibility : Visibility {
    using Visibility::getVisibleDepth;
    using Visibility::projectedSize;
    using Visibility::Visibility;
};

std::uint64_t pointsOf(const Octree::Node& node) {
    return node.pc ? node.pc->size() : node.size;
}

/// The selection rule in plain words: of all nodes whose parent is selected and that are large enough, take
/// the largest, until the budget is reached. Candidates are searched anew each time.
Keys selectPlainly(const Octree& octree, const std::map<std::uint64_t, float>& sizes, std::uint64_t budget,
                   float minSize) {
    Keys selected;
    std::set<std::uint64_t> taken;
    for (std::uint64_t count = 0; count < budget;) {
        std::uint64_t best = 0;
        float bestSize = minSize;
        for (const auto& [key, size] : sizes) {
            const bool open = key == 1 || taken.count(key >> 3) != 0;
            if (open && taken.count(key) == 0 && size > bestSize) {
                best = key;
                bestSize = size;
            }
        }
        if (best == 0) {
            break;
        }
        taken.insert(best);
        selected.push_back(best);
        count += pointsOf(octree.node(best));
    }
    return selected;
}

TEST(VisibilitySelection, AgreesWithAPlainRestatement) {
    for (const unsigned int seed : {1u, 2u, 4u, 5u, 7u, 8u, 10u, 11u}) {  // perspective: no equal sizes
        Octree octree = randomTree(seed, 300);
        const ViewFrustum frustum = randomCamera(seed);
        OpenVisibility visibility(octree);
        std::map<std::uint64_t, float> sizes;
        for (const auto& [key, node] : octree.nodes()) {
            sizes[key] = visibility.projectedSize(frustum, node);
        }
        for (const std::uint64_t budget : {0u, 1u, 500u, 3000u, 1000000u}) {
            for (const float minSize : {0.0f, 20.0f, 1e6f}) {
                const Keys expected = selectPlainly(octree, sizes, budget, minSize);
                std::uint64_t points = 0;
                for (const std::uint64_t key : expected) {
                    points += pointsOf(octree.node(key));
                }
                EXPECT_EQ(visibility.update(frustum, budget, minSize), points);
                ASSERT_EQ(visibility.getVisibleNodeKeys(), expected) << "seed " << seed;
                const std::set<std::uint64_t> flagged(expected.begin(), expected.end());
                for (const auto& [key, node] : octree.nodes()) {
                    EXPECT_EQ((node.flags & 2) != 0, flagged.count(key) != 0);
                }
            }
        }
    }
}

TEST(VisibilityProjectedSize, FollowsTheFormulasOfBothProjections) {
    Octree octree;
    octree.setOriginTop(Vector3f(0, 0, 0), Vector3f(8, 8, 8));
    octree.add_node(1);
    OpenVisibility visibility(octree);
    ViewFrustum frustum;
    frustum.setIntrinsics(90.0f, 1.0f);
    frustum.setPixelSize(800, 800);
    frustum.setClipPlane(0.1f, 1000.0f);
    ViewFrustum::Pose pose = ViewFrustum::Pose::Identity();
    pose.translation() = Vector3f(4, 1, -36);  // 40 away along z, 3 below the centre
    frustum.setPosition(pose);
    const double radius = 4.0 * std::sqrt(3.0);
    EXPECT_NEAR(visibility.projectedSize(frustum, octree.node(1)), 400.0 * radius / std::hypot(40.0, 3.0),
                1e-3);
    frustum.setOrthographic(true);
    frustum.setOrthographicSize(77.0f);
    EXPECT_NEAR(visibility.projectedSize(frustum, octree.node(1)), 400.0 * radius / 40.0, 1e-3)
        << "depth along the axis, whatever the orthographic size";
    pose.translation() = Vector3f(4, 4, 50);
    frustum.setPosition(pose);
    EXPECT_EQ(visibility.projectedSize(frustum, octree.node(1)), 0.0f) << "behind the camera";
    EXPECT_EQ(visibility.update(frustum, 100, 0.0f), 0u) << "0 is not larger than 0";
    EXPECT_TRUE(visibility.getVisibleNodeKeys().empty());
}

TEST(VisibilityHierarchy, LaysSelectedChildrenOutTogether) {
    for (const bool onlyLoaded : {false, true}) {
        Octree octree = randomTree(7, 400);
        octree.node(1).pc = std::make_shared<PointCloud>();
        Visibility visibility(octree);
        visibility.update(randomCamera(7), 4000, 0.0f);
        visibility.buildHierarchy(onlyLoaded);
        const auto& hierarchy = visibility.getHierarchy();
        Keys expected;  // breadth first: by depth and key, without what lies below a node that is left out
        std::set<std::uint64_t> kept = {0};
        for (const std::uint64_t key : octree.branch(1)) {
            const Octree::Node& node = octree.node(key);
            if ((node.flags & 2) != 0 && (!onlyLoaded || node.pc) && kept.count(key >> 3) != 0) {
                kept.insert(key);
                expected.push_back(key);
            }
        }
        ASSERT_EQ(hierarchy.size(), expected.size());
        ASSERT_GT(hierarchy.size(), 10u);
        for (std::size_t i = 0; i < hierarchy.size(); ++i) {
            EXPECT_EQ(hierarchy[i].key, expected[i]);
            std::uint64_t next = hierarchy[i].childOffset + i;
            for (unsigned int octant = 0; octant < 8; ++octant) {
                const std::uint64_t child = child_key(expected[i], octant);
                ASSERT_EQ(hierarchy[i].childMask >> octant & 1, kept.count(child));
                if (kept.count(child) != 0) {
                    EXPECT_EQ(hierarchy[next++].key, child);
                }
            }
            EXPECT_EQ(hierarchy[i].childMask == 0, hierarchy[i].childOffset == 0);
        }
    }
}

TEST(VisibilityHierarchy, PrintsALinePerEntryAndIsEmptyWithoutARoot) {
    Octree octree;
    Visibility visibility(octree);
    visibility.buildHierarchy(false);
    EXPECT_TRUE(visibility.getHierarchy().empty());
    ombrix::test::expectMissingKey([&] { visibility.update(ViewFrustum(), 1, 0.0f); });
    octree.set_hierarchy({1, 10, 13}, {});
    for (auto& [key, node] : octree.nodes()) {
        node.flags = 2;
    }
    visibility.buildHierarchy(false);
    ::testing::internal::CaptureStdout();
    visibility.debugHierarchyNodes();
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "h 36 1\nh 0 0\nh 0 0\n");
}

TEST(VisibilityDepth, AddsTheOctantToTheOffset) {
    Octree octree;
    octree.setOriginTop(Vector3f(0, 0, 0), Vector3f(8, 8, 8));
    octree.set_hierarchy({1, 8, 9, 64 + 7, 15}, {});
    for (auto& [key, node] : octree.nodes()) {
        node.flags = 2;
    }
    OpenVisibility visibility(octree);
    const auto depthAt = [&](Vector3f p) { return visibility.getVisibleDepth(p); };
    EXPECT_EQ(depthAt(Vector3f(1, 1, 1)), 0.0f) << "no hierarchy yet";
    visibility.buildHierarchy(false);
    EXPECT_EQ(depthAt(Vector3f(1, 1, 1)), 1.0f);
    EXPECT_EQ(depthAt(Vector3f(-5, -5, -5)), 1.0f) << "clamped to the lower corner";
    EXPECT_EQ(depthAt(Vector3f(3, 3, 3)), 2.0f);
    EXPECT_EQ(depthAt(Vector3f(5, 1, 1)), 0.0f) << "octant 4 is not selected";
    EXPECT_EQ(depthAt(Vector3f(7, 7, 7)), 1.0f) << "octant 7 leads past the end of the hierarchy";
    EXPECT_EQ(depthAt(Vector3f(1e30f, 1, 1)), 0.0f);
    EXPECT_EQ(depthAt(Vector3f(std::nanf(""), 1, 1)), 1.0f) << "NaN counts as the lower corner";
}

TEST(VisibilityFailure, KeepsWhatWasSelectedWhenANodeIsMissing) {
    Octree octree;
    octree.setOriginTop(Vector3f(0, 0, 0), Vector3f(8, 8, 8));
    octree.set_hierarchy({1}, {5});
    octree.node(1).children = 1;
    ViewFrustum frustum = randomCamera(1);
    ViewFrustum::Pose pose = ViewFrustum::Pose::Identity();
    pose.translation() = Vector3f(4, 4, -30);
    frustum.setPosition(pose);
    Visibility visibility(octree);
    ombrix::test::expectMissingKey([&] { visibility.update(frustum, 1000, 0.0f); });
    EXPECT_EQ(visibility.getVisibleNodeKeys(), Keys{1});
    EXPECT_EQ(octree.node(1).flags & 2, 2);
}

}  // namespace
