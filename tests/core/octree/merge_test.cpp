#include <cmath>
#include <map>

#include <tbb/global_control.h>

#include <ombrix/core/octree/merge.h>

#include "tests/support/octree_checks.h"

namespace {

using namespace ombrix::core;
using ombrix::test::addDistances;
using ombrix::test::numberedCloud;
using ombrix::test::Row;

using Cell = std::array<double, 3>;

struct Shifted {
    PointCloud cloud;
    Vector3d shift;

    [[nodiscard]] Vector3d world(std::size_t i) const { return cloud.positions()[i].cast<double>() + shift; }
};

// Enough for several tasks.
constexpr std::size_t POINTS = 20'000;

std::vector<Shifted> overlappingClouds() {
    std::vector<Shifted> clouds;
    for (unsigned int c = 0; c < 3; ++c) {
        const Vector3d shift(4.0e6 + c, -2.0e6, 0.25 * c);
        clouds.push_back({numberedCloud(POINTS, 0.0f, 6.0f, 20 + c, 10000 * c), shift});
    }
    addDistances(clouds[1].cloud);
    return clouds;
}

Merge mergeOf(const std::vector<Shifted>& clouds, float cell) {
    Merge merge(cell);
    for (const Shifted& c : clouds) {
        merge.add(c.cloud, c.shift);
    }
    return merge;
}

std::map<Cell, std::vector<Merge::Source>> groupByCell(const std::vector<Shifted>& clouds, double cell) {
    std::map<Cell, std::vector<Merge::Source>> groups;
    for (std::size_t c = 0; c < clouds.size(); ++c) {
        for (std::size_t i = 0; i < clouds[c].cloud.size(); ++i) {
            const Vector3d p = clouds[c].world(i);
            groups[{std::floor(p.x() / cell), std::floor(p.y() / cell), std::floor(p.z() / cell)}].push_back(
                {c, i});
        }
    }
    return groups;
}

TEST(Merge, KeepsThePointNearestToTheCentreOfEachCell) {
    const auto clouds = overlappingClouds();
    for (const float cell : {0.5f, 3.0f}) {
        Merge merge = mergeOf(clouds, cell);
        const Vector3d origin(4.0e6, -2.0e6, 0.0);
        merge.setOrigin(origin);
        for (const std::size_t threads : {1u, 4u}) {
            const tbb::global_control control(tbb::global_control::max_allowed_parallelism, threads);
            PointCloud out;
            std::vector<Merge::Source> sources;
            merge.result(out, sources);

            const auto groups = groupByCell(clouds, cell);
            ASSERT_EQ(out.size(), groups.size());
            std::size_t g = 0;
            for (const auto& [index, members] : groups) {
                const Vector3d center = (Vector3d(index[0], index[1], index[2]).array() + 0.5) * cell;
                Merge::Source best = members.front();
                for (const Merge::Source& m : members) {
                    if ((clouds[m.cloud].world(m.index) - center).norm() <
                        (clouds[best.cloud].world(best.index) - center).norm()) {
                        best = m;
                    }
                }
                ASSERT_EQ(sources[g], best);
                const Shifted& from = clouds[best.cloud];
                EXPECT_EQ(out.positions()[g], (from.world(best.index) - origin).cast<float>());
                EXPECT_EQ(out.scalars()[g], from.cloud.scalars()[best.index]);
                EXPECT_EQ(out.point(g).distance, best.cloud == 1 ? from.cloud.scalars()[best.index] : 0.0f);
                ++g;
            }
        }
    }
}

TEST(Merge, KeepsTheFirstOfEquallyNearPoints) {
    // Cells reach across zero without meeting.
    Merge merge(1.0f);
    PointCloud pair;
    pair.positions() = {Vector3f(0.25f, 0.5f, 0.5f), Vector3f(-0.25f, 0.5f, 0.5f)};
    PointCloud later;
    later.positions() = {Vector3f(0.75f, 0.5f, 0.5f)};
    merge.add(pair, Vector3d::Zero());
    merge.add(later, Vector3d::Zero());
    PointCloud out;
    std::vector<Merge::Source> sources;
    merge.result(out, sources);
    EXPECT_EQ(sources, (std::vector<Merge::Source>{{0, 1}, {0, 0}}));
    EXPECT_EQ(out.colors().size(), 2u);
}

TEST(Merge, AveragesWhenAsked) {
    const auto clouds = overlappingClouds();
    Merge merge = mergeOf(clouds, 2.0f);
    merge.setAveraging(true);
    merge.setOrigin(Vector3d(4.0e6, -2.0e6, 0.0));
    PointCloud out;
    merge.result(out);
    std::size_t g = 0;
    for (const auto& [index, members] : groupByCell(clouds, 2.0)) {
        Vector3d position = Vector3d::Zero();
        Vector3d values = Vector3d::Zero();  // red, scalar, distance
        for (const Merge::Source& m : members) {
            const PointCloud& cloud = clouds[m.cloud].cloud;
            position += clouds[m.cloud].world(m.index) - Vector3d(4.0e6, -2.0e6, 0.0);
            values += Vector3d(cloud.colors()[m.index].r, cloud.scalars()[m.index],
                               m.cloud == 1 ? cloud.scalars()[m.index] : 0.0f);
        }
        const auto n = static_cast<double>(members.size());
        EXPECT_LT((out.positions()[g].cast<double>() - position / n).norm(), 1e-5);
        EXPECT_NEAR(out.colors()[g].r, values[0] / n, 0.5001);
        EXPECT_NEAR(out.scalars()[g], values[1] / n, 0.01);
        EXPECT_NEAR(out.point(g).distance, values[2] / n, 0.01);
        ++g;
    }
    EXPECT_EQ(g, out.size());
}

TEST(Merge, ConcatenatesWithoutACellAndTakesAnyCoordinates) {
    const auto clouds = overlappingClouds();
    std::vector<Row> all;
    for (const Shifted& c : clouds) {
        ombrix::test::appendRows(c.cloud, c.shift - Vector3d(4.0e6, -2.0e6, 0.0), all);
    }
    for (const float cell : {0.0f, -1.0f, std::numeric_limits<float>::quiet_NaN()}) {
        Merge merge = mergeOf(clouds, cell);
        merge.setOrigin(Vector3d(4.0e6, -2.0e6, 0.0));
        PointCloud out;
        merge.result(out);
        EXPECT_EQ(out.size(), all.size());
        EXPECT_EQ(out.scalars()[POINTS], 10000.0f);
    }

    // Cells so far apart that their three indices need more than one 64-bit number
    PointCloud far;
    constexpr float INF = std::numeric_limits<float>::infinity();
    for (const float x : {1e30f, -1e30f, INF, -INF, std::numeric_limits<float>::quiet_NaN(), 0.0f}) {
        far.positions().insert(far.positions().end(), {Vector3f(x, 1, 1), Vector3f(1, x, -x)});
    }
    Merge merge(1e-20f);
    merge.add(far, Vector3d::Zero());
    PointCloud out;
    std::vector<Merge::Source> sources;
    merge.result(out, sources);
    EXPECT_GE(out.size(), 6u);
    merge.clear();
    merge.result(out, sources);
    EXPECT_EQ(out.size(), 0u);
    EXPECT_TRUE(sources.empty());
}

}  // namespace
