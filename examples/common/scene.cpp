#include <examples/common/scene.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include <examples/common/console.h>
#include <ombrix/io/read_points.h>

namespace examples {

using ombrix::core::ColorRGB;
using ombrix::core::PointCloud;
using ombrix::core::Vector3f;

namespace {

template <class Value>
bool varies(const std::vector<Value>& values) {
    return std::any_of(values.begin(), values.end(), [&](const Value& v) { return !(v == values.front()); });
}

/// Widens the box by all finite positions; false when there are none.
bool enclose(ombrix::core::Aabb& box, const PointCloud& cloud, bool started) {
    for (const Vector3f& p : cloud.positions()) {
        if (!p.allFinite())
            continue;
        if (!started)
            box.min = box.max = p.cast<double>();
        started = true;
        box.enclose(p.cast<double>());
    }
    return started;
}

ombrix::io::PointFile readWithBar(const std::filesystem::path& path, ombrix::io::ReadOptions& options) {
    const std::string ending = path.extension().string();
    // Readers of text count bytes.
    const bool counted = ending == ".ply" || ending == ".las";
    Bar bar("reading " + path.filename().string(), counted ? Bar::points : Bar::bytes);
    options.progress = [&bar](std::uint64_t done, std::uint64_t total) { bar.update(done, total); };
    return ombrix::io::readPoints(path, options);
}

}  // namespace

std::uint64_t Scene::size() const {
    std::uint64_t points = 0;
    for (const PointCloud& cloud : clouds)
        points += cloud.size();
    return points;
}

Scene readScene(const std::vector<std::filesystem::path>& files) {
    Scene scene;
    bool colored = true;
    bool intense = true;
    bool colorsVary = false;
    bool intensityVaries = false;
    bool started = false;
    for (const auto& path : files) {
        const auto start = std::chrono::steady_clock::now();
        ombrix::io::ReadOptions options;
        options.fields = false;
        // The first file's frame is the scene's.
        if (!scene.clouds.empty())
            options.shift = scene.shift;
        ombrix::io::PointFile file = readWithBar(path, options);
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        printRate("read " + path.filename().string(), file.cloud.size(), seconds.count());

        scene.shift = file.shift;
        colored = colored && (file.hasColors || file.cloud.size() == 0);
        intense = intense && (file.hasScalars || file.cloud.size() == 0);
        colorsVary = colorsVary || varies(file.cloud.colors());
        intensityVaries = intensityVaries || varies(file.cloud.scalars());
        started = enclose(scene.box, file.cloud, started);
        // Every array is as long as the positions from here on.
        file.cloud.resize(file.cloud.size());
        scene.clouds.push_back(std::move(file.cloud));
    }
    if (!started) {
        std::string names;
        for (const auto& path : files)
            names += (names.empty() ? "" : ", ") + path.string();
        throw std::runtime_error("there are no points in " + names);
    }
    scene.hasColors = colored && colorsVary;
    scene.hasIntensity = intense && intensityVaries;
    return scene;
}

}  // namespace examples
