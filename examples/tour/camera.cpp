#include "camera.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <numbers>

namespace examples {

using ombrix::core::Octree;
using ombrix::core::Vector3f;
using ombrix::core::ViewFrustum;

namespace {

constexpr std::size_t SAMPLES = 50'000;
constexpr float STRAYS = 0.0005f;  ///< share of the points beyond the box on each of its sides

std::string numbered(const char* prefix, unsigned frame) {
    char text[32];
    std::snprintf(text, sizeof text, "%s_%02u", prefix, frame);
    return text;
}

}  // namespace

Stage::Stage(const Octree& tree) {
    std::vector<std::uint64_t> keys = tree.keys();
    std::sort(keys.begin(), keys.end());
    const std::uint64_t stride = std::max<std::uint64_t>(1, tree.size() / SAMPLES);
    std::uint64_t next = 0;
    std::uint64_t seen = 0;
    for (const std::uint64_t key : keys) {
        const auto& cloud = tree.node(key).pc;
        if (!cloud)
            continue;
        for (; next < seen + cloud->size(); next += stride)
            if (const Vector3f& p = cloud->positions()[next - seen]; p.allFinite())
                sample_.push_back(p);
        seen += cloud->size();
    }
    low_ = Vector3f::Zero();
    high_ = Vector3f::Zero();
    if (sample_.empty())
        return;
    std::vector<float> axis(sample_.size());
    const auto strays = static_cast<std::size_t>(STRAYS * static_cast<float>(axis.size()));
    for (int c = 0; c < 3; ++c) {
        std::transform(sample_.begin(), sample_.end(), axis.begin(), [c](const Vector3f& p) { return p[c]; });
        std::sort(axis.begin(), axis.end());
        low_[c] = axis[strays];
        high_[c] = axis[axis.size() - 1 - strays];
    }
}

View Stage::lookingAt(const std::string& name, const Vector3f& eye, const Vector3f& target,
                      const Lens& lens) const {
    Vector3f forward = target - eye;
    if (forward.squaredNorm() == 0.0f)
        forward = Vector3f::UnitY();
    forward.normalize();
    // Straight up or down: north is at the top.
    const Vector3f side = std::abs(forward.z()) > 0.999f ? Vector3f::UnitY() : Vector3f::UnitZ();
    const Vector3f right = forward.cross(side).normalized();
    const Vector3f up = right.cross(forward);

    ViewFrustum::Pose pose = ViewFrustum::Pose::Identity();
    // A camera with y up that looks along +z has its x axis on the left: the pose stays a rotation.
    pose.linear().col(0) = -right;
    pose.linear().col(1) = up;
    pose.linear().col(2) = forward;
    pose.translation() = eye;

    const float reach = (high_ - low_).norm() + (eye - 0.5f * (low_ + high_)).norm();
    View view;
    view.name = name;
    view.frustum.setIntrinsics(lens.fieldOfView,
                               static_cast<float>(lens.width) / static_cast<float>(lens.height));
    view.frustum.setPixelSize(lens.height, lens.width);
    view.frustum.setClipPlane(1e-4f * reach, 2.0f * reach);
    view.frustum.setPosition(pose);
    return view;
}

View Stage::fitted(const std::string& name, float azimuth, float elevation, const Lens& lens) const {
    const Vector3f back(std::cos(elevation) * std::sin(azimuth), -std::cos(elevation) * std::cos(azimuth),
                        std::sin(elevation));
    const Vector3f center = 0.5f * (low_ + high_);
    const float radius = std::max(0.5f * (high_ - low_).norm(), 1e-6f);

    // How far up and down the box's corners reach on a screen of height 2, for a camera at this distance.
    const auto reachAt = [&](float distance, float& bottom, float& top) {
        const View view = lookingAt(name, center + distance * back, center, lens);
        const float aspect = static_cast<float>(lens.width) / static_cast<float>(lens.height);
        float widest = 0.0f;
        bottom = 1e9f;
        top = -1e9f;
        for (unsigned corner = 0; corner < 8; ++corner) {
            const Vector3f p((corner & 4) != 0 ? high_.x() : low_.x(),
                             (corner & 2) != 0 ? high_.y() : low_.y(),
                             (corner & 1) != 0 ? high_.z() : low_.z());
            const Vector3f d = p - view.frustum.getPosition().translation();
            const float depth = d.dot(view.frustum.az());
            if (depth <= 0.0f)
                return false;
            const float y = d.dot(view.frustum.ay()) / (depth * view.frustum.slope());
            const float x = d.dot(view.frustum.ax()) / (depth * view.frustum.slope() * aspect);
            widest = std::max(widest, std::abs(x));
            bottom = std::min(bottom, y);
            top = std::max(top, y);
        }
        return widest <= 0.97f && top - bottom <= 1.94f;
    };

    float bottom = 0.0f;
    float top = 0.0f;
    float near = 0.0f;
    float far = radius;
    while (!reachAt(far, bottom, top) && far < 1e4f * radius)
        far *= 2.0f;
    for (int step = 0; step < 30; ++step) {
        const float middle = 0.5f * (near + far);
        (reachAt(middle, bottom, top) ? far : near) = middle;
    }
    // Perspective pushes the scene towards the bottom of the picture: move it back to the middle.
    reachAt(far, bottom, top);
    const View view = lookingAt(name, center + far * back, center, lens);
    const Vector3f lift = 0.5f * (bottom + top) * far * view.frustum.slope() * view.frustum.ay();
    return lookingAt(name, center + far * back + lift, center + lift, lens);
}

std::vector<View> Stage::orbit(unsigned frames, const Lens& lens) const {
    constexpr float elevation = 35.0f * std::numbers::pi_v<float> / 180.0f;
    std::vector<View> views;
    for (unsigned frame = 0; frame < frames; ++frame) {
        const float turn = static_cast<float>(frame) / static_cast<float>(frames);
        views.push_back(
            fitted(numbered("orbit", frame), 2.0f * std::numbers::pi_v<float> * turn, elevation, lens));
    }
    return views;
}

float Stage::groundAt(float x, float y, float radius) const {
    float ground = low_.z();
    for (const Vector3f& p : sample_)
        if (std::hypot(p.x() - x, p.y() - y) <= radius && p.z() <= high_.z())
            ground = std::max(ground, p.z());
    return ground;
}

std::vector<View> Stage::flight(unsigned frames, const Lens& lens) const {
    const Vector3f size = high_ - low_;
    const Vector3f center = 0.5f * (low_ + high_);
    const bool alongX = size.x() >= size.y();
    const Vector3f along = alongX ? Vector3f::UnitX() : Vector3f::UnitY();
    const float length = std::max({size.x(), size.y(), 1e-6f});
    const float clearance = std::max(std::min(size.x(), size.y()), 0.2f * length);

    std::vector<View> views;
    for (unsigned frame = 0; frame < frames; ++frame) {
        const float t = frames > 1 ? static_cast<float>(frame) / static_cast<float>(frames - 1) : 0.0f;
        const float descent = t * t * (3.0f - 2.0f * t);
        Vector3f eye = center + (-0.65f + 0.75f * t) * length * along;
        const float above = (1.0f - descent) * 0.45f * clearance + descent * 0.12f * clearance;
        eye.z() = groundAt(eye.x(), eye.y(), 0.08f * length) + above;
        Vector3f target = eye + 0.35f * length * along;
        target.z() = groundAt(target.x(), target.y(), 0.02f * length);
        views.push_back(lookingAt(numbered("flight", frame), eye, target, lens));
    }
    return views;
}

}  // namespace examples
