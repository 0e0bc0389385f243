#pragma once

#include <array>
#include <vector>

#include <examples/common/image.h>
#include <ombrix/mesh/tri_mesh.h>

/// Red, green, blue, 0 to 1.
using Color = ombrix::mesh::Vector3f;

/// Draws shaded triangles through a depth buffer, seen in parallel projection from above the x-y plane.
class CubeRenderer {
public:
    /// Fits the sphere around a point into a picture of `size` by `size` pixels.
    CubeRenderer(int size, const ombrix::mesh::Vector3f& center, float radius);

    /// The triangle nearest to the viewer wins each pixel.
    void triangle(const std::array<ombrix::mesh::Vector3f, 3>& corners, const Color& color);
    void cube(const ombrix::mesh::Vector3f& center, float edge, const Color& color);
    void mesh(const ombrix::mesh::TriMesh& mesh, const Color& color);

    /// Copies the picture into another, its left edge at column x.
    void copyTo(examples::Image& image, int x) const;

private:
    int size_;
    ombrix::mesh::Vector3f center_;
    float scale_;               ///< pixels per unit
    std::vector<float> depth_;  ///< one per pixel, larger is nearer
    std::vector<unsigned char> rgb_;
};
