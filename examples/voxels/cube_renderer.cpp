#include "cube_renderer.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <Eigen/Geometry>

using ombrix::mesh::Vector3f;

namespace {

constexpr unsigned char BACKGROUND[3] = {245, 246, 250};

/// View axes: to the right, up and towards the viewer.
const Vector3f& viewAxis(int i) {
    static const std::array<Vector3f, 3> axes = [] {
        const Vector3f towards = Vector3f(0.5f, -0.75f, 0.6f).normalized();
        const Vector3f right = Vector3f::UnitZ().cross(towards).normalized();
        return std::array<Vector3f, 3>{right, towards.cross(right), towards};
    }();
    return axes[static_cast<std::size_t>(i)];
}

float edgeSide(const Vector3f& a, const Vector3f& b, float x, float y) {
    return (b.x() - a.x()) * (y - a.y()) - (b.y() - a.y()) * (x - a.x());
}

}  // namespace

CubeRenderer::CubeRenderer(int size, const Vector3f& center, float radius)
    : size_(size), center_(center), scale_(0.47f * static_cast<float>(size) / radius) {
    const auto pixels = static_cast<std::size_t>(size) * static_cast<std::size_t>(size);
    depth_.assign(pixels, -std::numeric_limits<float>::max());
    for (std::size_t i = 0; i < pixels; ++i) {
        rgb_.insert(rgb_.end(), BACKGROUND, BACKGROUND + 3);
    }
}

void CubeRenderer::triangle(const std::array<Vector3f, 3>& corners, const Color& color) {
    // Into pixels, y downwards
    std::array<Vector3f, 3> p;
    const float middle = static_cast<float>(size_) / 2;
    for (std::size_t i = 0; i < 3; ++i) {
        const Vector3f d = (corners[i] - center_) * scale_;
        p[i] = {middle + d.dot(viewAxis(0)), middle - d.dot(viewAxis(1)), d.dot(viewAxis(2))};
    }
    const float area = edgeSide(p[0], p[1], p[2].x(), p[2].y());
    if (area == 0 || !std::isfinite(area)) {
        return;
    }
    // Light from the viewer's upper left, on both sides
    const Vector3f normal = (corners[1] - corners[0]).cross(corners[2] - corners[0]).normalized();
    const Vector3f light = (viewAxis(2) + 0.6f * viewAxis(1) - 0.5f * viewAxis(0)).normalized();
    const Color shaded = color * (0.35f + 0.65f * std::abs(normal.dot(light)));

    const auto [x0, x1] = std::minmax({p[0].x(), p[1].x(), p[2].x()});
    const auto [y0, y1] = std::minmax({p[0].y(), p[1].y(), p[2].y()});
    const int right = std::min(size_ - 1, static_cast<int>(x1)),
              bottom = std::min(size_ - 1, static_cast<int>(y1));
    for (int y = std::max(0, static_cast<int>(y0)); y <= bottom; ++y) {
        for (int x = std::max(0, static_cast<int>(x0)); x <= right; ++x) {
            const float px = static_cast<float>(x) + 0.5f, py = static_cast<float>(y) + 0.5f;
            const float a = edgeSide(p[1], p[2], px, py) / area, b = edgeSide(p[2], p[0], px, py) / area;
            const float c = 1 - a - b;
            const float depth = a * p[0].z() + b * p[1].z() + c * p[2].z();
            const auto pixel =
                static_cast<std::size_t>(y) * static_cast<std::size_t>(size_) + static_cast<std::size_t>(x);
            if (a >= 0 && b >= 0 && c >= 0 && depth > depth_[pixel]) {
                depth_[pixel] = depth;
                for (int channel = 0; channel < 3; ++channel) {
                    rgb_[3 * pixel + static_cast<std::size_t>(channel)] =
                        static_cast<unsigned char>(255 * std::clamp(shaded[channel], 0.0f, 1.0f));
                }
            }
        }
    }
}

void CubeRenderer::cube(const Vector3f& center, float edge, const Color& color) {
    for (int axis = 0; axis < 3; ++axis) {
        for (const float side : {-0.5f, 0.5f}) {
            const Vector3f out = Vector3f::Unit(axis) * (side * edge);
            const Vector3f u = Vector3f::Unit((axis + 1) % 3) * (0.5f * edge),
                           v = Vector3f::Unit((axis + 2) % 3) * (0.5f * edge);
            const Vector3f middle = center + out;
            triangle({middle - u - v, middle + u - v, middle + u + v}, color);
            triangle({middle - u - v, middle + u + v, middle - u + v}, color);
        }
    }
}

void CubeRenderer::mesh(const ombrix::mesh::TriMesh& mesh, const Color& color) {
    for (const ombrix::mesh::Face& face : mesh.faces) {
        triangle({mesh.vertices[face.index[0]], mesh.vertices[face.index[1]], mesh.vertices[face.index[2]]},
                 color);
    }
}

void CubeRenderer::copyTo(examples::Image& image, int x) const {
    for (int row = 0; row < std::min(size_, image.height); ++row) {
        const auto from = rgb_.begin() + 3 * static_cast<std::ptrdiff_t>(row) * size_;
        std::copy_n(from, 3 * size_,
                    image.rgb.begin() + 3 * (static_cast<std::ptrdiff_t>(row) * image.width + x));
    }
}
