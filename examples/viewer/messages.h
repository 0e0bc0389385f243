#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include <ombrix/core/octree/aabb.h>
#include <ombrix/core/view/frame_selection.h>
#include <ombrix/core/view/octree_query.h>
#include <ombrix/core/view/view_frustum.h>

#include "model.h"

namespace examples::viewer {

/// A message that a page should not have sent; the text says what is wrong with it.
class BadMessage : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A page asks what to draw:
///
///     {"client": NAME, "seen": N, "camera": {...}, "budget": POINTS, "minSize": PIXELS}
///
/// A camera is {"position": [x, y, z], "right": [...], "up": [...], "forward": [...], "fov": DEGREES,
/// "aspect": A, "height": PIXELS, "near": D, "far": D}, relative to the tree.
struct FrameRequest {
    std::string client;
    std::uint64_t seen = 0;  ///< number of the last answer that the page has
    ombrix::core::ViewFrustum camera;
    std::uint64_t budget = 0;
    float minSize = 0.0f;
};

/// A page asks which point is under the cursor:
///
///     {"camera": {...}, "u": -1 to 1, "v": -1 to 1, "clip": {"min": [x, y, z], "max": [x, y, z]}}
///
/// u points right and v up; without "clip" all points count.
struct PickRequest {
    ombrix::core::ViewFrustum camera;
    double u = 0.0;
    double v = 0.0;
    ombrix::core::Aabb clip;
};

/// @throws BadMessage
[[nodiscard]] FrameRequest parseFrameRequest(const std::string& body);
[[nodiscard]] PickRequest parsePickRequest(const std::string& body);
/// The name in {"client": NAME}. @throws BadMessage
[[nodiscard]] std::string parseClientName(const std::string& body);

/// What a page has to know of the cloud before it draws.
[[nodiscard]] std::string describe(const Model& model, std::uint64_t budget);
/// {"client": NAME}
[[nodiscard]] std::string describeClient(const std::string& name);
/// What changed since the answer before, or with `whole` all that is selected, as {"answer": N, "whole": W,
/// "points": P, "nodes": N, "entered": [KEY...], "left": [KEY...]}.
[[nodiscard]] std::string describe(const ombrix::core::FrameSelection& selection, std::uint64_t answer,
                                   bool whole);
/// {"found": false}, or the point with its place in the world, in double.
[[nodiscard]] std::string describe(const ombrix::core::PickResult& result, const Model& model);
/// {"ready": false}, or the range of a field that is computed.
[[nodiscard]] std::string describeField(bool ready, const Range& range);
[[nodiscard]] std::string describeError(std::string_view text);

}  // namespace examples::viewer
