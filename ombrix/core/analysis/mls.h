#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/core_export.h>
#include <ombrix/core/types.h>

namespace ombrix::core {

/// Projection of points onto the smooth surface that their neighbours describe, by moving least squares: the
/// neighbours' weighted mean and principal plane, again and again until the step is small.
///
/// Keeps references to the positions and to the tree over them; both must outlive it. Projections of
/// several points may run at once.
///
/// Source: Alexa et al., "Computing and Rendering Point Set Surfaces", IEEE TVCG 9, 2003; weighted mean and
/// plane as in Pauly, Keiser, Kobbelt, Gross, "Shape Modeling with Point-Sampled Geometry", SIGGRAPH 2003.
class OMBRIX_CORE_API QuasiMLS {
public:
    /// With epsilon 1e-5 and 10 as the greatest number of iterations.
    QuasiMLS(const std::vector<Vector3f>& pts, const KDTree& tree);

    /// Length of a step, in units of position, at which the projection ends.
    void setEpsilon(float epsilon) { epsilon_ = epsilon; }
    /// One iteration more than this is done at most, on purpose: 0 still does one.
    void setMaxIter(unsigned int maxIter) { maxIter_ = maxIter; }

    /// p moved along the normals of the surface of its k nearest neighbours, which are searched once.
    ///
    /// Weights are exp(-d² / h²), h a third of the distance to the farthest neighbour. Takes k >= 3 to be a
    /// plane. p stays as it is without neighbours, or where all of them coincide with it.
    [[nodiscard]] Vector3f projection(const Vector3f& p, unsigned int k) const;

    /// (1 - d)^4 (4d + 1) for d <= 1, else 0; d >= 0 has no unit.
    /// Source: Wendland, "Piecewise polynomial, positive definite and compactly supported radial functions
    /// of minimal degree", Advances in Computational Mathematics 4, 1995.
    [[nodiscard]] static float wendland_weight(float d);
    /// exp(-d² / h²) for d <= 1, else 0.
    [[nodiscard]] static float trunc_gaussian_weight(float d, float h);

    /// sum w q / sum w over the positions with the listed indices; w[j] belongs to indices[j].
    [[nodiscard]] Vector3f getWeightedAverage(const std::vector<std::size_t>& indices,
                                              const std::vector<float>& w) const;
    /// The principal axis of least extent about a centre, as the solver yields it: not negated as
    /// `NormalEstimator`'s normals are.
    [[nodiscard]] Vector3f getLocalNormal(const Vector3f& centre, const std::vector<std::size_t>& indices,
                                          const std::vector<float>& w) const;

protected:
    /// `getWeightedAverage` and `getLocalNormal`, over points at hand or the positions with listed indices.
    [[nodiscard]] Vector3f weighted_average(const std::vector<Vector3f>& pts,
                                            const std::vector<float>& w) const;
    [[nodiscard]] Vector3f weighted_average(const std::vector<std::size_t>& indices,
                                            const std::vector<float>& w) const;
    [[nodiscard]] Vector3f local_normal(const Vector3f& centre, const std::vector<Vector3f>& pts,
                                        const std::vector<float>& w) const;
    [[nodiscard]] Vector3f local_normal(const Vector3f& centre, const std::vector<std::size_t>& indices,
                                        const std::vector<float>& w) const;

private:
    const std::vector<Vector3f>* points_;  ///< owned by the caller
    const KDTree* tree_;                   ///< owned by the caller
    float epsilon_ = 1e-5f;
    std::uint32_t maxIter_ = 10;
};

}  // namespace ombrix::core
