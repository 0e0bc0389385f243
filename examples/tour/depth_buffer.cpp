#include "depth_buffer.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

#include <tbb/parallel_for.h>

namespace examples {
namespace {

constexpr std::uint64_t EMPTY = ~std::uint64_t{0};
constexpr int BAND = 64;  ///< rows that one task draws

std::uint64_t packed(float depth, const ombrix::core::ColorRGB& color) {
    return std::uint64_t{std::bit_cast<std::uint32_t>(depth)} << 32 | std::uint64_t{color.r} << 16 |
           std::uint64_t{color.g} << 8 | color.b;
}

}  // namespace

DepthBuffer::DepthBuffer(int width, int height)
    : width_(width),
      height_(height),
      cells_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), EMPTY) {}

void DepthBuffer::drawRows(const Splat& splat, int firstRow, int lastRow) {
    const auto put = [&](int x, int y, float depth) {
        std::uint64_t& cell = cells_[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                                     static_cast<std::size_t>(x)];
        cell = std::min(cell, packed(depth, splat.color));
    };
    // The pixel under the centre, however small the disc
    const int centerX = static_cast<int>(std::floor(splat.x));
    const int centerY = static_cast<int>(std::floor(splat.y));
    if (centerX >= 0 && centerX < width_ && centerY >= firstRow && centerY < lastRow)
        put(centerX, centerY, splat.depth);

    const float sqRadius = splat.radius * splat.radius;
    const int left = std::max(0, static_cast<int>(std::ceil(splat.x - splat.radius - 0.5f)));
    const int right = std::min(width_ - 1, static_cast<int>(std::floor(splat.x + splat.radius - 0.5f)));
    const int top = std::max(firstRow, static_cast<int>(std::ceil(splat.y - splat.radius - 0.5f)));
    const int bottom = std::min(lastRow - 1, static_cast<int>(std::floor(splat.y + splat.radius - 0.5f)));
    for (int y = top; y <= bottom; ++y) {
        const float dy = static_cast<float>(y) + 0.5f - splat.y;
        for (int x = left; x <= right; ++x) {
            const float dx = static_cast<float>(x) + 0.5f - splat.x;
            const float sqDist = dx * dx + dy * dy;
            if (sqDist <= sqRadius)
                put(x, y, splat.depth + splat.bulge * sqDist / sqRadius);
        }
    }
}

void DepthBuffer::draw(const std::vector<Splat>& splats) {
    // Each band goes through the splats in turn, so no two threads touch one pixel.
    const int bands = (height_ + BAND - 1) / BAND;
    std::vector<std::vector<std::uint32_t>> queues(static_cast<std::size_t>(bands));
    for (std::uint32_t i = 0; i < splats.size(); ++i) {
        const Splat& splat = splats[i];
        const float reach = std::max(splat.radius, 1.0f);
        const int first = static_cast<int>(std::max(0.0f, splat.y - reach)) / BAND;
        const int last = static_cast<int>(std::min(static_cast<float>(height_ - 1), splat.y + reach)) / BAND;
        for (int band = first; band <= last; ++band)
            queues[static_cast<std::size_t>(band)].push_back(i);
    }
    tbb::parallel_for(0, bands, [&](int band) {
        const int firstRow = band * BAND;
        const int lastRow = std::min(height_, firstRow + BAND);
        for (const std::uint32_t i : queues[static_cast<std::size_t>(band)])
            drawRows(splats[i], firstRow, lastRow);
    });
}

/// What an empty pixel becomes; EMPTY unless filled pixels lie close by in all directions but two.
std::uint64_t DepthBuffer::gapFilling(int x, int y) const {
    constexpr int reach = 4;
    constexpr int mostMisses = 2;
    int misses = 0;
    int closest = reach + 1;
    std::uint64_t found = EMPTY;
    for (const auto& [dx, dy] :
         {std::pair{-1, 0}, {1, 0}, {0, -1}, {0, 1}, {-1, -1}, {1, 1}, {-1, 1}, {1, -1}}) {
        int steps = 0;
        std::uint64_t cell = EMPTY;
        while (cell == EMPTY && steps < reach) {
            ++steps;
            const int nx = x + dx * steps;
            const int ny = y + dy * steps;
            if (nx >= 0 && nx < width_ && ny >= 0 && ny < height_)
                cell = cellAt(nx, ny);
        }
        if (cell == EMPTY) {
            if (++misses > mostMisses)
                return EMPTY;
        } else if (steps < closest || (steps == closest && cell < found)) {
            closest = steps;
            found = cell;
        }
    }
    return found;
}

void DepthBuffer::closeGaps() {
    std::vector<std::uint64_t> closed = cells_;
    tbb::parallel_for(0, height_, [&](int y) {
        for (int x = 0; x < width_; ++x)
            if (cellAt(x, y) == EMPTY)
                closed[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                       static_cast<std::size_t>(x)] = gapFilling(x, y);
    });
    cells_ = std::move(closed);
}

float DepthBuffer::depthAt(int x, int y) const {
    const std::uint64_t cell = cellAt(x, y);
    return cell == EMPTY ? 0.0f : std::bit_cast<float>(static_cast<std::uint32_t>(cell >> 32));
}

float DepthBuffer::shadeAt(int x, int y, int step) const {
    constexpr float strength = 18.0f;
    const float depth = depthAt(x, y);
    float sum = 0.0f;
    for (const auto& [dx, dy] : {std::pair{-1, 0}, {1, 0}, {0, -1}, {0, 1}}) {
        const int nx = x + dx * step;
        const int ny = y + dy * step;
        if (nx < 0 || nx >= width_ || ny < 0 || ny >= height_)
            continue;
        if (const float neighbour = depthAt(nx, ny); neighbour > 0.0f)
            sum += std::max(0.0f, std::log2(depth / neighbour));
    }
    return std::max(0.35f, std::exp(-strength * sum));
}

Image DepthBuffer::resolve(int scale, bool edl) const {
    Image image(width_ / scale, height_ / scale);
    tbb::parallel_for(0, image.height, [&](int row) {
        // Dark slate, a little brighter towards the top
        const float fall = static_cast<float>(row) / static_cast<float>(image.height);
        const float background[3] = {44.0f - 22.0f * fall, 52.0f - 26.0f * fall, 66.0f - 32.0f * fall};
        for (int column = 0; column < image.width; ++column) {
            float sum[3] = {0.0f, 0.0f, 0.0f};
            for (int part = 0; part < scale * scale; ++part) {
                const int x = column * scale + part % scale;
                const int y = row * scale + part / scale;
                const std::uint64_t cell = cellAt(x, y);
                if (cell == EMPTY) {
                    for (int c = 0; c < 3; ++c)
                        sum[c] += background[c];
                    continue;
                }
                const float shade = edl ? shadeAt(x, y, scale) : 1.0f;
                for (int c = 0; c < 3; ++c)
                    sum[c] += shade * static_cast<float>(cell >> (16 - 8 * c) & 255u);
            }
            for (int c = 0; c < 3; ++c)
                image.pixel(column, row)[c] =
                    static_cast<unsigned char>(std::lround(sum[c] / static_cast<float>(scale * scale)));
        }
    });
    return image;
}

}  // namespace examples
