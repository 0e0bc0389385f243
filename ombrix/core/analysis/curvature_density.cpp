#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <limits>
#include <numbers>
#include <string_view>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <ombrix/core/analysis/curvature_density.h>
#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/core/analysis/spatial_order_detail.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/services/work_detail.h>

namespace ombrix::core {
namespace {

/// A line of label and number, as a stream's default format writes it, whatever the process's locale.
void printLine(std::string_view label, float value) {
    std::array<char, 32> text;
    constexpr int DIGITS = 6;
    const auto end =
        std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::general, DIGITS).ptr;
    std::cout.write(label.data(), static_cast<std::streamsize>(label.size()));
    std::cout.write(text.data(), end - text.data()).put('\n').flush();
}

/// Runs task(range) over ranges that cover [0, n): one range, or several at once.
template <class Task>
void forEachRange(std::size_t n, bool parallel, const Task& task) {
    const tbb::blocked_range<std::size_t> all(0, n, detail::SPATIAL_GRAIN);
    if (parallel) {
        tbb::parallel_for(all, task);
    } else {
        task(all);
    }
}

/// values[i] = float(points of the tree nearer than r to pts[i]) / measure.
void countNeighbours(const std::vector<Vector3f>& pts, const KDTree& tree, float r, float measure,
                     bool parallel, std::vector<float>& values, detail::Work* work = nullptr) {
    values.resize(pts.size());
    const std::vector<std::uint64_t> order = detail::spatialOrder(pts, work);
    if (work != nullptr) {
        work->begin(1.0, pts.size());
    }
    forEachRange(order.size(), parallel, [&](const tbb::blocked_range<std::size_t>& range) {
        detail::WorkSteps steps(work);
        for (std::size_t i = range.begin(); i != range.end(); ++i) {
            values[order[i]] = static_cast<float>(tree.radiusCount(pts[order[i]], r)) / measure;
            steps.step();
        }
        steps.flush();
    });
}

/// values[i] = distance from pts[i] to the nearest other point.
void nearestDistances(const std::vector<Vector3f>& pts, const KDTree& tree, std::vector<float>& values,
                      detail::Work* work = nullptr) {
    values.resize(pts.size());
    std::vector<std::size_t> indices;
    std::vector<float> sqDists;
    const std::vector<std::uint64_t> order = detail::spatialOrder(pts, work);
    if (work != nullptr) {
        work->begin(1.0, pts.size());
    }
    detail::WorkSteps steps(work);
    for (const std::uint64_t i : order) {
        const std::size_t found = tree.knnSearch(pts[i], 2, indices, sqDists);
        values[i] = found == 2 ? Density::dist(pts[indices[1]], pts[i]) : 0.0f;
        steps.step();
    }
}

/// Has compute(values, work) fill new values, which take the place of the old ones at the end.
template <class Compute>
bool replaceWatched(std::vector<float>& values, const WorkContext& context, const Compute& compute) {
    return detail::runWatched(context, [&](detail::Work& work) {
        std::vector<float> computed;
        compute(computed, &work);
        values.swap(computed);
    });
}

float discArea(float r) {
    const double radius = static_cast<double>(r);
    return static_cast<float>(radius * std::numbers::pi * radius);
}

float ballVolume(float r) {
    constexpr double FOUR_THIRDS_PI = 4.1887903296220665;
    const double radius = static_cast<double>(r);
    return static_cast<float>(radius * FOUR_THIRDS_PI * radius * radius);
}

std::vector<ColorRGB>& colorsFor(PointCloud& cloud, std::size_t count) {
    if (cloud.colors().size() < count) {
        cloud.colors().resize(count);
    }
    return cloud.colors();
}

/// Truncated to one byte; what is not in [0, 255], as after a division by zero, counts as 0.
std::uint8_t toChannel(float value) {
    return value >= 0.0f && value < 256.0f ? static_cast<std::uint8_t>(value) : std::uint8_t{0};
}

}  // namespace

