#include <Eigen/Eigenvalues>

#include <ombrix/core/analysis/covariance_detail.h>
#include <ombrix/core/analysis/pca.h>

namespace ombrix::core {
namespace {

template <class Position>
void decompose(std::size_t n, const Position& position, Vector3f& values, Eigen::Matrix3f& vectors) {
    if (n == 0) {
        return;
    }
    const Vector3d mean = detail::weightedMean(n, position, detail::EqualWeights{});
    const std::array<float, 9> matrix = detail::covarianceAbout(mean, n, position, detail::EqualWeights{});
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3f> solver(
        Eigen::Map<const Eigen::Matrix3f>(matrix.data()));
    values = solver.eigenvalues();
    vectors = solver.eigenvectors();
}

}  // namespace

void EigenPCA::compute(const std::vector<Vector3f>& pts) {
    const auto position = [&](std::size_t j) -> const Vector3f& { return pts[j]; };
    decompose(pts.size(), position, values_, vectors_);
}

void EigenPCA::compute(const std::vector<Vector3f>& pts, const std::vector<std::size_t>& indices) {
    const auto position = [&](std::size_t j) -> const Vector3f& { return pts[indices[j]]; };
    decompose(indices.size(), position, values_, vectors_);
}

float EigenPCA::curvature() const {
    return values_.minCoeff() / values_.sum();
}

}  // namespace ombrix::core
