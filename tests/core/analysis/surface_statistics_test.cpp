#include <cmath>

#include <gtest/gtest.h>
#include <tbb/global_control.h>

#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/analysis/mls.h>
#include <ombrix/core/analysis/noise.h>
#include <ombrix/core/analysis/resolution.h>
#include <ombrix/core/analysis/statistical_outliers.h>
#include <ombrix/core/points/point_cloud.h>

#include <tests/support/sample_clouds.h>

namespace ombrix::test {
namespace {

using namespace ombrix::core;

TEST(QuasiMLS, Weights) {
    EXPECT_EQ(QuasiMLS::wendland_weight(0.0f), 1.0f);
    EXPECT_EQ(QuasiMLS::wendland_weight(0.5f), 0.1875f);  // (1/2)^4 * 3
    EXPECT_EQ(QuasiMLS::wendland_weight(1.0f), 0.0f);
    EXPECT_EQ(QuasiMLS::wendland_weight(1.5f), 0.0f);
    EXPECT_FLOAT_EQ(QuasiMLS::trunc_gaussian_weight(0.5f, 0.25f), std::exp(-4.0f));
    EXPECT_GT(QuasiMLS::trunc_gaussian_weight(1.0f, 1.0f), 0.0f);
    EXPECT_EQ(QuasiMLS::trunc_gaussian_weight(1.01f, 1.0f), 0.0f);
}

TEST(QuasiMLS, ProjectsOntoPlaneAndSphere) {
    const Points plane = planePoints(500);
    const KDTree planeTree(plane);
    QuasiMLS onPlane(plane, planeTree);
    EXPECT_EQ(onPlane.projection(plane[7], 12), plane[7]) << "already there";
    const Vector3f above = onPlane.projection({5.0f, 5.0f, 4.5f}, 12);
    EXPECT_LT((above - Vector3f(5.0f, 5.0f, 4.0f)).norm(), 1e-5f);
    EXPECT_EQ(onPlane.projection(plane[7], 1), plane[7]) << "no extent, no surface";
    EXPECT_EQ(onPlane.projection(plane[7], 0), plane[7]);

    Points sphere = uniformPoints(5000, 2.0f, 6);
    for (Vector3f& p : sphere) {
        p = (p - Vector3f::Ones()).normalized();
    }
    const KDTree tree(sphere);
    QuasiMLS onSphere(sphere, tree);
    for (std::size_t i = 0; i < 50; ++i) {
        const Vector3f p = 1.02f * sphere[i];
        const float full = std::abs(onSphere.projection(p, 20).norm() - 1.0f);
        EXPECT_LT(full, 0.006f);
    }
}

TEST(QuasiMLS, OneIterationMoreThanAskedFor) {
    const Points points = uniformPoints(300, 1.0f);
    const KDTree tree(points);
    QuasiMLS mls(points, tree);
    const Vector3f p(0.4f, 0.6f, 0.5f);
    std::vector<std::size_t> indices;
    std::vector<float> sqDists;
    tree.knnSearch(p, 10, indices, sqDists);

    Vector3f expected = p;
    mls.setEpsilon(0.0f);
    for (unsigned int maxIter = 0; maxIter < 3; ++maxIter) {
        std::vector<float> w;
        for (const std::size_t i : indices) {
            w.push_back(std::exp(-(expected - points[i]).squaredNorm() * 9.0f / sqDists.back()));
        }
        const Vector3f a = mls.getWeightedAverage(indices, w);
        const Vector3f n = mls.getLocalNormal(a, indices, w);
        expected -= (expected - a).dot(n) * n;
        mls.setMaxIter(maxIter);
        EXPECT_LT((mls.projection(p, 10) - expected).norm(), 1e-6f) << maxIter;
    }
    const Points corners = {Vector3f::Zero(), Vector3f::UnitX(), Vector3f::UnitY()};
    const KDTree cornerTree(corners);
    const QuasiMLS flat(corners, cornerTree);
    EXPECT_EQ(flat.getWeightedAverage({1, 2}, {3.0f, 1.0f}), Vector3f(0.75f, 0.25f, 0.0f));
    EXPECT_EQ(flat.getLocalNormal(Vector3f::Zero(), {1, 2}, {3.0f, 1.0f}), Vector3f::UnitZ())
        << "not negated";
}

TEST(ResolutionEstimator, AgreesWithBruteForceOnAnyNumberOfThreads) {
    for (const Points& points :
         {uniformPoints(600, 1.0f), latticePoints(300, 4), clusteredPoints(200), uniformPoints(2, 1.0f)}) {
        for (const unsigned int k : {1u, 5u, 1000u}) {
            double sum = 0.0;
            double squares = 0.0;
            for (const Vector3f& p : points) {
                const auto sorted = bruteForce(points, p);
                const std::size_t others = std::min<std::size_t>(k, points.size() - 1);
                double mean = 0.0;
                for (std::size_t j = 1; j <= others; ++j) {
                    mean += std::sqrt(static_cast<double>(sorted[j].second)) / static_cast<double>(others);
                }
                sum += mean;
                squares += mean * mean;
            }
            const double n = static_cast<double>(points.size());
            const auto found = ResolutionEstimator::statistical_mean_dist(points, k);
            EXPECT_NEAR(found.first, sum / n, 1e-5 * sum / n);
            EXPECT_NEAR(found.second, squares / n - sum / n * sum / n, 1e-5 * squares / n);
            const tbb::global_control single(tbb::global_control::max_allowed_parallelism, 1);
            EXPECT_EQ(ResolutionEstimator::statistical_mean_dist(points, k), found);
        }
        EXPECT_EQ(ResolutionEstimator::mean_dist(points),
                  ResolutionEstimator::statistical_mean_dist(points, 1));
    }
    const std::pair<float, float> nothing(0.0f, 0.0f);
    EXPECT_EQ(ResolutionEstimator::mean_dist(Points()), nothing);
    EXPECT_EQ(ResolutionEstimator::mean_dist(equalPoints(1)), nothing);
    EXPECT_EQ(ResolutionEstimator::mean_dist(equalPoints(4)), nothing);
    EXPECT_EQ(ResolutionEstimator::statistical_mean_dist(uniformPoints(9, 1.0f), 0), nothing);
}

TEST(ResolutionEstimator, PointsWithoutNeighboursDoNotCount) {
    Points points = {{0.0f, 0.0f, 0.0f}, {3.0f, 4.0f, 0.0f}};
    const std::pair<float, float> five(5.0f, 0.0f);
    EXPECT_EQ(ResolutionEstimator::mean_dist(points), five);
    points.push_back(Vector3f::Constant(std::numeric_limits<float>::quiet_NaN()));
    EXPECT_EQ(ResolutionEstimator::mean_dist(points), five);
}

TEST(StatisticalOutliers, FindsThePlantedPoints) {
    Points points = uniformPoints(2000, 10.0f);
    points[77] = {40.0f, 5.0f, 5.0f};
    points[1500] = {-20.0f, 5.0f, 5.0f};
    points[300].x() = std::numeric_limits<float>::infinity();
    EXPECT_EQ(StatisticalOutliers::find(points, 8, 6.0f), (std::vector<std::uint64_t>{77, 300, 1500}));
    EXPECT_GT(StatisticalOutliers::find(points, 8, 0.1f).size(), 3u);
    EXPECT_TRUE(StatisticalOutliers::find(points, 0, 1.0f).empty());
    EXPECT_TRUE(StatisticalOutliers::find(equalPoints(1), 8, 1.0f).empty());
}

TEST(Noise, IsGaussianAndRepeatsWithItsSeed) {
    constexpr std::size_t N = 60000;
    const auto noisy = [](float sigma, auto... seed) {
        PointCloud cloud;
        cloud.positions().assign(N, Vector3f::Zero());
        Noise::addGaussianNoise(cloud, sigma, seed...);
        return cloud.positions();
    };
    const Points sample = noisy(0.5f, 42u);
    Vector3d mean = Vector3d::Zero();
    Eigen::Matrix3d covariance = Eigen::Matrix3d::Zero();
    double fourth = 0.0;
    for (const Vector3f& p : sample) {
        const Vector3d d = p.cast<double>() / 0.5;
        mean += d / static_cast<double>(N);
        covariance += d * d.transpose() / static_cast<double>(N);
        fourth += d.array().pow(4).sum() / (3.0 * static_cast<double>(N));
    }
    // Five standard errors of each estimate
    const double error = 5.0 / std::sqrt(static_cast<double>(N));
    EXPECT_LT(mean.cwiseAbs().maxCoeff(), error);
    EXPECT_LT((covariance - Eigen::Matrix3d::Identity()).cwiseAbs().maxCoeff(), 1.5 * error);
    EXPECT_NEAR(fourth, 3.0, 6.0 * error);

    EXPECT_EQ(noisy(0.5f, 42u), sample);
    EXPECT_NE(noisy(0.5f, 43u), sample);
    EXPECT_NE(noisy(0.5f), noisy(0.5f)) << "differs from call to call";
    EXPECT_EQ(noisy(0.0f), Points(N, Vector3f::Zero()));
}

}  // namespace
}  // namespace ombrix::test
