#pragma once

#include <array>
#include <cstddef>

#include <ombrix/core/types.h>

namespace ombrix::core::detail {

/// Running sums of a symmetric 3x3 matrix in double.
class Covariance {
public:
    void add(double x, double y, double z, double weight) {
        xx_ += weight * x * x;
        xy_ += weight * x * y;
        xz_ += weight * x * z;
        yy_ += weight * y * y;
        yz_ += weight * y * z;
        zz_ += weight * z * z;
    }

    /// The sums over `total`, row by row.
    [[nodiscard]] std::array<float, 9> over(double total) const {
        const auto at = [total](double sum) { return static_cast<float>(sum / total); };
        return {at(xx_), at(xy_), at(xz_), at(xy_), at(yy_), at(yz_), at(xz_), at(yz_), at(zz_)};
    }

private:
    double xx_ = 0.0, xy_ = 0.0, xz_ = 0.0, yy_ = 0.0, yz_ = 0.0, zz_ = 0.0;
};

/// Weight of the unweighted forms.
struct EqualWeights {
    double operator()(std::size_t) const { return 1.0; }
};

/// sum w p / sum w over n > 0 points: position(j) gives a `Vector3f`, weight(j) a number.
template <class Position, class Weight>
[[nodiscard]] Vector3d weightedMean(std::size_t n, const Position& position, const Weight& weight) {
    double x = 0.0, y = 0.0, z = 0.0, total = 0.0;
    for (std::size_t j = 0; j < n; ++j) {
        const Vector3f& p = position(j);
        const double w = weight(j);
        x += w * static_cast<double>(p.x());
        y += w * static_cast<double>(p.y());
        z += w * static_cast<double>(p.z());
        total += w;
    }
    return {x / total, y / total, z / total};
}

/// sum w (p - centre)(p - centre)^T / sum w over n > 0 points, row by row.
template <class Position, class Weight>
[[nodiscard]] std::array<float, 9> covarianceAbout(const Vector3d& centre, std::size_t n,
                                                   const Position& position, const Weight& weight) {
    Covariance sums;
    double total = 0.0;
    for (std::size_t j = 0; j < n; ++j) {
        const Vector3f& p = position(j);
        const double w = weight(j);
        sums.add(static_cast<double>(p.x()) - centre.x(), static_cast<double>(p.y()) - centre.y(),
                 static_cast<double>(p.z()) - centre.z(), w);
        total += w;
    }
    return sums.over(total);
}

}  // namespace ombrix::core::detail
