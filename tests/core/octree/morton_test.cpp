#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>

#include <ombrix/core/octree/aabb.h>
#include <ombrix/core/octree/full_octree_factory.h>
#include <ombrix/core/octree/morton.h>

namespace {

using namespace ombrix::core;

/// Interleaves bit by bit: bit k of x goes to bit 3k + 2, of y to 3k + 1, of z to 3k.
std::uint64_t interleave(std::uint64_t x, std::uint64_t y, std::uint64_t z) {
    std::uint64_t key = 0;
    for (unsigned int k = 0; k < 21; ++k) {
        key |= (x >> k & 1) << (3 * k + 2) | (y >> k & 1) << (3 * k + 1) | (z >> k & 1) << (3 * k);
    }
    return key;
}

TEST(Morton, InterleavesAndDecodesLikeBitByBit) {
    std::mt19937 random(5);
    const auto bits = [&random] { return static_cast<std::uint32_t>(random()); };
    for (int i = 0; i < 2000; ++i) {
        const std::uint32_t x = bits() & 0x1fffff;
        const std::uint32_t y = bits() & 0x1fffff;
        const std::uint32_t z = bits() >> (11 + i % 21);
        const morton3d<std::uint64_t> code(x, y, z);
        ASSERT_EQ(code.key, interleave(x, y, z));
        std::uint32_t dx = 0;
        std::uint32_t dy = 0;
        std::uint32_t dz = 0;
        code.decode(dx, dy, dz);
        ASSERT_EQ(std::make_tuple(dx, dy, dz), std::make_tuple(x, y, z));
    }
}

TEST(NodeKeys, FollowTheCodesOfTheirPoints) {
    EXPECT_EQ(node_depth(1), 0u);
    EXPECT_EQ(node_depth(7), 0u);
    EXPECT_EQ(node_depth(8), 1u);
    EXPECT_EQ(node_depth(15), 1u);
    EXPECT_EQ(node_depth(64), 2u);
    EXPECT_EQ(node_depth(std::uint64_t{1} << 63), 21u);
    EXPECT_EQ(node_depth(0), 21u);
    std::mt19937_64 random(6);
    for (int i = 0; i < 100; ++i) {
        const std::uint64_t code = random() >> 1;
        std::uint64_t key = 1;
        for (unsigned int depth = 0; depth <= 21; ++depth) {
            ASSERT_EQ(node_key(code, depth), key);
            ASSERT_EQ(node_depth(key), depth);
            if (depth < 21) {
                const auto octant = static_cast<unsigned int>(code >> (60 - 3 * depth) & 7);
                ASSERT_EQ(parent_key(child_key(key, octant)), key);
                key = 8 * key + octant;
            }
        }
    }
}

TEST(PointCodes, CutTheRootIntoEqualCells) {
    const FullOctreeFactory factory(Vector3f(5, 5, 5), 1.0f, 1);
    EXPECT_EQ(factory.morton_key(Vector3f(0, 0, 0)).key, 0u);
    EXPECT_EQ(factory.morton_key(Vector3f(0.5f, 0, 0)).key, std::uint64_t{1} << 62);
    EXPECT_EQ(factory.morton_keyd(Vector3d(0, 0.5, 0)).key, std::uint64_t{1} << 61);
    EXPECT_EQ(factory.morton_keyd(Vector3d(0, 0, 0.5)).key, std::uint64_t{1} << 60);
    std::mt19937 random(8);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    for (int i = 0; i < 2000; ++i) {
        const Vector3d p(uniform(random), uniform(random), uniform(random));
        const auto cell = [](double c, double extend) {
            return static_cast<std::uint64_t>(std::floor(c / extend * 2097152.0));
        };
        ASSERT_EQ(OctreeFactory::morton_keyd(p * 7.0, 7.0).key,
                  interleave(cell(p.x() * 7.0, 7.0), cell(p.y() * 7.0, 7.0), cell(p.z() * 7.0, 7.0)));
    }
}

TEST(PointCodes, ClampWhatLiesOutside) {
    const std::uint64_t all = 0x7FFFFFFFFFFFFFFF;
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::uint64_t xBits = 0x4924924924924924;
    EXPECT_EQ(OctreeFactory::morton_key(Vector3f(3, 3, 3), 3.0f).key, all);
    EXPECT_EQ(OctreeFactory::morton_keyd(Vector3d(3, 3, 3), 3.0).key, all);
    EXPECT_EQ(OctreeFactory::morton_key(Vector3f(inf, -inf, nan), 3.0f).key, xBits);
    EXPECT_EQ(OctreeFactory::morton_keyd(Vector3d(1e300, -1e-300, nan), 3.0).key, xBits);
    EXPECT_EQ(OctreeFactory::morton_keyd(Vector3d(1, 0, -1), 0.0).key, xBits) << "an empty root box";
}

TEST(FactoryBox, KeepsItsTopAndTakesTheLargestSide) {
    FullOctreeFactory factory(Vector3f(0, 0, 0), Vector3f(1, 3, 2), 1);
    EXPECT_EQ(factory.extend(), 3.0f);
    EXPECT_EQ(factory.top(), Vector3f(1, 3, 2));
    factory.setOriginExtend(Vector3f(1, 2, 3), 4.0f);
    EXPECT_EQ(factory.top(), Vector3f(5, 6, 7));
    factory.setOriginTop(Vector3f(0, 0, 0), Vector3f(2, 1, 5));
    EXPECT_EQ(factory.extend(), 5.0f);
}

TEST(Boxes, TakeTheirOwnCorners) {
    const Vector3d low(1, 2, 3), high(9, 8, 7);
    Aabb box(low, high);
    box.setCenterRadius(box.max, box.min);
    EXPECT_TRUE(box.min == high - low && box.max == high + low);
    box.setOriginTop(box.max, box.min);
    EXPECT_TRUE(box.min == high + low && box.max == high - low);
    FullOctreeFactory factory(Vector3f(0, 0, 0), Vector3f(1, 3, 2), 1);
    factory.setOriginTop(factory.top(), factory.origin());
    EXPECT_TRUE(factory.origin() == Vector3f(1, 3, 2) && factory.top() == Vector3f(0, 0, 0));
    Octree octree;
    octree.setOriginTop(Vector3f(1, 2, 3), Vector3f(4, 4, 4));
    octree.setOriginTop(octree.top(), octree.origin());
    EXPECT_TRUE(octree.origin() == Vector3f(4, 4, 4) && octree.top() == Vector3f(1, 2, 3));
}

}  // namespace
