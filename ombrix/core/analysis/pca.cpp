#include <algorithm>
#include <cmath>

#include <ombrix/core/analysis/covariance_detail.h>
#include <ombrix/core/analysis/pca.h>

namespace ombrix::core {
namespace {

constexpr int MAX_SWEEPS = 50;

void rotate(float& first, float& second, float s, float tau) {
    const float g = first;
    const float h = second;
    first = g - s * (h + g * tau);
    second = h + s * (g - h * tau);
}

/// Zeroes a[p][q] by a rotation in the plane (p, q), p < q.
void annihilate(float (&a)[3][3], float (&d)[3], float (&z)[3], float (&v)[3][3], int p, int q, float g) {
    float h = d[q] - d[p];
    float t;
    if (std::abs(h) + g == std::abs(h)) {
        t = a[p][q] / h;
    } else {
        const float theta = 0.5f * h / a[p][q];
        t = 1.0f / (std::abs(theta) + std::sqrt(1.0f + theta * theta));
        t = theta < 0.0f ? -t : t;
    }
    const float c = 1.0f / std::sqrt(1.0f + t * t);
    const float s = t * c;
    const float tau = s / (1.0f + c);
    h = t * a[p][q];
    z[p] -= h;
    z[q] += h;
    d[p] -= h;
    d[q] += h;
    a[p][q] = 0.0f;
    // The third row and column: only the entries above the diagonal are kept up.
    const int j = 3 - p - q;
    rotate(j < p ? a[j][p] : a[p][j], j < q ? a[j][q] : a[q][j], s, tau);
    for (auto& row : v) {
        rotate(row[p], row[q], s, tau);
    }
}

/// Eigenvalues d and eigenvectors (columns of v) of a symmetric matrix. @return 0, 1 without convergence.
int jacobi(float (&a)[3][3], float (&d)[3], float (&v)[3][3]) {
    float b[3];
    float z[3] = {0.0f, 0.0f, 0.0f};
    for (int p = 0; p < 3; ++p) {
        for (int q = 0; q < 3; ++q) {
            v[p][q] = p == q ? 1.0f : 0.0f;
        }
        b[p] = d[p] = a[p][p];
    }
    for (int sweep = 1; sweep <= MAX_SWEEPS; ++sweep) {
        const float sm = std::abs(a[0][1]) + std::abs(a[0][2]) + std::abs(a[1][2]);
        if (sm == 0.0f) {
            return 0;
        }
        const float threshold = sweep < 4 ? 0.2f * sm / 9.0f : 0.0f;
        for (int p = 0; p < 2; ++p) {
            for (int q = p + 1; q < 3; ++q) {
                const float g = 100.0f * std::abs(a[p][q]);
                if (sweep > 4 && std::abs(d[p]) + g == std::abs(d[p]) &&
                    std::abs(d[q]) + g == std::abs(d[q])) {
                    a[p][q] = 0.0f;
                } else if (std::abs(a[p][q]) > threshold) {
                    annihilate(a, d, z, v, p, q, g);
                }
            }
        }
        for (int p = 0; p < 3; ++p) {
            b[p] += z[p];
            d[p] = b[p];
            z[p] = 0.0f;
        }
    }
    return 1;
}

const Vector3f& positionOf(const Vector3f& p) {
    return p;
}

const Vector3f& positionOf(const Point& p) {
    return p.position;
}

template <class P>
auto each(const std::vector<P>& pts) {
    return [&pts](std::size_t j) -> const Vector3f& { return positionOf(pts[j]); };
}

template <class P>
auto selected(const std::vector<P>& pts, const std::vector<std::size_t>& indices) {
    return [&](std::size_t j) -> const Vector3f& { return positionOf(pts[indices[j]]); };
}

auto weights(const std::vector<float>& w) {
    return [&w](std::size_t j) { return static_cast<double>(w[j]); };
}

template <class Position, class Weight>
std::array<float, 9> covarianceAboutMean(std::size_t n, const Position& position, const Weight& weight) {
    return detail::covarianceAbout(detail::weightedMean(n, position, weight), n, position, weight);
}

}  // namespace

void PCA::compute(const std::vector<Vector3f>& pts) {
    if (!pts.empty()) {
        solve(covarianceAboutMean(pts.size(), each(pts), detail::EqualWeights{}).data());
    }
}

void PCA::compute(const std::vector<Vector3f>& pts, const std::vector<std::size_t>& indices) {
    if (!indices.empty()) {
        solve(covarianceAboutMean(indices.size(), selected(pts, indices), detail::EqualWeights{}).data());
    }
}

void PCA::compute(const std::vector<Point>& pts) {
    if (!pts.empty()) {
        solve(covarianceAboutMean(pts.size(), each(pts), detail::EqualWeights{}).data());
    }
}

void PCA::compute(const std::vector<Point>& pts, const std::vector<std::size_t>& indices) {
    if (!indices.empty()) {
        solve(covarianceAboutMean(indices.size(), selected(pts, indices), detail::EqualWeights{}).data());
    }
}

void PCA::compute(const Vector3f& centre, const std::vector<Vector3f>& pts, const std::vector<float>& w) {
    if (!pts.empty()) {
        solve(detail::covarianceAbout(centre.cast<double>(), pts.size(), each(pts), weights(w)).data());
    }
}

void PCA::compute(const Vector3f& centre, const std::vector<Vector3f>& pts,
                  const std::vector<std::size_t>& indices, const std::vector<float>& w) {
    if (!indices.empty()) {
        solve(
            detail::covarianceAbout(centre.cast<double>(), indices.size(), selected(pts, indices), weights(w))
                .data());
    }
}

void PCA::compute(const std::vector<Vector3f>& pts, const std::vector<std::size_t>& indices,
                  const std::vector<float>& w) {
    if (!indices.empty()) {
        solve(covarianceAboutMean(indices.size(), selected(pts, indices), weights(w)).data());
    }
}

void PCA::sort() {
    // By insertion: equal values keep their order, and a NaN does no harm.
    for (std::size_t i = 1; i < 3; ++i) {
        for (std::size_t j = i; j > 0 && values_[j] < values_[j - 1]; --j) {
            std::swap(values_[j], values_[j - 1]);
            std::swap(vectors_[j], vectors_[j - 1]);
        }
    }
}

float PCA::curvature() const {
    return std::min({values_[0], values_[1], values_[2]}) / (values_[0] + values_[1] + values_[2]);
}

int PCA::solve(const float* matrix) {
    float a[3][3];
    float v[3][3];
    float d[3];
    std::copy_n(matrix, 9, &a[0][0]);
    const int result = jacobi(a, d, v);
    for (std::size_t i = 0; i < 3; ++i) {
        values_[i] = d[i];
        vectors_[i] = {v[0][i], v[1][i], v[2][i]};
    }
    return result;
}

}  // namespace ombrix::core
