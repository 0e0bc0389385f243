#pragma once

#include <string>
#include <vector>

#include <ombrix/core/octree/octree.h>
#include <ombrix/core/types.h>
#include <ombrix/core/view/view_frustum.h>

namespace examples {

/// Pictures that a camera takes.
struct Lens {
    int width;          ///< pixels
    int height;         ///< pixels
    float fieldOfView;  ///< vertical, degrees
};

/// One frame of a walk or a flight.
struct View {
    std::string name;
    ombrix::core::ViewFrustum frustum;  ///< in the tree's frame
};

/// The scene as cameras see it: a sample of a tree's points, in the tree's frame (z up).
class Stage {
public:
    explicit Stage(const ombrix::core::Octree& tree);

    /// Frames on a circle round the scene, the first from the south, then east, north and west. Each is as
    /// near as the whole scene allows.
    [[nodiscard]] std::vector<View> orbit(unsigned frames, const Lens& lens) const;
    /// Frames along the scene's longer side, from high before its near end down to low over the last third.
    [[nodiscard]] std::vector<View> flight(unsigned frames, const Lens& lens) const;

private:
    [[nodiscard]] View fitted(const std::string& name, float azimuth, float elevation,
                              const Lens& lens) const;
    [[nodiscard]] View lookingAt(const std::string& name, const ombrix::core::Vector3f& eye,
                                 const ombrix::core::Vector3f& target, const Lens& lens) const;
    /// Highest sample within `radius` of a place; the box's lowest height where there is none.
    [[nodiscard]] float groundAt(float x, float y, float radius) const;

    std::vector<ombrix::core::Vector3f> sample_;
    ombrix::core::Vector3f low_;  ///< corners of the box of most points: single strays do not count
    ombrix::core::Vector3f high_;
};

}  // namespace examples
