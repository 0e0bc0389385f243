#include <examples/common/color_scale.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace examples {

const Names<ombrix::core::DEFAULT_COLORMAP>& mapNames() {
    static const Names<ombrix::core::DEFAULT_COLORMAP> names{
        {"rainbow", ombrix::core::RAINBOW}, {"rainbow_reversed", ombrix::core::RAINBOW_REVERSED},
        {"gray", ombrix::core::GRAY},       {"viridis", ombrix::core::VIRIDIS},
        {"magma", ombrix::core::MAGMA},     {"plasma", ombrix::core::PLASMA},
        {"inferno", ombrix::core::INFERNO}};
    return names;
}

std::pair<float, float> rangeWithoutTails(std::vector<float> sample) {
    constexpr double tail = 0.01;
    std::erase_if(sample, [](float value) { return !std::isfinite(value); });
    if (sample.empty())
        return {0.0f, 0.0f};
    std::sort(sample.begin(), sample.end());
    const auto cut = static_cast<std::size_t>(tail * static_cast<double>(sample.size()));
    return {sample[cut], sample[sample.size() - 1 - cut]};
}

}  // namespace examples
