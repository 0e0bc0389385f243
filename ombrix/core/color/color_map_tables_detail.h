#pragma once

namespace ombrix::core::detail {

/// The perceptually uniform colour maps "viridis", "magma", "plasma" and "inferno": 256 rows of red, green
/// and blue in [0, 1].
///
/// By Nathaniel J. Smith, Stefan van der Walt and, in the case of viridis, Eric Firing, who released them
/// with matplotlib 1.5 under CC0 (no rights reserved).
extern const float VIRIDIS_TABLE[256][3];
extern const float MAGMA_TABLE[256][3];
extern const float PLASMA_TABLE[256][3];
extern const float INFERNO_TABLE[256][3];

}  // namespace ombrix::core::detail
