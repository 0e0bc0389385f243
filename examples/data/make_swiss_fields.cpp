/// Joins the node files of an octree of points, as the folder vol_total has them, into one LAS file.
///
/// A node's name, r<digits>, says where its box lies in that of cloud.js: each digit halves the box, bit 4
/// is the upper half in x, bit 2 in y, bit 1 in z. Its file holds 16-byte little-endian records: three
/// 32-bit unsigned steps from the box's lower corner, then red, green, blue and 255.

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <ombrix/io.h>

namespace {

using ombrix::core::ColorRGB;
using ombrix::core::PointCloud;
using ombrix::core::Vector3d;

constexpr std::size_t RECORD = 16;

std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error(path.string() + ": cannot be opened");
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The number behind "key": in the text.
double numberOf(const std::string& text, const std::string& key) {
    std::size_t at = text.find("\"" + key + "\":");
    if (at == std::string::npos) {
        throw std::runtime_error("cloud.js: no " + key);
    }
    at = text.find_first_of("-.0123456789", at + key.size() + 3);
    double value = 0.0;
    std::from_chars(text.data() + at, text.data() + text.size(), value);
    return value;
}

std::uint32_t stepsAt(const std::string& bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value |= std::uint32_t{static_cast<unsigned char>(bytes[at + i])} << (8 * i);
    }
    return value;
}

void appendNode(const std::filesystem::path& path, double size, double scale, PointCloud& cloud) {
    // The box's lower corner, relative to that of the whole
    Vector3d corner = Vector3d::Zero();
    for (const char digit : path.stem().string().substr(1)) {
        const int octant = digit - '0';
        size /= 2.0;
        corner += size * Vector3d((octant >> 2) & 1, (octant >> 1) & 1, octant & 1);
    }

    const std::string bytes = contentOf(path);
    if (bytes.size() % RECORD != 0) {
        throw std::runtime_error(path.string() + ": cut short");
    }
    for (std::size_t at = 0; at < bytes.size(); at += RECORD) {
        const Vector3d steps(stepsAt(bytes, at), stepsAt(bytes, at + 4), stepsAt(bytes, at + 8));
        const auto channel = [&](std::size_t i) { return static_cast<unsigned char>(bytes[at + 12 + i]); };
        cloud.positions().push_back((corner + scale * steps).cast<float>());
        cloud.colors().push_back(ColorRGB(channel(0), channel(1), channel(2)));
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: make_swiss_fields FOLDER OUT.las\n";
        return 2;
    }
    try {
        const std::filesystem::path folder = argv[1];
        const std::string about = contentOf(folder / "cloud.js");
        const Vector3d lower(numberOf(about, "lx"), numberOf(about, "ly"), numberOf(about, "lz"));
        const double size = numberOf(about, "ux") - lower.x();
        const double scale = numberOf(about, "scale");

        std::vector<std::filesystem::path> nodes;
        for (const auto& entry : std::filesystem::directory_iterator(folder / "data")) {
            nodes.push_back(entry.path());
        }
        std::ranges::sort(nodes);
        PointCloud cloud;
        for (const std::filesystem::path& node : nodes) {
            appendNode(node, size, scale, cloud);
        }
        ombrix::io::writeLas(argv[2], cloud, lower, scale);
        std::cout << nodes.size() << " nodes, " << cloud.size() << " points\n";
    } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        return 1;
    }
    return 0;
}
