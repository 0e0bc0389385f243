#include <algorithm>
#include <map>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/view/frame_selection.h>
#include <ombrix/core/view/visibility.h>

#include "tests/core/view/scenes.h"
#include "tests/support/expect_throw.h"

namespace {

using namespace ombrix::core;
using ombrix::test::Keys;
using ombrix::test::randomCamera;
using ombrix::test::randomTree;

std::uint64_t pointsOf(const Octree& octree, const Keys& keys) {
    std::uint64_t count = 0;
    for (const std::uint64_t key : keys) {
        const Octree::Node& node = octree.node(key);
        count += node.pc ? node.pc->size() : node.size;
    }
    return count;
}

/// Frame i of a flight: small steps around the tree, and now and then a jump.
ViewFrustum flightCamera(unsigned int i) {
    ViewFrustum frustum = randomCamera(i / 8);
    ViewFrustum::Pose pose = frustum.getPosition();
    pose.translation() += 0.5f * static_cast<float>(i % 8) * Vector3f(1, -1, 0.5f);
    frustum.setPosition(pose);
    return frustum;
}

/// Plays a client: what it holds after a frame's changes is what is selected.
class Client {
public:
    void expectFollows(const FrameSelection& selection) {
        for (const std::uint64_t key : selection.left()) {
            ASSERT_EQ(held_.erase(key), 1u);
            for (unsigned int octant = 0; octant < 8; ++octant) {
                ASSERT_EQ(held_.count(child_key(key, octant)), 0u) << "a parent left before its child";
            }
        }
        std::size_t place = 0;
        for (const std::uint64_t key : selection.entered()) {
            ASSERT_TRUE(held_.insert(key).second);
            ASSERT_TRUE(key == 1 || held_.count(parent_key(key)) == 1);
            const auto found = std::find(selection.keys().begin() + static_cast<std::ptrdiff_t>(place),
                                         selection.keys().end(), key);
            ASSERT_NE(found, selection.keys().end()) << "not in the order of the selection";
            place = static_cast<std::size_t>(found - selection.keys().begin());
        }
        ASSERT_EQ(held_, std::set<std::uint64_t>(selection.keys().begin(), selection.keys().end()));
    }

private:
    std::set<std::uint64_t> held_;
};

/// Loads, drops, adds and removes some nodes of the tree.
void disturb(Octree& octree, std::mt19937& random) {
    Keys keys = octree.keys();
    std::sort(keys.begin(), keys.end());
    for (int i = 0; i < 20; ++i) {
        const std::uint64_t key = keys[random() % keys.size()];
        if (!octree.hasKey(key)) {
            continue;
        }
        Octree::Node& node = octree.node(key);
        const unsigned int octant = random() % 8;
        if (i % 4 == 0 && key != 1) {
            octree.remove_branch(key);
        } else if (i % 4 == 1 && node_depth(key) < 8) {
            node.children |= static_cast<std::uint8_t>(1u << octant);
            octree.add_node(child_key(key, octant)).size = random() % 100;
        } else if (node.pc) {
            octree.free_node(key);
        } else {
            node.pc = std::make_shared<PointCloud>();
            node.pc->resize(random() % 100);
        }
    }
}

TEST(FrameSelection, SelectsWhatVisibilitySelectsWhileTheTreeChanges) {
    for (const unsigned int seed : {1u, 2u, 3u}) {
        Octree octree = randomTree(seed, 12000);
        Octree copy;  // Visibility writes flags: the selection's own tree must not need them
        FrameSelection selection(octree);
        Client client;
        std::mt19937 random(seed);
        std::size_t changes = 0;
        for (unsigned int i = 0; i < 80; ++i) {
            const ViewFrustum frustum = flightCamera(i + seed * 1000);
            const std::uint64_t budgets[] = {3000, 3000, 500000, 0, 3000, 200000};
            const std::uint64_t budget = budgets[i / 5 % 6];
            const float minSize = i % 7 == 0 ? 25.0f : 2.0f;
            copy = octree;
            Visibility visibility(copy);
            const std::uint64_t points = visibility.update(frustum, budget, minSize);
            ASSERT_EQ(selection.update(frustum, budget, minSize), points);
            ASSERT_EQ(selection.pointCount(), points);
            ASSERT_EQ(selection.keys(), visibility.getVisibleNodeKeys()) << "frame " << i;
            client.expectFollows(selection);
            changes += selection.entered().size();
            if (i % 3 == 0) {
                disturb(octree, random);
            }
            if (i == 40) {
                octree.setTop(Vector3f(130, 60, 60));
            }
        }
        EXPECT_GT(changes, 5000u);
        selection.reset();
        EXPECT_TRUE(selection.keys().empty());
        selection.update(flightCamera(seed * 1000), 5000, 0.0f);
        EXPECT_EQ(selection.entered(), selection.keys());
        EXPECT_TRUE(std::none_of(octree.nodes().begin(), octree.nodes().end(),
                                 [](const auto& entry) { return entry.second.flags != 0; }));
    }
}

/// Counts the nodes that are looked up.
struct CountingTree : Octree {
    using Octree::node;
    const Node& node(std::uint64_t key) const override {
        ++lookups;
        return Octree::node(key);
    }
    mutable std::size_t lookups = 0;
};

TEST(FrameSelection, LooksUpTheSelectedNodesAndTheirChildrenOnce) {
    CountingTree octree;
    static_cast<Octree&>(octree) = randomTree(5, 20000);
    FrameSelection selection(octree);
    selection.update(randomCamera(5), 5000, 0.0f);
    const std::size_t selected = selection.keys().size();
    ASSERT_GT(selected, 50u);
    ASSERT_LT(selected, 1000u);
    EXPECT_LE(octree.lookups, 9 * selected + 2);
    octree.lookups = 0;
    selection.update(randomCamera(5), 5000, 0.0f);
    EXPECT_LE(octree.lookups, selected + 2);
    EXPECT_TRUE(selection.entered().empty() && selection.left().empty());
}

TEST(FrameSelectionHysteresis, KeepsNodesAtTheBorderWithinItsMargins) {
    Octree octree = randomTree(8, 5000);
    const std::uint64_t budget = 20000;
    const float minSize = 12.0f;
    const float margin = 0.2f;
    std::map<bool, std::size_t> changes;
    for (const bool steady : {false, true}) {
        FrameSelection selection(octree);
        selection.setHysteresis(steady ? margin : 0.0f);
        Client client;
        std::set<std::uint64_t> inViewBefore;
        for (unsigned int i = 0; i < 120; ++i) {
            ViewFrustum frustum = randomCamera(5 + i / 40);  // trembles
            ViewFrustum::Pose pose = frustum.getPosition();
            pose.translation() += (i % 2 == 0 ? 0.8f : -0.8f) * Vector3f(1, 1, 1);
            frustum.setPosition(pose);
            const bool bySize = i % 40 < 20;  // is the border, then by budget
            const std::uint64_t points =
                selection.update(frustum, bySize ? 1000000 : budget, bySize ? minSize : 0.0f);
            client.expectFollows(selection);
            // What comes into view or leaves it does not flicker
            Visibility all(octree);
            all.update(frustum, UINT64_MAX, 0.0f);
            const std::set<std::uint64_t> inView(all.getVisibleNodeKeys().begin(),
                                                 all.getVisibleNodeKeys().end());
            for (const Keys* list : {&selection.entered(), &selection.left()}) {
                changes[steady] += static_cast<std::size_t>(
                    std::count_if(list->begin(), list->end(), [&](std::uint64_t key) {
                        return i % 20 > 2 && inView.count(key) != 0 && inViewBefore.count(key) != 0;
                    }));
            }
            inViewBefore = inView;
            Visibility loosest(octree);
            loosest.update(frustum, UINT64_MAX, bySize ? minSize / (1.0f + 1.001f * margin) : 0.0f);
            const Keys& allowed = loosest.getVisibleNodeKeys();
            const std::set<std::uint64_t> permitted(allowed.begin(), allowed.end());
            for (const std::uint64_t key : selection.keys()) {
                ASSERT_EQ(permitted.count(key), 1u) << "kept below its margin";
            }
            if (bySize) {
                Visibility plain(octree);
                plain.update(frustum, UINT64_MAX, minSize);
                const std::set<std::uint64_t> held(selection.keys().begin(), selection.keys().end());
                for (const std::uint64_t key : plain.getVisibleNodeKeys()) {
                    ASSERT_EQ(held.count(key), 1u) << "left out although large enough";
                }
            } else {
                ASSERT_GT(points, static_cast<std::uint64_t>(0.79 * static_cast<double>(budget)));
                ASSERT_LT(points, budget + 100);
            }
        }
    }
    EXPECT_GT(changes[false], 500u) << "the flight has to flicker without";
    EXPECT_LT(changes[true], changes[false] / 10);
}

TEST(FrameSelectionStrict, NeverPassesTheBudget) {
    Octree octree = randomTree(9, 3000);
    for (const float margin : {0.0f, 0.15f}) {
        FrameSelection selection(octree);
        selection.setStrict(true);
        selection.setHysteresis(margin);
        Client client;
        std::size_t shortened = 0;
        for (unsigned int i = 0; i < 60; ++i) {
            const std::uint64_t budget = 1000 + 997 * (i % 5);
            ASSERT_LE(selection.update(flightCamera(i), budget, 0.0f), budget);
            ASSERT_EQ(selection.pointCount(), pointsOf(octree, selection.keys()));
            client.expectFollows(selection);
            if (margin == 0.0f) {
                Visibility visibility(octree);
                Keys expected;
                if (visibility.update(flightCamera(i), budget, 0.0f) > budget) {
                    ++shortened;
                    expected = visibility.getVisibleNodeKeys();
                    expected.pop_back();
                } else {
                    expected = visibility.getVisibleNodeKeys();
                }
                ASSERT_EQ(selection.keys(), expected);
            }
        }
        EXPECT_TRUE(margin > 0.0f || shortened > 10);
    }
}

TEST(FrameSelectionFailure, KeepsWhatWasSelectedWhenANodeIsMissing) {
    Octree octree = randomTree(4, 300);
    const ViewFrustum frustum = randomCamera(4);
    FrameSelection selection(octree);
    Client client;
    selection.update(frustum, 3000, 0.0f);
    client.expectFollows(selection);
    const Keys before = selection.keys();

    octree.node(before[5]).children = 0xff;  // names nodes that do not exist
    Octree copy = octree;
    Visibility visibility(copy);
    ombrix::test::expectMissingKey([&] { visibility.update(frustum, 3000, 0.0f); });
    ombrix::test::expectMissingKey([&] { selection.update(frustum, 3000, 0.0f); });
    EXPECT_EQ(selection.keys(), visibility.getVisibleNodeKeys());
    EXPECT_EQ(selection.pointCount(), pointsOf(octree, selection.keys()));
    EXPECT_EQ(selection.keys().back(), before[5]);
    client.expectFollows(selection);

    octree.delete_node(1);
    ombrix::test::expectMissingKey([&] { selection.update(frustum, 0, 0.0f); });
    client.expectFollows(selection);
    EXPECT_TRUE(selection.keys().empty());
}

}  // namespace