float Curvature::min() const {
    return *std::min_element(values_.begin(), values_.end());
}

float Curvature::max() const {
    return *std::max_element(values_.begin(), values_.end());
}

void Curvature::setColor(std::vector<ColorRGB>& colors) const {
    if (values_.empty()) {
        return;
    }
    const float lowest = min();
    const float highest = max();
    printLine("min curv ", lowest);
    printLine("max curv ", highest);
    for (std::size_t i = 0; i < values_.size(); ++i) {
        const float relative = (values_[i] - lowest) / (highest - lowest);
        colors[i] = ColorRGB(toChannel(relative * 255.0f), 0, 0);
    }
}

void Curvature::setColor(PointCloud& cloud) const {
    setColor(colorsFor(cloud, values_.size()));
}

float Density::min() const {
    return *std::min_element(values_.begin(), values_.end());
}

float Density::max() const {
    return *std::max_element(values_.begin(), values_.end());
}

float Density::dist(const Vector3f& a, const Vector3f& b) {
    const float dx = a.x() - b.x();
    const float dy = a.y() - b.y();
    const float dz = a.z() - b.z();
    return std::sqrt(dy * dy + dz * dz + dx * dx);
}

void Density::approximateDensity(const std::vector<Vector3f>& pts, const KDTree& tree) {
    nearestDistances(pts, tree, values_);
}

bool Density::approximateDensity(const std::vector<Vector3f>& pts, const KDTree& tree,
                                 const WorkContext& context) {
    return replaceWatched(values_, context, [&](std::vector<float>& values, detail::Work* work) {
        nearestDistances(pts, tree, values, work);
    });
}

bool Density::surfaceDensity(const std::vector<Vector3f>& pts, const KDTree& tree, float r,
                             const WorkContext& context) {
    return replaceWatched(values_, context, [&](std::vector<float>& values, detail::Work* work) {
        countNeighbours(pts, tree, r, discArea(r), false, values, work);
    });
}

bool Density::surfaceDensity_omp(const std::vector<Vector3f>& pts, const KDTree& tree, float r,
                                 const WorkContext& context) {
    return replaceWatched(values_, context, [&](std::vector<float>& values, detail::Work* work) {
        countNeighbours(pts, tree, r, discArea(r), true, values, work);
    });
}

bool Density::volumeDensity(const std::vector<Vector3f>& pts, const KDTree& tree, float r,
                            const WorkContext& context) {
    return replaceWatched(values_, context, [&](std::vector<float>& values, detail::Work* work) {
        countNeighbours(pts, tree, r, ballVolume(r), false, values, work);
    });
}

void Density::surfaceDensity(const std::vector<Vector3f>& pts, const KDTree& tree, float r) {
    countNeighbours(pts, tree, r, discArea(r), false, values_);
}

void Density::surfaceDensity_omp(const std::vector<Vector3f>& pts, const KDTree& tree, float r) {
    countNeighbours(pts, tree, r, discArea(r), true, values_);
}

void Density::volumeDensity(const std::vector<Vector3f>& pts, const KDTree& tree, float r) {
    countNeighbours(pts, tree, r, ballVolume(r), false, values_);
}

void Density::setColor(std::vector<ColorRGB>& colors) const {
    float lowest = std::numeric_limits<float>::max();
    float highest = 0.0f;
    for (const float value : values_) {
        lowest = value < lowest ? value : lowest;
        highest = value > highest ? value : highest;
    }
    printLine("min density ", lowest);
    printLine("max density ", highest);
    for (std::size_t i = 0; i < values_.size(); ++i) {
        const float hue = (values_[i] - lowest) / (highest - lowest) * 120.0f;
        colors[i] = ColorHSV(hue, 70.0f, 70.0f).HSVToRGB();
    }
}

void Density::setColor(PointCloud& cloud) const {
    setColor(colorsFor(cloud, values_.size()));
}

}  // namespace ombrix::core
