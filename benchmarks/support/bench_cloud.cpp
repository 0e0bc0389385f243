#include "benchmarks/support/bench_cloud.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <list>
#include <numbers>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <ombrix/core/analysis/kd_tree.h>
#include <ombrix/io/read_points.h>

#include "benchmarks/support/terrain.h"

namespace ombrix::benchmarks {
namespace {

using core::PointCloud;
using core::Vector3f;

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

/// The given file's cloud with its finite points only, at the origin.
std::optional<PointCloud> readGivenCloud() {
    const std::string path = environment("OMBRIX_BENCH_CLOUD");
    if (path.empty()) {
        return std::nullopt;
    }
    io::ReadOptions options;
    options.fields = false;
    const PointCloud read = io::readPoints(path, options).cloud;
    std::vector<std::uint64_t> finite;
    for (std::uint64_t i = 0; i < read.size(); ++i) {
        if (read.positions()[i].allFinite()) {
            finite.push_back(i);
        }
    }
    if (finite.size() < 1000) {
        throw std::runtime_error(path + ": too few points to measure with");
    }
    PointCloud cloud;
    cloud.push_back(read, finite, true);
    Vector3f corner = cloud.positions().front();
    for (const Vector3f& p : cloud.positions()) {
        corner = corner.cwiseMin(p);
    }
    for (Vector3f& p : cloud.positions()) {
        p -= corner;
    }
    addHeightColors(cloud);
    return cloud;
}

/// Null when none is given. A file that cannot be read ends the program with a message.
const PointCloud* givenCloud() {
    static const std::optional<PointCloud> cloud = [] {
        try {
            return readGivenCloud();
        } catch (const std::exception& error) {
            std::cerr << "OMBRIX_BENCH_CLOUD: " << error.what() << '\n';
            std::exit(2);
        }
    }();
    return cloud ? &*cloud : nullptr;
}

std::vector<std::int64_t> parsedCounts(std::string_view text) {
    std::vector<std::int64_t> counts;
    while (!text.empty()) {
        std::int64_t count = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
        const auto used = static_cast<std::size_t>(end - text.data());
        if (error != std::errc() || count < 1000 || (used < text.size() && text[used] != ',')) {
            std::cerr << "OMBRIX_BENCH_SIZES: numbers of points from 1000 on, separated by commas\n";
            std::exit(2);
        }
        counts.push_back(count);
        text.remove_prefix(std::min(used + 1, text.size()));
    }
    return counts;
}

/// Of a given cloud: the median distance from a thousand of its points to the tenth point, itself counted.
float medianTenthDistance(const PointCloud& cloud) {
    constexpr std::size_t SAMPLES = 1000, NEIGHBOURS = 10;
    const core::KDTree tree(cloud);
    std::vector<std::size_t> indices;
    std::vector<float> sqDists;
    std::vector<float> tenth(SAMPLES);
    for (std::size_t s = 0; s < SAMPLES; ++s) {
        const std::size_t found =
            tree.knnSearch(cloud.positions()[s * cloud.size() / SAMPLES], NEIGHBOURS, indices, sqDists);
        tenth[s] = std::sqrt(sqDists[found - 1]);
    }
    const auto middle = tenth.begin() + SAMPLES / 2;
    std::nth_element(tenth.begin(), middle, tenth.end());
    return *middle;
}

}  // namespace

const std::vector<std::int64_t>& pointCounts() {
    static const std::vector<std::int64_t> counts = [] {
        if (const PointCloud* given = givenCloud()) {
            return std::vector<std::int64_t>{static_cast<std::int64_t>(given->size())};
        }
        const std::string sizes = environment("OMBRIX_BENCH_SIZES");
        return sizes.empty() ? std::vector<std::int64_t>{1'000'000, 10'000'000} : parsedCounts(sizes);
    }();
    return counts;
}

void pointSizes(benchmark::internal::Benchmark* bench) {
    for (const std::int64_t count : pointCounts()) {
        bench->Arg(count);
    }
    bench->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
}

const PointCloud& benchCloud(std::int64_t n) {
    if (const PointCloud* given = givenCloud()) {
        return *given;
    }
    static std::list<PointCloud> kept;
    const auto found = std::find_if(kept.begin(), kept.end(), [&](const PointCloud& cloud) {
        return cloud.size() == static_cast<std::uint64_t>(n);
    });
    if (found != kept.end()) {
        kept.splice(kept.begin(), kept, found);
    } else {
        kept.resize(std::min<std::size_t>(kept.size(), 1));
        kept.push_front(terrainCloud(static_cast<std::size_t>(n)));
    }
    return kept.front();
}

const std::vector<Vector3f>& benchPoints(std::int64_t n) {
    return benchCloud(n).positions();
}

float cubeEdge(std::int64_t) {
    if (const PointCloud* given = givenCloud()) {
        static const float edge = [given] {
            Vector3f top = Vector3f::Zero();
            for (const Vector3f& p : given->positions()) {
                top = top.cwiseMax(p);
            }
            return top.maxCoeff() * 1.0001f;
        }();
        return edge;
    }
    return TERRAIN_EDGE;
}

float densityRadius(std::int64_t n) {
    if (const PointCloud* given = givenCloud()) {
        static const float radius = medianTenthDistance(*given);
        return radius;
    }
    return TERRAIN_EDGE * std::sqrt(10.0f / (std::numbers::pi_v<float> * static_cast<float>(n)));
}

float tenPointCell(std::int64_t n) {
    return densityRadius(n) * std::sqrt(std::numbers::pi_v<float>);
}

}  // namespace ombrix::benchmarks
