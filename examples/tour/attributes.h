#pragma once

#include <examples/common/scene.h>

#include "options.h"

namespace examples {

/// The fields in which curvature and density travel with the points: the nested builder carries the
/// predefined fields alone, and the tour has no other use for these two.
extern const std::string& CURVATURE_FIELD;
extern const std::string& DENSITY_FIELD;

/// Computes what a mode shows for all clouds of the scene, each cloud by itself, unless it is there already:
/// - normal: of the 16 nearest points, on the side that is seen from high above;
/// - curvature: share of the smallest eigenvalue over the same points, 0 to 1/3;
/// - density: points per squared unit within twice the mean distance of the 8 nearest;
/// - intensity: the files' own; where they have none, the colours' brightness.
/// Says on standard output how long it took.
void addAttribute(Scene& scene, ColorMode mode);

}  // namespace examples
