#include <random>
#include <unordered_map>
#include <utility>

#include <gtest/gtest.h>

#include <ombrix/core/octree/nested_cell_map.h>

#include "tests/support/expect_throw.h"

namespace {

using namespace ombrix::core;

Point scalarPoint(float scalar) {
    Point p;
    p.scalar = scalar;
    return p;
}

void expectEqual(const CellMap& map, const std::unordered_map<std::uint64_t, float>& expected) {
    ASSERT_EQ(map.size(), expected.size());
    std::size_t visited = 0;
    for (const auto& [key, point] : map) {
        ++visited;
        ASSERT_EQ(point.scalar, expected.at(key));
        ASSERT_EQ(&map.find(key)->second, &point);
    }
    EXPECT_EQ(visited, expected.size());
}

TEST(NestedCellMap, AgreesWithTheStandardMap) {
    std::mt19937_64 random(5);
    CellMap map;
    std::unordered_map<std::uint64_t, float> expected;
    for (int i = 0; i < 200'000; ++i) {
        // Keys of a grid, Morton prefixes, and multiples that share their low bits
        const std::uint64_t key = i % 3 == 0   ? random() % (1 << 16)
                                  : i % 3 == 1 ? random() >> 1
                                               : random() % 4096 << 52;
        const auto scalar = static_cast<float>(i);
        EXPECT_EQ(map.contains(key), expected.count(key) == 1);
        EXPECT_EQ(map.try_emplace(key, scalarPoint(scalar)).second, expected.emplace(key, scalar).second);
        if (i % 5 == 0) {
            map[key].scalar = expected[key] = -scalar;
        }
    }
    expectEqual(map, expected);

    CellMap copy = map;
    const CellMap moved = std::move(map);
    copy[1234567].scalar = 1.0f;
    expectEqual(moved, expected);
    EXPECT_EQ(map.size(), 0u);  // NOLINT(bugprone-use-after-move): a moved-from map is empty
    map = copy;
    expected[1234567] = 1.0f;
    expectEqual(map, expected);
    map.clear();
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(map.find(1234567), map.end());
    ombrix::test::expectMissingKey([&] { static_cast<void>(map.at(1)); });
}

TEST(NestedCellMap, ReservesAndKeepsEntriesInPlace) {
    CellMap map;
    map.reserve(65536);
    const std::size_t places = map.bucket_count();
    const Point* first = &map[0];
    for (std::uint64_t key = 1; key < 65536; ++key) {
        map.try_emplace(key * 64, Point());
    }
    EXPECT_EQ(map.bucket_count(), places);
    for (std::uint64_t key = 1; key < 65536; ++key) {
        map.try_emplace(key * 64 + 1, Point());
    }
    EXPECT_EQ(&map.at(0), first);
    EXPECT_LE(map.load_factor(), map.max_load_factor());
}

}  // namespace
