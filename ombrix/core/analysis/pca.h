#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include <Eigen/Core>

#include <ombrix/core/core_export.h>
#include <ombrix/core/points/point.h>
#include <ombrix/core/types.h>

namespace ombrix::core {

/// Principal axes of a neighbourhood: eigenvalues and eigenvectors of its 3x3 covariance matrix.
///
/// The covariance is formed in double and rounded once, so that a neighbourhood far from the origin loses
/// nothing but what its coordinates lost; the decomposition is in single precision. `compute` leaves the
/// pairs unsorted. Over no points it leaves the object as it is; a new object holds zero eigenvalues and
/// the coordinate axes. Indices and the lengths of parallel arrays are not checked.
class OMBRIX_CORE_API PCA {
public:
    /// About the mean m: (1/n) sum (p - m)(p - m)^T. Coincident points give three zeros and the axes.
    void compute(const std::vector<Vector3f>& pts);
    void compute(const std::vector<Vector3f>& pts, const std::vector<std::size_t>& indices);
    void compute(const std::vector<Point>& pts);
    void compute(const std::vector<Point>& pts, const std::vector<std::size_t>& indices);

    /// About a given centre: sum w (p - centre)(p - centre)^T / sum w, where w[j] belongs to pts[j], or to
    /// pts[indices[j]]. A sum of weights of 0 gives NaN.
    void compute(const Vector3f& centre, const std::vector<Vector3f>& pts, const std::vector<float>& w);
    void compute(const Vector3f& centre, const std::vector<Vector3f>& pts,
                 const std::vector<std::size_t>& indices, const std::vector<float>& w);
    /// About the weighted mean sum w p / sum w.
    void compute(const std::vector<Vector3f>& pts, const std::vector<std::size_t>& indices,
                 const std::vector<float>& w);

    /// Orders the pairs by ascending eigenvalue; equal ones keep their order.
    void sort();

    /// In squared units of position; i in [0, 2], after `sort` the smallest is 0.
    [[nodiscard]] float eigenValue(int i) const { return values_[static_cast<std::size_t>(i)]; }
    /// Eigenvector of `eigenValue(i)`, of length 1 within rounding.
    [[nodiscard]] const Vector3f& eigenVector(int i) const { return vectors_[static_cast<std::size_t>(i)]; }

    /// Surface variation l0 / (l0 + l1 + l2), l0 the smallest; sorted or not.
    ///
    /// Source: Pauly, Gross, Kobbelt, "Efficient Simplification of Point-Sampled Surfaces", IEEE
    /// Visualization 2002.
    ///
    /// @return  no unit: 0 on a plane, 1/3 when no direction stands out; NaN when all three are 0.
    [[nodiscard]] float curvature() const;

protected:
    /// Decomposes a symmetric matrix of nine floats, row by row, and stores the result.
    ///
    /// Cyclic Jacobi rotations in single precision. Source: Rutishauser, "The Jacobi Method for Real
    /// Symmetric Matrices", Numerische Mathematik 9, 1966.
    ///
    /// @return  0, or 1 when 50 sweeps were not enough; the values of the last sweep are stored then.
    int solve(const float* matrix);

private:
    std::array<float, 3> values_{};
    std::array<Vector3f, 3> vectors_{Vector3f::UnitX(), Vector3f::UnitY(), Vector3f::UnitZ()};
};

/// The same principal axes through Eigen's self-adjoint solver. Eigenvectors agree with those of `PCA` up to
/// their sign.
class OMBRIX_CORE_API EigenPCA {
public:
    /// About the mean, as `PCA::compute`.
    void compute(const std::vector<Vector3f>& pts);
    void compute(const std::vector<Vector3f>& pts, const std::vector<std::size_t>& indices);

    /// Nothing is left to do: `compute` gives ascending eigenvalues. Here for code that takes either class.
    void sort() {}

    /// Ascending, in squared units of position.
    [[nodiscard]] const Vector3f& eigenValues() const { return values_; }
    /// One eigenvector per column.
    [[nodiscard]] const Eigen::Matrix3f& eigenVectors() const { return vectors_; }
    /// Pair i in [0, 2].
    [[nodiscard]] float eigenValue(int i) const { return values_[i]; }
    [[nodiscard]] Vector3f eigenVector(int i) const { return vectors_.col(i); }
    /// As `PCA::curvature`.
    [[nodiscard]] float curvature() const;

private:
    Vector3f values_ = Vector3f::Zero();
    Eigen::Matrix3f vectors_ = Eigen::Matrix3f::Identity();
};

}  // namespace ombrix::core
