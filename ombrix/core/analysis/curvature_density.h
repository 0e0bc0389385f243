#pragma once

#include <vector>

#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/color/color.h>
#include <ombrix/core/core_export.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/services/work_context.h>
#include <ombrix/core/types.h>

namespace ombrix::core {

/// Curvature per point, filled by the caller (`PCA::curvature`), and its colours.
class OMBRIX_CORE_API Curvature {
public:
    /// One per point.
    [[nodiscard]] std::vector<float>& values() { return values_; }
    [[nodiscard]] const std::vector<float>& values() const { return values_; }

    /// Smallest and largest value; there must be values.
    [[nodiscard]] float min() const;
    [[nodiscard]] float max() const;

    /// Black for the smallest value to red (255, 0, 0) for the largest, truncated. Equal values have no
    /// scale: all are black.
    ///
    /// Prints "min curv " and the smallest, "max curv " and the largest value to standard output, one line
    /// each. Without values nothing happens.
    ///
    /// @param colors  at least as many as there are values; the others stay as they are.
    void setColor(std::vector<ColorRGB>& colors) const;
    /// Into the cloud's colours, which grow to the number of values where there are less.
    void setColor(PointCloud& cloud) const;

private:
    std::vector<float> values_;
};

/// Density per point and its colours.
///
/// The operations over points take the points that the tree indexes and replace the values by one per
/// point. A position that is not finite has no neighbours.
class OMBRIX_CORE_API Density {
public:
    /// One per point.
    [[nodiscard]] std::vector<float>& values() { return values_; }
    [[nodiscard]] const std::vector<float>& values() const { return values_; }

    /// Smallest and largest value; there must be values.
    [[nodiscard]] float min() const;
    [[nodiscard]] float max() const;

    /// Euclidean distance sqrt(dy² + dz² + dx²), in this order.
    [[nodiscard]] static float dist(const Vector3f& a, const Vector3f& b);

    /// Distance to the nearest other point: 0 for a duplicate, and for a point without any other.
    /// @throws std::runtime_error when the tree has no index, as all three.
    void approximateDensity(const std::vector<Vector3f>& pts, const KDTree& tree);
    /// The same within a context. When stopped, they answer false and the values are as they were.
    [[nodiscard]] bool approximateDensity(const std::vector<Vector3f>& pts, const KDTree& tree,
                                          const WorkContext& context);

    /// Points nearer than r, itself included, over the disc's area: n / (pi r²), per squared unit.
    void surfaceDensity(const std::vector<Vector3f>& pts, const KDTree& tree, float r);
    /// The same values, computed on several threads.
    void surfaceDensity_omp(const std::vector<Vector3f>& pts, const KDTree& tree, float r);
    [[nodiscard]] bool surfaceDensity(const std::vector<Vector3f>& pts, const KDTree& tree, float r,
                                      const WorkContext& context);
    [[nodiscard]] bool surfaceDensity_omp(const std::vector<Vector3f>& pts, const KDTree& tree, float r,
                                          const WorkContext& context);

    /// Points nearer than r, itself included, over the ball's volume: n / (4/3 pi r³), per cubic unit.
    void volumeDensity(const std::vector<Vector3f>& pts, const KDTree& tree, float r);
    [[nodiscard]] bool volumeDensity(const std::vector<Vector3f>& pts, const KDTree& tree, float r,
                                     const WorkContext& context);

    /// By hue, at saturation and value 70: 0 degrees (red) for the lowest density, 120 (green) for the
    /// highest. Those channels exceed their range of [0, 1] on purpose, so the stored colour is what
    /// `ColorHSV::HSVToRGB` wraps them to. The largest value counts as 0 where all are negative, on purpose.
    ///
    /// Prints "min density " and the smallest, "max density " and the largest value to standard output, one
    /// line each.
    ///
    /// @param colors  at least as many as there are values; the others stay as they are.
    void setColor(std::vector<ColorRGB>& colors) const;
    /// Into the cloud's colours, which grow to the number of values where there are less.
    void setColor(PointCloud& cloud) const;

private:
    std::vector<float> values_;
};

}  // namespace ombrix::core
