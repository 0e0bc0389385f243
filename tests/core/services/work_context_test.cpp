#include <atomic>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tbb/task_arena.h>

#include <ombrix/core/analysis/curvature_density.h>
#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/analysis/normal_estimator.h>
#include <ombrix/core/octree/dynamic_octree_factory.h>
#include <ombrix/core/octree/full_octree_factory.h>
#include <ombrix/core/octree/nested_octree_factory.h>
#include <ombrix/core/services/work_context.h>

#include "tests/support/octree_checks.h"

namespace {

using namespace ombrix::core;
using ombrix::test::addDistances;
using ombrix::test::expectSameNodes;
using ombrix::test::numberedCloud;

constexpr float EDGE = 100.0f;
const Vector3d SHIFT(0.5, 0.25, -0.125);

const PointCloud& cloudToAdd() {
    static const PointCloud cloud = [] {
        PointCloud made = numberedCloud(120000, 1.0f, 90.0f, 1, 1000);
        addDistances(made);
        return made;
    }();
    return cloud;
}

/// Work on an object that exists anew for each case.
struct Job {
    virtual ~Job() = default;
    virtual bool run(const WorkContext& context) = 0;
    /// The form without a context.
    virtual void runPlain() = 0;
    /// The object is as `other`'s, on which nothing or the same was run.
    virtual void expectSame(Job& other) = 0;
    /// What a stopped run promises, given an object on which nothing was run.
    virtual void expectUntouched(Job& fresh) { expectSame(fresh); }
};

/// The tree of everything in a factory that can build again.
Octree treeOf(FullOctreeFactory& factory) {
    Octree octree;
    factory(octree);
    return octree;
}

void expectSameTrees(const Octree& a, const Octree& b) {
    expectSameNodes(a, b);
    EXPECT_EQ(a.scalarfieldMin(), b.scalarfieldMin());
    EXPECT_EQ(a.scalarfieldMax(), b.scalarfieldMax());
    for (const auto& [key, node] : a.nodes()) {
        const FieldContainer& fields = b.node(key).pc->fields();
        ASSERT_EQ(node.pc->fields().size(), fields.size());
        for (const auto& [name, field] : node.pc->fields()) {
            ASSERT_EQ(node.pc->fields().get<float>(name)->data(), fields.get<float>(name)->data());
        }
    }
}

/// A cloud for a growing tree: the first one, or one that makes the root grow and leaves split.
struct DynamicAdd : Job {
    explicit DynamicAdd(bool isFirst) {
        if (!isFirst) {
            factory.add(numberedCloud(5000, 20.0f, 40.0f, 5));
        }
    }
    bool run(const WorkContext& context) override { return factory.add(cloudToAdd(), SHIFT, context); }
    void runPlain() override { factory.add(cloudToAdd(), SHIFT); }
    void expectSame(Job& other) override {
        auto& theirs = dynamic_cast<DynamicAdd&>(other).factory;
        expectSameTrees(*factory.octree(), *theirs.octree());
        EXPECT_EQ(factory.origin(), theirs.origin());
        EXPECT_EQ(factory.octree()->extend(), theirs.octree()->extend());
        EXPECT_EQ(factory.pc_aabb().min, theirs.pc_aabb().min);
        EXPECT_EQ(factory.droppedPoints(), theirs.droppedPoints());
    }
    void expectUntouched(Job& fresh) override {
        auto& theirs = dynamic_cast<DynamicAdd&>(fresh).factory;
        EXPECT_EQ(scalarsOf(*factory.octree()), scalarsOf(*theirs.octree()));
        EXPECT_EQ(factory.size(), theirs.size());
        EXPECT_EQ(factory.pc_aabb().min, theirs.pc_aabb().min);
        EXPECT_EQ(factory.scalarfieldMax(), theirs.scalarfieldMax());
        EXPECT_EQ(factory.droppedPoints(), theirs.droppedPoints());
        if (theirs.octree()->keyCount() == 0) {
            EXPECT_EQ(factory.octree()->keyCount(), 0u);
            EXPECT_EQ(factory.extend(), theirs.extend());
        }
    }
    /// What tells the points apart, and whether a field came with others.
    static std::multiset<float> scalarsOf(const Octree& octree) {
        std::multiset<float> scalars;
        for (const auto& [key, node] : octree.nodes()) {
            scalars.insert(node.pc->scalars().begin(), node.pc->scalars().end());
            EXPECT_EQ(node.pc->fields().size(), 0u);
            EXPECT_EQ(node.size, node.pc->size());
        }
        return scalars;
    }
    DynamicOctreeFactory factory{500};
};

struct FullAdd : Job {
    FullAdd() { factory.add(numberedCloud(1000, 0.0f, EDGE, 2)); }
    bool run(const WorkContext& context) override { return factory.add(cloudToAdd(), SHIFT, context); }
    void runPlain() override { factory.add(cloudToAdd(), SHIFT); }
    void expectSame(Job& other) override {
        expectSameTrees(treeOf(factory), treeOf(dynamic_cast<FullAdd&>(other).factory));
    }
    FullOctreeFactory factory{Vector3f::Zero(), EDGE, 256};
};

struct FullBuild : Job {
    FullBuild() { factory.add(cloudToAdd()); }
    bool run(const WorkContext& context) override { return factory(octree, context); }
    void runPlain() override { factory(octree); }
    void expectSame(Job& other) override { expectSameTrees(octree, dynamic_cast<FullBuild&>(other).octree); }
    void expectUntouched(Job& fresh) override {
        EXPECT_EQ(octree.keyCount(), 0u);
        expectSameTrees(treeOf(factory), treeOf(dynamic_cast<FullBuild&>(fresh).factory));
    }
    FullOctreeFactory factory{Vector3f::Zero(), EDGE, 32};
    Octree octree;
};

struct NestedAdd : Job {
    bool run(const WorkContext& context) override { return factory.add(cloudToAdd(), SHIFT, context); }
    void runPlain() override { factory.add(cloudToAdd(), SHIFT); }
    void expectSame(Job& other) override {
        Octree a;
        Octree b;
        factory(a);
        dynamic_cast<NestedAdd&>(other).factory(b);
        expectSameTrees(a, b);
    }
    void expectUntouched(Job&) override {
        EXPECT_EQ(factory.size(), 0u);
        EXPECT_GT(factory.scalarfieldMin(), factory.scalarfieldMax());
    }
    NestedOctreeFactory factory{Vector3f::Zero(), EDGE};
};

/// Loses the node-by-node way of a whole cloud.
struct DerivedFactory : NestedOctreeFactory {
    using NestedOctreeFactory::NestedOctreeFactory;
};

struct DerivedNestedAdd : NestedAdd {
    bool run(const WorkContext& context) override { return derived.add(cloudToAdd(), context); }
    void runPlain() override { derived.add(cloudToAdd()); }
    void expectSame(Job& other) override {
        Octree a;
        Octree b;
        derived(a);
        dynamic_cast<DerivedNestedAdd&>(other).derived(b);
        expectSameTrees(a, b);
    }
    void expectUntouched(Job&) override { EXPECT_EQ(derived.size(), 0u); }
    DerivedFactory derived{Vector3f::Zero(), EDGE};
};

struct NestedBuild : Job {
    NestedBuild() { factory.add(cloudToAdd()); }
    bool run(const WorkContext& context) override { return factory(octree, context); }
    void runPlain() override { factory(octree); }
    void expectSame(Job& other) override {
        expectSameTrees(octree, dynamic_cast<NestedBuild&>(other).octree);
        EXPECT_EQ(factory.size(), 0u);
    }
    void expectUntouched(Job&) override {
        EXPECT_EQ(octree.keyCount(), 0u);
        EXPECT_EQ(factory.size(), cloudToAdd().size());
    }
    NestedOctreeFactory factory{Vector3f::Zero(), EDGE};
    Octree octree;
};

struct CloudNormals : Job {
    CloudNormals() { cloud.copyFrom(numberedCloud(20000, 0.0f, EDGE, 3), false); }
    bool run(const WorkContext& context) override { return NormalEstimator::compute(cloud, 8, context); }
    void runPlain() override { NormalEstimator::compute(cloud, 8); }
    void expectSame(Job& other) override {
        const PointCloud& theirs = dynamic_cast<CloudNormals&>(other).cloud;
        ASSERT_EQ(cloud.hasNormals(), theirs.hasNormals());
        EXPECT_TRUE(!cloud.hasNormals() || cloud.normals() == theirs.normals());
    }
    PointCloud cloud;
};

struct TreeNormals : Job {
    TreeNormals() : octree(ombrix::test::fullTree(numberedCloud(20000, 0.0f, EDGE, 3), EDGE, 300)) {}
    bool run(const WorkContext& context) override {
        return NormalEstimator::compute(octree, 8, Octree::MAX_DEPTH, context);
    }
    void runPlain() override { NormalEstimator::compute(octree, 8, Octree::MAX_DEPTH); }
    void expectSame(Job& other) override {
        for (const auto& [key, node] : octree.nodes()) {
            const PointCloud& theirs = *dynamic_cast<TreeNormals&>(other).octree.node(key).pc;
            ASSERT_EQ(node.pc->hasNormals(), theirs.hasNormals());
            ASSERT_TRUE(!theirs.hasNormals() || node.pc->normals() == theirs.normals());
        }
    }
    Octree octree;
};

/// One of the densities: which, and whether the values were there before.
struct Densities : Job {
    explicit Densities(int form) : which(form) { density.values() = {1.0f, 2.0f}; }
    bool run(const WorkContext& context) override {
        switch (which) {
            case 0:
                return density.approximateDensity(points(), tree(), context);
            case 1:
                return density.surfaceDensity(points(), tree(), 3.0f, context);
            case 2:
                return density.surfaceDensity_omp(points(), tree(), 3.0f, context);
            default:
                return density.volumeDensity(points(), tree(), 3.0f, context);
        }
    }
    void runPlain() override {
        switch (which) {
            case 0:
                return density.approximateDensity(points(), tree());
            case 1:
                return density.surfaceDensity(points(), tree(), 3.0f);
            case 2:
                return density.surfaceDensity_omp(points(), tree(), 3.0f);
            default:
                return density.volumeDensity(points(), tree(), 3.0f);
        }
    }
    void expectSame(Job& other) override {
        EXPECT_EQ(density.values(), dynamic_cast<Densities&>(other).density.values());
    }
    static const std::vector<Vector3f>& points() {
        static const PointCloud cloud = numberedCloud(30000, 0.0f, EDGE, 4);
        return cloud.positions();
    }
    static const KDTree& tree() {
        static const KDTree made(points());
        return made;
    }
    int which;
    Density density;
};

struct NamedJob {
    const char* name;
    std::function<std::unique_ptr<Job>()> make;
    friend std::ostream& operator<<(std::ostream& out, const NamedJob& job) { return out << job.name; }
};

class WorkContextJobs : public ::testing::TestWithParam<NamedJob> {};

TEST_P(WorkContextJobs, GiveTheSameResultsAndTellTheirProgress) {
    const auto plain = GetParam().make();
    plain->runPlain();
    const auto job = GetParam().make();
    std::vector<double> told;
    ASSERT_TRUE(job->run({{}, [&](double fraction) { told.push_back(fraction); }, nullptr}));
    job->expectSame(*plain);
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
    ASSERT_GT(told.size(), 4u);
    EXPECT_GE(told.front(), 0.0);
    EXPECT_EQ(told.back(), 1.0);
    EXPECT_EQ(std::count(told.begin(), told.end(), 1.0), 1);
}

TEST_P(WorkContextJobs, LeaveTheirObjectsUsableWhenStopped) {
    const auto fresh = GetParam().make();
    const auto plain = GetParam().make();
    plain->runPlain();
    for (const double at : {-1.0, 0.05, 0.4, 0.8}) {
        SCOPED_TRACE(at);
        const auto job = GetParam().make();
        std::stop_source source;
        if (at < 0.0) {
            source.request_stop();
        }
        std::atomic<bool> after = false;
        const bool done = job->run({source.get_token(),
                                    [&](double fraction) {
                                        after = after || source.stop_requested();
                                        if (fraction >= at) {
                                            source.request_stop();
                                        }
                                    },
                                    nullptr});
        ASSERT_FALSE(done);
        EXPECT_FALSE(after) << "progress was told after the request";
        job->expectUntouched(*fresh);
        job->runPlain();
        const auto again = GetParam().make();
        again->runPlain();
        job->expectSame(*again);
    }
    const auto job = GetParam().make();
    EXPECT_THROW(static_cast<void>(job->run({{}, [](double) { throw std::runtime_error("no"); }, nullptr})),
                 std::runtime_error);
    job->expectUntouched(*fresh);
}

TEST_P(WorkContextJobs, StayInTheArenaOfTheCaller) {
    tbb::task_arena arena(1);
    const auto job = GetParam().make();
    int widest = 0;
    ASSERT_TRUE(job->run({{},
                          [&](double fraction) {
                              if (fraction < 1.0) {
                                  widest = std::max(widest, tbb::this_task_arena::max_concurrency());
                              }
                          },
                          &arena}));
    EXPECT_EQ(widest, 1);
    const auto plain = GetParam().make();
    plain->runPlain();
    job->expectSame(*plain);
}

template <class T>
NamedJob named(const char* name) {
    return {name, [] { return std::make_unique<T>(); }};
}

NamedJob dynamicAdd(const char* name, bool isFirst) {
    return {name, [isFirst] { return std::make_unique<DynamicAdd>(isFirst); }};
}

NamedJob density(const char* name, int which) {
    return {name, [which] { return std::make_unique<Densities>(which); }};
}

INSTANTIATE_TEST_SUITE_P(
    All, WorkContextJobs,
    ::testing::Values(named<FullAdd>("FullAdd"), named<FullBuild>("FullBuild"), named<NestedAdd>("NestedAdd"),
                      named<DerivedNestedAdd>("DerivedNestedAdd"), named<NestedBuild>("NestedBuild"),
                      dynamicAdd("DynamicFirst", true), dynamicAdd("DynamicNext", false),
                      named<CloudNormals>("CloudNormals"), named<TreeNormals>("TreeNormals"),
                      density("ApproximateDensity", 0), density("SurfaceDensity", 1),
                      density("SurfaceDensityOmp", 2), density("VolumeDensity", 3)),
    [](const auto& job) { return std::string(job.param.name); });

}  // namespace
