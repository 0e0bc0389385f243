#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <numeric>

#include <gtest/gtest.h>
#include <Eigen/LU>

#include <ombrix/core/analysis/pca.h>

#include <tests/support/sample_clouds.h>

namespace ombrix::test {
namespace {

using namespace ombrix::core;

/// Weighted covariance in double about a centre, or about the weighted mean, straight from the definition.
Eigen::Matrix3d covariance(const Points& pts, const std::vector<float>& w, const Vector3f* about = nullptr) {
    const double total = std::accumulate(w.begin(), w.end(), 0.0);
    Vector3d centre = Vector3d::Zero();
    for (std::size_t i = 0; i < pts.size(); ++i) {
        centre += static_cast<double>(w[i]) / total * pts[i].cast<double>();
    }
    if (about != nullptr) {
        centre = about->cast<double>();
    }
    Eigen::Matrix3d sum = Eigen::Matrix3d::Zero();
    for (std::size_t i = 0; i < pts.size(); ++i) {
        const Vector3d d = pts[i].cast<double>() - centre;
        sum += static_cast<double>(w[i]) / total * d * d.transpose();
    }
    return sum;
}

/// Ascending eigenvalues in closed form. Source: Smith, "Eigenvalues of a symmetric 3 x 3 matrix",
/// Communications of the ACM 4, 1961.
std::array<double, 3> closedForm(const Eigen::Matrix3d& a) {
    const double q = a.trace() / 3.0;
    const Eigen::Matrix3d b = a - q * Eigen::Matrix3d::Identity();
    const double p = std::sqrt(b.squaredNorm() / 6.0);
    if (p == 0.0) {
        return {q, q, q};
    }
    const double phi = std::acos(std::clamp((b / p).determinant() / 2.0, -1.0, 1.0)) / 3.0;
    const double largest = q + 2.0 * p * std::cos(phi);
    const double smallest = q + 2.0 * p * std::cos(phi + 2.0 * std::numbers::pi / 3.0);
    return {smallest, 3.0 * q - largest - smallest, largest};
}

template <class Axes>
void expectDecomposes(Axes axes, const Eigen::Matrix3d& matrix) {
    axes.sort();
    const std::array<double, 3> expected = closedForm(matrix);
    const double rounding = 2e-6 * expected[2];
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(axes.eigenValue(i), expected[static_cast<std::size_t>(i)], rounding);
        const Vector3d v = axes.eigenVector(i).template cast<double>();
        EXPECT_NEAR(v.norm(), 1.0, 2e-6);
        EXPECT_LE((matrix * v - static_cast<double>(axes.eigenValue(i)) * v).norm(), 2.0 * rounding);
    }
    EXPECT_NEAR(axes.curvature(), expected[0] / (expected[0] + expected[1] + expected[2]), 1e-6);
}

std::vector<Point> asPoints(const Points& positions) {
    std::vector<Point> points(positions.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
        points[i].position = positions[i];
    }
    return points;
}

TEST(PCA, AllFormsDecomposeTheirCovariance) {
    for (unsigned int seed = 0; seed < 20; ++seed) {
        // Flat neighbourhoods far from the origin, where sums in float would be lost.
        Points all = uniformPoints(40, 1.0f, seed);
        for (Vector3f& p : all) {
            p = p.cwiseProduct(Vector3f(4.0f, 2.0f, 0.125f)) + Vector3f(1e5f, -2e4f, 300.0f);
        }
        std::vector<std::size_t> indices(25);
        std::iota(indices.begin(), indices.end(), std::size_t{9});
        Points part;
        std::vector<float> w;
        for (const std::size_t i : indices) {
            part.push_back(all[i]);
            w.push_back(0.25f + static_cast<float>(i % 7));
        }
        const Eigen::Matrix3d ofAll = covariance(all, std::vector<float>(40, 1.0f));
        const Eigen::Matrix3d ofPart = covariance(part, std::vector<float>(25, 1.0f));
        const Vector3f centre = all[3];

        PCA pca;
        EigenPCA eigen;
        pca.compute(all);
        expectDecomposes(pca, ofAll);
        eigen.compute(all);
        expectDecomposes(eigen, ofAll);
        pca.compute(all, indices);
        expectDecomposes(pca, ofPart);
        eigen.compute(all, indices);
        expectDecomposes(eigen, ofPart);
        pca.compute(asPoints(part));
        expectDecomposes(pca, ofPart);
        pca.compute(asPoints(all), indices);
        expectDecomposes(pca, ofPart);
        pca.compute(centre, part, w);
        expectDecomposes(pca, covariance(part, w, &centre));
        pca.compute(centre, all, indices, w);
        expectDecomposes(pca, covariance(part, w, &centre));
        pca.compute(all, indices, w);
        expectDecomposes(pca, covariance(part, w));
    }
}

TEST(PCA, DegenerateNeighbourhoods) {
    PCA pca;
    pca.compute(equalPoints(9));
    pca.sort();
    EXPECT_EQ(pca.eigenValue(2), 0.0f);
    EXPECT_EQ(pca.eigenVector(0), Vector3f::UnitX()) << "ties keep their order";
    EXPECT_EQ(pca.eigenVector(2), Vector3f::UnitZ());
    EXPECT_TRUE(std::isnan(pca.curvature()));

    pca.compute(planePoints(50));
    const float smallest = std::min({pca.eigenValue(0), pca.eigenValue(1), pca.eigenValue(2)});
    EXPECT_EQ(smallest, 0.0f);
    EXPECT_EQ(pca.curvature(), 0.0f);
    pca.sort();
    EXPECT_EQ(pca.eigenVector(0).cwiseAbs(), Vector3f::UnitZ());

    const Vector3f before = pca.eigenVector(1);
    pca.compute(Points());
    EXPECT_EQ(pca.eigenVector(1), before) << "no points, no change";
}

TEST(PCA, SolverReportsWhatDoesNotConverge) {
    struct Solver : PCA {
        using PCA::solve;
    };
    Solver solver;
    float good[] = {2.0f, 1.0f, 0.0f, 1.0f, 2.0f, 0.0f, 0.0f, 0.0f, 5.0f};
    EXPECT_EQ(solver.solve(good), 0);
    float bad[9];
    std::fill(std::begin(bad), std::end(bad), std::numeric_limits<float>::quiet_NaN());
    EXPECT_EQ(solver.solve(bad), 1);
}

}  // namespace
}  // namespace ombrix::test
