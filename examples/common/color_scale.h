#pragma once

#include <utility>
#include <vector>

#include <examples/common/arguments.h>
#include <ombrix/core/color/color_map.h>

namespace examples {

/// The library's colour maps by name.
[[nodiscard]] const Names<ombrix::core::DEFAULT_COLORMAP>& mapNames();

/// Lowest and highest finite value of a sample without the lowest and the highest hundredth; (0, 0) without
/// any. A scale over all values would show the outliers and little else.
[[nodiscard]] std::pair<float, float> rangeWithoutTails(std::vector<float> sample);

}  // namespace examples
