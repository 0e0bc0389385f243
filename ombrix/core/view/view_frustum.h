#pragma once

#include <cstdint>
#include <string>

#include <Eigen/Geometry>

#include <ombrix/core/core_export.h>
#include <ombrix/core/types.h>

namespace ombrix::core {

/// A camera: opening angles, clip distances, viewport and pose, with containment tests.
///
/// The camera looks along +z of its pose; near and far are distances along it. The pose's linear part is
/// taken as it stands: a scale in it scales every test. The setters check nothing. The pose is the
/// identity at first; `setIntrinsics` and `setClipPlane` must be called before any test, `setPixelSize`
/// before any selection.
class OMBRIX_CORE_API ViewFrustum {
public:
    /// The camera's frame: linear part and centre.
    using Pose = Eigen::Transform<float, 3, Eigen::Affine>;

    ViewFrustum();
    /// Opening angles in degrees. On purpose this does not derive the slopes that the tests need: call
    /// `setIntrinsics`.
    ViewFrustum(float hfovDeg, float vfovDeg);

    /// Full vertical opening angle in degrees, and width / height. The tests take the tangent of half the
    /// angle for the upper side and that times the aspect for the right one, as projection matrices do; only
    /// `hFov()` becomes, on purpose, the product of angle and aspect.
    void setIntrinsics(float fovDeg, float aspect);
    /// Viewport in pixels, height first.
    void setPixelSize(int height, int width);
    /// Clip distances along the view axis.
    void setClipPlane(float near, float far);
    /// Whether the view is a box instead of a pyramid.
    void setOrthographic(bool orthographic);
    /// Half of the height of the orthographic view box, 1 at first.
    void setOrthographicSize(float halfHeight);
    /// Columns: the camera's x, y and view axis, and its centre.
    void setPosition(const Pose& pose);

    /// As it was set.
    [[nodiscard]] const Pose& getPosition() const { return position_; }
    /// Horizontal angle in radians: the vertical one times the aspect, which no test uses.
    [[nodiscard]] float hFov() const { return hFov_; }
    /// Tangent of half of the vertical angle.
    [[nodiscard]] float slope() const { return slope_; }
    /// As they were set.
    [[nodiscard]] int pixelHeight() const { return pixelHeight_; }
    [[nodiscard]] bool orthographic() const { return orthographic_; }
    /// Width / height.
    [[nodiscard]] float aspect() const { return aspect_; }
    /// Clip distances along the view axis, and half of the height of the orthographic view box.
    [[nodiscard]] float nearDepth() const { return near_; }
    [[nodiscard]] float farDepth() const { return far_; }
    [[nodiscard]] float orthographicSize() const { return orthographicSize_; }
    /// Columns of the pose: the camera's x, y and view axis.
    [[nodiscard]] Vector3f ax() const { return position_.linear().col(0); }
    [[nodiscard]] Vector3f ay() const { return position_.linear().col(1); }
    [[nodiscard]] Vector3f az() const { return position_.linear().col(2); }

    /// 0 outside, 2 inside; a point on a bound is inside.
    [[nodiscard]] int pointInFrustum(const Vector3f& p) const;
    /// 0 outside, 1 across a boundary, 2 inside; radius in units of position. An orthographic frustum never
    /// answers 1, on purpose: a sphere across its boundary counts as inside.
    [[nodiscard]] int sphereInFrustum(const Vector3f& centre, float r) const;

    /// Writes the perspective frustum as an OBJ mesh of eight vertices and twelve triangles. Does not report
    /// a file that cannot be written.
    void debugOBJ(const std::string& path) const;

private:
    /// Offset of p from the camera's centre along the camera's axes.
    [[nodiscard]] Vector3f toCamera(const Vector3f& p) const;

    float hFov_ = 0.0f;    ///< radians
    float vFov_ = 0.0f;    ///< radians
    float aspect_ = 0.0f;  ///< width / height
    float near_ = 0.0f;
    float far_ = 0.0f;
    float slope_ = 0.0f;    ///< tan(vertical angle / 2)
    float hSecant_ = 0.0f;  ///< 1 / cos(half of the horizontal angle)
    float vSecant_ = 0.0f;  ///< 1 / cos(half of the vertical angle)
    std::int32_t pixelHeight_ = 0;
    std::int32_t pixelWidth_ = 0;
    bool orthographic_ = false;
    float orthographicSize_ = 1.0f;
    // Fixed alignment, so that applications compiled for wider vector units agree on the layout.
    alignas(64) Pose position_;
};

}  // namespace ombrix::core
