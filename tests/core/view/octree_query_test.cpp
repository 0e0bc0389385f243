#include <algorithm>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include <ombrix/core/octree/dynamic_octree_factory.h>
#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/view/octree_query.h>

#include "tests/core/view/scenes.h"
#include "tests/support/octree_checks.h"

namespace {

using namespace ombrix::core;
using ombrix::test::fullTree;
using ombrix::test::Keys;
using ombrix::test::numberedCloud;
using ombrix::test::randomCamera;

constexpr double INF = std::numeric_limits<double>::infinity();
constexpr double NOT_A_NUMBER = std::numeric_limits<double>::quiet_NaN();

/// Points in and a little around [0, 100]^3, some of them copies of others, some without a place.
PointCloud roughCloud(std::size_t n, unsigned int seed) {
    PointCloud cloud = numberedCloud(n, -2.0f, 102.0f, seed);
    for (std::size_t i = 0; i + 1 < n; i += 9) {
        cloud.positions()[i + 1] = cloud.positions()[i];
    }
    for (std::size_t i = 0; i < n; i += 500) {
        cloud.positions()[i][static_cast<Eigen::Index>(i % 3)] =
            i % 2 == 0 ? std::numeric_limits<float>::infinity() : std::nanf("");
    }
    return cloud;
}

/// Trees of all kinds: points in leaves, on all levels, relative to their nodes; and one of a single node.
std::map<std::string, Octree> treesOfAllKinds() {
    std::map<std::string, Octree> trees;
    trees["full"] = fullTree(roughCloud(4000, 1), 100.0f, 16);
    NestedOctreeFactory nested(Vector3f::Zero(), Vector3f::Constant(100.0f));
    PointCloud dense = numberedCloud(90000, 20.0f, 23.0f, 2);
    dense.push_back(roughCloud(20000, 3), true);
    nested.add(dense);
    nested(trees["nested"]);
    DynamicOctreeFactory dynamic(64);
    dynamic.add(numberedCloud(2000, 0.0f, 100.0f, 4));
    dynamic.add(numberedCloud(1000, -80.0f, 50.0f, 5));
    trees["dynamic"] = *dynamic.octree();
    trees["one node"] = fullTree(roughCloud(30, 6), 100.0f, 100);
    return trees;
}

/// Drops the clouds of about half of the nodes.
Octree partlyLoaded(const Octree& octree, unsigned int seed) {
    Octree copy = octree;
    std::mt19937 random(seed);
    Keys keys = copy.keys();
    std::sort(keys.begin(), keys.end());
    for (const std::uint64_t key : keys) {
        if (random() % 2 == 0) {
            copy.free_node(key);
        }
    }
    return copy;
}

/// The tree with the listed clouds loaded.
Octree loaded(const Octree& partial, const Octree& whole, const Keys& keys) {
    Octree copy = partial;
    for (const std::uint64_t key : keys) {
        EXPECT_EQ(copy.node(key).pc, nullptr);
        copy.node(key).pc = whole.node(key).pc;
    }
    return copy;
}

/// Calls visit(key, index, position) for all points that are held and have a place.
template <class Visit>
void forEachPoint(const Octree& octree, const Visit& visit) {
    for (const std::uint64_t key : octree.keys()) {
        const Octree::Node& node = octree.node(key);
        if (!node.pc) {
            continue;
        }
        const Vector3d corner =
            (node.flags & 8) != 0 ? octree.node_origin(node).cast<double>() : Vector3d(0, 0, 0);
        const std::vector<Vector3f>& positions = node.pc->positions();
        for (std::size_t i = 0; i < positions.size(); ++i) {
            if (positions[i].allFinite()) {
                visit(key, i, Vector3d(positions[i].cast<double>() + corner));
            }
        }
    }
}

/// (measure, second measure, key, index) of the first point.
using Place = std::tuple<double, double, std::uint64_t, std::uint64_t>;

Place pickPlainly(const Octree& octree, const PickBeam& beam, PickOrder order) {
    Place best(INF, INF, 0, 0);
    const Vector3d d = beam.direction.stableNormalized();
    forEachPoint(octree, [&](std::uint64_t key, std::uint64_t i, const Vector3d& p) {
        const double depth = (p - beam.origin).dot(d);
        const double offset = (p - beam.origin).cross(d).norm();
        const double width = beam.radius + beam.slope * depth;
        const bool inside =
            ((p - beam.clip.min).array() >= 0.0).all() && ((beam.clip.max - p).array() >= 0.0).all();
        if (inside && depth >= beam.minDepth && depth <= beam.maxDepth && offset <= width) {
            const double share = offset / width;
            best = std::min(best, order == PickOrder::FRONTMOST ? Place(depth, offset, key, i)
                                                                : Place(share, depth, key, i));
        }
    });
    return best;
}

void expectPicked(const PickResult& result, const Place& place, PickOrder order) {
    const auto& [first, second, key, index] = place;
    ASSERT_EQ(result.point.has_value(), key != 0);
    if (key != 0) {
        EXPECT_EQ(result.point->key, key);
        EXPECT_EQ(result.point->index, index);
        EXPECT_NEAR(result.point->depth, order == PickOrder::FRONTMOST ? first : second, 1e-9);
    }
}

/// Whether a point of the cube might be in the beam at a depth up to `deepest`; cubes at the border are open.
bool cubeMayHold(const Octree& octree, std::uint64_t key, const PickBeam& beam, double deepest) {
    const Octree::Aabb box = octree.node_aabb(octree.node(key));
    if (box.center.minCoeff() < 1.01f * box.radius ||
        box.center.maxCoeff() > octree.extend() - 1.01f * box.radius) {
        return true;
    }
    const double r = 1.001 * std::sqrt(3.0) * static_cast<double>(box.radius);
    const Vector3d v = box.center.cast<double>() - beam.origin;
    const double depth = v.dot(beam.direction.stableNormalized());
    const double offset = v.cross(beam.direction.stableNormalized()).norm();
    return depth - r <= deepest && depth + r >= beam.minDepth &&
           offset - r <= beam.radius + beam.slope * (depth + 1.8 * r) + 0.8 * r;
}

TEST(OctreeQueryPick, AgreesWithBruteForceAndNamesWhatIsMissing) {
    std::mt19937 random(11);
    std::uniform_real_distribution<double> uniform(-60.0, 160.0);
    const auto vector = [&] {
        const double x = uniform(random);
        const double y = uniform(random);
        return Vector3d(x, y, uniform(random));
    };
    for (const auto& [name, whole] : treesOfAllKinds()) {
        const Octree partial = partlyLoaded(whole, 7);
        std::size_t found = 0;
        std::size_t listed = 0;
        for (int i = 0; i < 60; ++i) {
            SCOPED_TRACE(name + " " + std::to_string(i));
            PickBeam beam;
            beam.origin = vector();
            beam.direction = 1e3 * (vector() - beam.origin);
            if (i % 6 == 5) {
                beam.direction = Vector3d::Unit(i / 6 % 3) * (i % 4 == 1 ? -1e-300 : 1e300);
            }
            beam.radius = i % 3 == 0 ? 0.0 : 3.0;
            beam.slope = i % 3 == 1 ? 0.0 : 0.03;
            if (i % 5 == 0) {
                beam.minDepth = 40.0;
                beam.maxDepth = 140.0;
                beam.clip = Aabb(Vector3d(10, -INF, 20), Vector3d(80, 70, INF));
            }
            for (const PickOrder order : {PickOrder::FRONTMOST, PickOrder::CENTRAL}) {
                const Place best = pickPlainly(whole, beam, order);
                const PickResult result = OctreeQuery(whole).pick(beam, order);
                expectPicked(result, best, order);
                ASSERT_TRUE(result.missing.empty());
                found += result.point ? 1 : 0;

                const PickResult part = OctreeQuery(partial).pick(beam, order);
                expectPicked(part, pickPlainly(partial, beam, order), order);
                ASSERT_TRUE(std::is_sorted(part.missing.begin(), part.missing.end()));
                const Octree enough = loaded(partial, whole, part.missing);
                const PickResult sure = OctreeQuery(enough).pick(beam, order);
                expectPicked(sure, best, order);
                ASSERT_TRUE(sure.missing.empty());
                const bool frontmost = order == PickOrder::FRONTMOST && part.point;
                for (const std::uint64_t key : part.missing) {
                    ASSERT_TRUE(cubeMayHold(partial, key, beam, frontmost ? part.point->depth : INF));
                }
                listed += part.missing.size();
            }
        }
        EXPECT_GT(found, name == "one node" ? 3u : 30u) << name;
        EXPECT_TRUE(listed > 0 || name == "one node");
    }
}

TEST(OctreeQueryPick, FindsWhatThePlaceOnTheViewportShows) {
    const Octree octree = fullTree(numberedCloud(3000, 0.0f, 100.0f, 21), 100.0f, 32);
    const OctreeQuery query(octree);
    std::size_t tried = 0;
    for (unsigned int seed = 1; seed <= 12; ++seed) {
        ViewFrustum frustum = randomCamera(seed);
        ViewFrustum::Pose pose = frustum.getPosition();
        if (seed % 2 == 0) {
            pose.linear() *= 2.0f;  // every test of the frustum then sees the scene twice as large
            frustum.setPosition(pose);
        }
        frustum.setClipPlane(60.0f, 240.0f);
        const auto onScreen = [&](const Vector3d& p) {
            const Vector3d c =
                pose.linear().cast<double>().transpose() * (p - pose.translation().cast<double>());
            const double half = frustum.orthographic() ? 40.0 : c.z() * std::tan(25.0 * M_PI / 180.0);
            return Vector3d(c.x() / half / 1.4, c.y() / half, c.z());
        };
        forEachPoint(octree, [&](std::uint64_t key, std::uint64_t index, const Vector3d& p) {
            if (index % 16 != 0 || frustum.pointInFrustum(p.cast<float>()) == 0) {
                return;
            }
            const Vector3d s = onScreen(p);
            const PickBeam beam = cursorBeam(frustum, s.x(), s.y(), 8.0);
            const PickResult central = query.pick(beam, PickOrder::CENTRAL);
            ASSERT_TRUE(central.point);
            EXPECT_EQ(std::tie(central.point->key, central.point->index), std::tie(key, index));
            EXPECT_NEAR(central.point->offset, 0.0, 1e-4);
            const PickResult front = query.pick(beam);
            ASSERT_TRUE(front.point);
            EXPECT_LE(front.point->depth, central.point->depth);
            const Vector3d off = 500.0 * (onScreen(front.point->position) - s);
            EXPECT_LE(std::hypot(1.4 * off.x(), off.y()), 8.0 * 1.5)
                << "the corners of the view are stretched";
            ++tried;
        });
        EXPECT_NEAR(cursorBeam(frustum, 0.0, 0.0, 1.0).minDepth, 60.0 / pose.linear().col(2).norm(), 1e-3);
    }
    EXPECT_GT(tried, 100u);
}

TEST(OctreeQueryPick, KeepsThePrecisionOfCoordinatesInTheMillions) {
    const Vector3f origin(4499999.5f, 5412345.5f, 200.0f);
    const Octree octree = fullTree(numberedCloud(5000, 0.0f, 100.0f, 31), 100.0f, 64, origin);
    const Octree::Node& leaf = octree.node(octree.first_leaf());
    for (std::uint64_t i = 0; i < leaf.pc->size(); ++i) {
        const Vector3d world = octree.origin().cast<double>() + leaf.pc->positions()[i].cast<double>();
        PickBeam beam;
        beam.origin = world + Vector3d(300, 200, 500) - octree.origin().cast<double>();
        beam.direction = Vector3d(-300, -200, -500);
        beam.radius = 1e-6;
        const PickResult hit = OctreeQuery(octree).pick(beam);
        ASSERT_TRUE(hit.point);
        EXPECT_EQ(hit.point->key, leaf.key);
        EXPECT_EQ(hit.point->index, i);
    }
}

TEST(OctreeQueryPick, FindsNothingWithADegenerateBeam) {
    const Octree octree = fullTree(numberedCloud(200, 0.0f, 100.0f, 41), 100.0f, 8);
    PickBeam wide;
    wide.origin = Vector3d(50, 50, -10);
    wide.radius = 1000.0;
    ASSERT_TRUE(OctreeQuery(octree).pick(wide).point);
    EXPECT_FALSE(OctreeQuery(Octree()).pick(wide).point);
    std::vector<PickBeam> beams(10, wide);
    beams[0].direction.setZero();
    beams[1].direction.x() = NOT_A_NUMBER;
    beams[2].direction.y() = INF;
    beams[3].origin.z() = NOT_A_NUMBER;
    beams[4].radius = -1.0;
    beams[5].radius = NOT_A_NUMBER;
    beams[6].slope = INF;
    beams[7].minDepth = NOT_A_NUMBER;
    beams[8].maxDepth = -1.0;
    beams[9].clip.max.x() = NOT_A_NUMBER;
    for (std::size_t i = 0; i < beams.size(); ++i) {
        EXPECT_FALSE(OctreeQuery(octree).pick(beams[i]).point) << i;
    }
    wide.radius = 0.0;
    EXPECT_FALSE(OctreeQuery(octree).pick(wide).point);
    EXPECT_FALSE(OctreeQuery(octree).pick(cursorBeam(ViewFrustum(), 0.0, 0.0, 3.0)).point);
}

using Found = std::map<std::uint64_t, Keys>;

Found foundIn(const RegionResult& result) {
    Found found;
    std::uint64_t count = 0;
    for (const NodePoints& node : result.nodes) {
        EXPECT_TRUE(found.empty() || found.rbegin()->first < node.key);
        found[node.key] = node.indices;
        count += node.indices.size();
    }
    EXPECT_EQ(result.count, count);
    EXPECT_TRUE(std::is_sorted(result.missing.begin(), result.missing.end()));
    return found;
}

/// Compares a search in the whole tree and in one with unloaded nodes with a test of all points.
template <class Search, class Contains>
std::size_t expectRegion(const Octree& whole, const Octree& partial, const Search& search,
                         const Contains& contains) {
    const auto plainly = [&](const Octree& octree) {
        Found found;
        forEachPoint(octree, [&](std::uint64_t key, std::uint64_t i, const Vector3d& p) {
            if (contains(p)) {
                found[key].push_back(i);
            }
        });
        return found;
    };
    const Found all = plainly(whole);
    const RegionResult result = search(OctreeQuery(whole));
    EXPECT_EQ(foundIn(result), all);
    EXPECT_TRUE(result.missing.empty());

    const RegionResult part = search(OctreeQuery(partial));
    EXPECT_EQ(foundIn(part), plainly(partial));
    EXPECT_EQ(foundIn(search(OctreeQuery(loaded(partial, whole, part.missing)))), all);

    PointCloud cloud;
    OctreeQuery(whole).extract(result, cloud);
    EXPECT_EQ(cloud.size(), result.count);
    EXPECT_EQ(cloud.scalars().size(), result.count);
    for (const Vector3f& p : cloud.positions()) {
        const Vector3d inner = Vector3d::Constant(1e-4);
        EXPECT_TRUE(contains(p.cast<double>()) || contains(p.cast<double>() - inner) ||
                    contains(p.cast<double>() + inner));
    }
    return all.size();
}

TEST(OctreeQueryRegion, AgreesWithBruteForceAndNamesWhatIsMissing) {
    for (const auto& [name, whole] : treesOfAllKinds()) {
        SCOPED_TRACE(name);
        const Octree partial = partlyLoaded(whole, 17);
        std::mt19937 random(18);
        std::uniform_real_distribution<double> uniform(-20.0, 120.0);
        std::size_t found = 0;
        for (unsigned int i = 0; i < 12; ++i) {
            const double x = uniform(random);
            const double y = uniform(random);
            const Vector3d a(x, y, uniform(random));
            const Vector3d size = Vector3d(30, 5, 60) * (i % 3);
            const Aabb box(a, i == 11 ? Vector3d(INF, INF, INF) : Vector3d(a + size));
            found += expectRegion(
                whole, partial, [&](const OctreeQuery& query) { return query.inBox(box); },
                [&](const Vector3d& p) {
                    return ((p - box.min).array() >= 0.0).all() && ((box.max - p).array() >= 0.0).all();
                });
            const double radius = i == 11 ? INF : 15.0 * (i % 4);
            found += expectRegion(
                whole, partial, [&](const OctreeQuery& query) { return query.inSphere(a, radius); },
                [&](const Vector3d& p) { return (p - a).norm() <= radius; });
            const ViewFrustum frustum = randomCamera(100 + i);
            found += expectRegion(
                whole, partial, [&](const OctreeQuery& query) { return query.inFrustum(frustum); },
                [&](const Vector3d& p) { return frustum.pointInFrustum(p.cast<float>()) == 2; });
        }
        EXPECT_GT(found, name == "one node" ? 8u : 30u);
    }
}

TEST(OctreeQueryRegion, IncludesItsBoundaryAndTakesDegenerateInput) {
    Octree octree = fullTree(numberedCloud(300, 0.0f, 100.0f, 51), 100.0f, 8);
    const OctreeQuery query(octree);
    const Octree::Node& leaf = octree.node(octree.first_leaf());
    const Vector3d p = leaf.pc->positions()[0].cast<double>();
    EXPECT_EQ(query.inBox(Aabb(p, p)).count, 1u);
    EXPECT_EQ(query.inSphere(p, 0.0).count, 1u);
    const Vector3d before(std::nextafter(p.x(), -1.0), p.y(), p.z());
    EXPECT_EQ(query.inBox(Aabb(before, before)).count, 0u);
    EXPECT_EQ(query.inBox(Aabb(p, before)).count, 0u) << "inside out";
    const Vector3d nan(p.x(), NOT_A_NUMBER, p.z());
    EXPECT_EQ(query.inBox(Aabb(nan, Vector3d::Constant(INF))).count, 0u);
    EXPECT_EQ(query.inSphere(nan, 10.0).count, 0u);
    EXPECT_EQ(query.inSphere(p, -1.0).count + query.inSphere(p, NOT_A_NUMBER).count, 0u);
    ViewFrustum frustum = randomCamera(1);
    ViewFrustum::Pose pose = frustum.getPosition();
    pose.translation().x() = std::nanf("");
    frustum.setPosition(pose);
    EXPECT_EQ(query.inFrustum(frustum).count, 0u);
    EXPECT_EQ(OctreeQuery(Octree()).inSphere(p, 10.0).count, 0u);

    const RegionResult all = query.inSphere(Vector3d(50, 50, 50), INF);
    EXPECT_EQ(all.count, 300u);
    octree.node(1).children = 0xff;  // children that the tree does not hold are passed over
    octree.recycle_node(1);
    octree.clear_node(leaf.key);
    PointCloud rest;
    query.extract(all, rest);
    EXPECT_LT(rest.size(), 300u) << "clouds dropped since the search are left out";
}

}  // namespace
