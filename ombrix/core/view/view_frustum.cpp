#include <array>
#include <cmath>
#include <fstream>
#include <locale>

#include <ombrix/core/view/view_frustum.h>

namespace ombrix::core {
namespace {

float radians(float degrees) {
    return static_cast<float>(static_cast<double>(degrees) * 0.017453292519943295);
}

}  // namespace

ViewFrustum::ViewFrustum() {
    position_.setIdentity();
}

ViewFrustum::ViewFrustum(float hfovDeg, float vfovDeg) : ViewFrustum() {
    hFov_ = radians(hfovDeg);
    vFov_ = radians(vfovDeg);
    aspect_ = hfovDeg / vfovDeg;
}

void ViewFrustum::setIntrinsics(float fovDeg, float aspect) {
    aspect_ = aspect;
    vFov_ = radians(fovDeg);
    hFov_ = vFov_ * aspect;
    slope_ = std::tan(vFov_ / 2.0f);
    vSecant_ = 1.0f / std::cos(vFov_ / 2.0f);
    hSecant_ = 1.0f / std::cos(std::atan(slope_ * aspect));
}

void ViewFrustum::setPixelSize(int height, int width) {
    pixelHeight_ = height;
    pixelWidth_ = width;
}

void ViewFrustum::setClipPlane(float near, float far) {
    near_ = near;
    far_ = far;
}

void ViewFrustum::setOrthographic(bool orthographic) {
    orthographic_ = orthographic;
}

void ViewFrustum::setOrthographicSize(float halfHeight) {
    orthographicSize_ = halfHeight;
}

void ViewFrustum::setPosition(const Pose& pose) {
    position_ = pose;
}

Vector3f ViewFrustum::toCamera(const Vector3f& p) const {
    const Vector3f d = p - position_.translation();
    return {d.dot(ax()), d.dot(ay()), d.dot(az())};
}

int ViewFrustum::pointInFrustum(const Vector3f& p) const {
    const Vector3f c = toCamera(p);
    if (c.z() > far_ || c.z() < near_) {
        return 0;
    }
    const float h = orthographic_ ? orthographicSize_ : c.z() * slope_;
    if (c.y() > h || c.y() < -h) {
        return 0;
    }
    const float w = h * aspect_;
    return c.x() > w || c.x() < -w ? 0 : 2;
}

int ViewFrustum::sphereInFrustum(const Vector3f& centre, float r) const {
    const Vector3f c = toCamera(centre);
    const float x = c.x();
    const float y = c.y();
    const float z = c.z();
    if (z > far_ + r || z < near_ - r) {
        return 0;
    }
    if (orthographic_) {
        const float s = orthographicSize_;
        const float w = s * aspect_;
        if (y > s + r || y < -s - r || x > w + r || x < -w - r) {
            return 0;
        }
        return 2;
    }
    // The secants widen the radius to the distance from the slanted planes.
    const float hx = z * slope_ * aspect_;
    const float rx = r * hSecant_;
    if (x > hx + rx || x < -hx - rx) {
        return 0;
    }
    const float hy = z * slope_;
    const float ry = r * vSecant_;
    if (y > hy + ry || y < -hy - ry) {
        return 0;
    }
    const bool crosses =
        z > far_ - r || z < near_ + r || x > hx - rx || x < rx - hx || y > hy - ry || y < ry - hy;
    return crosses ? 1 : 2;
}

void ViewFrustum::debugOBJ(const std::string& path) const {
    std::ofstream out(path);
    out.imbue(std::locale::classic());
    for (const float depth : {near_, far_}) {
        const Vector3f centre = position_.translation() + depth * az();
        const float h = slope_ * depth;
        const float w = aspect_ * h;
        for (const float up : {h, -h}) {
            for (const float right : {-w, w}) {
                const Vector3f v = centre + up * ay() + right * ax();
                out << "v " << v.x() << ' ' << v.y() << ' ' << v.z() << '\n';
            }
        }
    }
    static constexpr std::array FACES = {"1 3 2", "2 3 4", "5 6 7", "6 8 7", "4 3 7", "4 7 8",
                                         "1 2 5", "2 6 5", "2 4 6", "8 6 4", "3 1 5", "3 5 7"};
    for (const char* face : FACES) {
        out << "f " << face << '\n';
    }
}

}  // namespace ombrix::core
