#include <algorithm>
#include <cmath>
#include <iostream>

#include <ombrix/core/color/color_map.h>
#include <ombrix/core/color/color_map_tables_detail.h>

namespace ombrix::core {
namespace {

constexpr float LAST_STEP = static_cast<float>(ColorMap::MAX_STEPS - 1);

constexpr float ONE_THIRD = 0.33333334f;
constexpr float TWO_THIRDS = 0.6666667f;

constexpr float RAINBOW_ELEMENTS[] = {0.0f,       0.0f, 0.0f, 1.0f,            //
                                      ONE_THIRD,  0.0f, 1.0f, 0.0f,            //
                                      TWO_THIRDS, 1.0f, 1.0f, 0.0f,            //
                                      1.0f,       1.0f, 0.0f, 0.0f};           //
constexpr float RAINBOW_REVERSED_ELEMENTS[] = {0.0f,       1.0f, 0.0f, 0.0f,   //
                                               ONE_THIRD,  1.0f, 1.0f, 0.0f,   //
                                               TWO_THIRDS, 0.0f, 1.0f, 0.0f,   //
                                               1.0f,       0.0f, 0.0f, 1.0f};  //
constexpr float GRAY_ELEMENTS[] = {0.0f, 0.0f, 0.0f, 0.0f,                     //
                                   1.0f, 1.0f, 1.0f, 1.0f};                    //

ColorRGB_F mix(float w, const ColorRGB_F& a, const ColorRGB_F& b) {
    return {(1.0f - w) * a.r + w * b.r, (1.0f - w) * a.g + w * b.g, (1.0f - w) * a.b + w * b.b};
}

}  // namespace

ColorMap::ColorMap(float min, float max, ColorRGB_F c0, ColorRGB_F c1)
    : elements_{{0.0f, c0}, {1.0f, c1}}, min_(min), max_(max) {}

void ColorMap::insert(const Element& e, bool update) {
    const auto same = std::find_if(elements_.begin(), elements_.end(),
                                   [&e](const Element& other) { return other.position == e.position; });
    if (same != elements_.end()) {
        same->color = e.color;
        this->update();
        return;
    }
    elements_.push_back(e);
    if (update) {
        this->update();
    }
}

void ColorMap::remove(unsigned int i) {
    elements_.erase(elements_.begin() + i);
    update();
}

void ColorMap::clear() {
    elements_.clear();
    update();
}

void ColorMap::sort() {
    // NaN counts as the greatest, so that the order is one.
    std::stable_sort(elements_.begin(), elements_.end(), [](const Element& a, const Element& b) {
        return a.position < b.position || (!std::isnan(a.position) && std::isnan(b.position));
    });
}

void ColorMap::update() {
    if (elements_.size() < 2) {
        steps_.fill(elements_.empty() ? ColorRGB_F() : elements_.front().color);
        return;
    }
    sort();
    if (!(elements_.front().position == 0.0f && elements_.back().position == 1.0f)) {
        std::cout << "WARNING ColorMap invalide interval" << std::endl;
        return;
    }
    const std::size_t last = elements_.size() - 1;
    std::size_t j = 0;
    for (unsigned int k = 0; k < MAX_STEPS; ++k) {
        const float t = static_cast<float>(k) / LAST_STEP;
        while (j + 1 < last && t > elements_[j + 1].position) {
            ++j;
        }
        const Element& from = elements_[j];
        const Element& to = elements_[j + 1];
        steps_[k] = mix((t - from.position) / (to.position - from.position), from.color, to.color);
    }
}

void ColorMap::set_boundaries(float min, float max) {
    min_ = min;
    max_ = max;
}

float ColorMap::relative_pos(float x) const {
    return std::clamp((x - min_) / (max_ - min_), 0.0f, 1.0f);
}

ColorRGB_F ColorMap::color_absolute(float x) const {
    return min_ == max_ ? steps_[0] : color_relative(relative_pos(x));
}

ColorRGB_F ColorMap::color_relative(float t) const {
    return std::isnan(t) ? steps_[0] : steps_[static_cast<std::size_t>(t * LAST_STEP)];
}

unsigned char ColorMap::color_threshold(float x) const {
    return min_ <= x && x <= max_ ? 255 : 0;
}

void ColorMap::set_colors(int n, const float* data) {
    clear();
    for (int i = 0; i < n; ++i, data += 4) {
        insert({data[0], {data[1], data[2], data[3]}}, false);
    }
    update();
}

void ColorMap::set_colors(const float (*table)[3]) {
    clear();
    for (int i = 0; i < 256; ++i) {
        insert({static_cast<float>(i) / 255.0f, {table[i][0], table[i][1], table[i][2]}}, false);
    }
    update();
}

void ColorMap::set_colors(DEFAULT_COLORMAP map) {
    switch (map) {
        case RAINBOW:
            return set_colors(4, RAINBOW_ELEMENTS);
        case GRAY:
            return set_colors(2, GRAY_ELEMENTS);
        case VIRIDIS:
            return set_colors(detail::VIRIDIS_TABLE);
        case MAGMA:
            return set_colors(detail::MAGMA_TABLE);
        case PLASMA:
            return set_colors(detail::PLASMA_TABLE);
        case INFERNO:
            return set_colors(detail::INFERNO_TABLE);
        case RAINBOW_REVERSED:
            return set_colors(4, RAINBOW_REVERSED_ELEMENTS);
    }
}

}  // namespace ombrix::core
