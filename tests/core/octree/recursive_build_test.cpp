#include <random>

#include <gtest/gtest.h>

#include <ombrix/core/octree/morton.h>
#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/octree_converter.h>
#include <ombrix/core/octree/octree_factory.h>

#include "tests/support/clouds.h"

namespace {

using namespace ombrix::core;
using Pairs = OctreeConverter::PairVector;

std::vector<OctreeConverter::Pair> asVector(const Pairs& pairs) {
    return {pairs.begin(), pairs.end()};
}

/// Codes of several kinds: few distinct ones, a long common prefix, and any.
std::uint64_t randomCode(std::mt19937_64& random, int kind) {
    switch (kind) {
        case 0:
            return random() % 3 << 40;
        case 1:
            return 0x7123456789abc000 | (random() & 0xfff);
        default:
            return random() >> 1;
    }
}

TEST(SortByCode, AgreesWithAStableSort) {
    for (const std::size_t count : {0u, 1u, 499u, 500u, 501u, 70000u, 600000u}) {
        for (const int kind : {0, 1, 2}) {
            std::mt19937_64 random(count + static_cast<unsigned>(kind));
            Pairs pairs;
            for (std::uint64_t i = 0; i < count; ++i) {
                pairs.emplace_back(i, randomCode(random, kind));  // grows piecewise: not one array
            }
            auto expected = asVector(pairs);
            std::stable_sort(expected.begin(), expected.end(),
                             [](const auto& a, const auto& b) { return a.second < b.second; });
            Pairs together;
            together.reserve(count);
            together.assign(pairs.begin(), pairs.end());
            ombrix::test::withOneAndFourWorkers([&] {
                for (Pairs copy : {pairs, together}) {
                    detail::sortByCode(copy);
                    ASSERT_EQ(asVector(copy), expected) << count << " pairs of kind " << kind;
                }
            });
        }
    }
}

struct Sorted {
    PointCloud cloud = ombrix::test::withAttributes(ombrix::test::uniformPoints(1000, 1.0f));
    Pairs pairs = detail::mortonPairs(1000, [this](std::uint64_t i) {
        return OctreeFactory::morton_keyd(cloud.positions()[i].cast<double>(), 1.0).key;
    });
    Sorted() { detail::sortByCode(pairs); }
};

TEST(RecursiveBuild, BuildsASubTreeUnderAnyKey) {
    const Sorted sorted;
    const std::uint64_t first = std::find_if(sorted.pairs.begin(), sorted.pairs.end(),
                                             [](const auto& p) { return p.second >> 60 == 3; }) -
                                sorted.pairs.begin();
    const std::uint64_t last = std::find_if(sorted.pairs.begin(), sorted.pairs.end(),
                                            [](const auto& p) { return p.second >> 60 == 4; }) -
                               sorted.pairs.begin() - 1;
    Octree octree;
    OctreeConverter::recursiveBuild(sorted.cloud, sorted.pairs, {first, last, 8 + 3, 1}, 16, true, octree);
    EXPECT_EQ(octree.size(), last - first + 1);
    EXPECT_FALSE(octree.hasKey(1));
    for (const auto& [key, node] : octree.nodes()) {
        EXPECT_EQ(key >> (3 * (node_depth(key) - 1)), 8u + 3u);
        EXPECT_FALSE(node.pc->hasNormals()) << "positions only";
    }
}

TEST(RecursiveBuild, AppendsBehindThePointsOfExistingNodes) {
    const Sorted sorted;
    Octree octree;
    octree.add_node(1).pc = std::make_shared<PointCloud>();
    octree.node(1).pc->push_back(sorted.cloud, 5, 5, false);
    const std::shared_ptr<PointCloud> held = octree.node(1).pc;
    OctreeConverter::recursiveBuild(sorted.cloud, sorted.pairs, {0, 999, 1, 0}, 1000, false, octree);
    EXPECT_EQ(octree.node(1).pc, held);
    ASSERT_EQ(held->size(), 1001u);
    EXPECT_EQ(held->scalars()[0], 5.0f);
    EXPECT_EQ(held->scalars()[1], static_cast<float>(sorted.pairs[0].first));
    EXPECT_EQ(held->normals().size(), 1001u);
}

TEST(RecursiveBuild, TakesAChunkThatEndsBeforeItStartsAsEmpty) {
    const Sorted sorted;
    Octree octree;
    OctreeConverter::recursiveBuild(PointCloud(), Pairs(), {0, ~std::uint64_t{0}, 1, 0}, 5, false, octree);
    OctreeConverter::recursiveBuild(sorted.cloud, sorted.pairs, {7, 6, 1, 0}, 5, false, octree);
    EXPECT_EQ(octree.keyCount(), 0u);
}

}  // namespace
