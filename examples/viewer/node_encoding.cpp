#include "node_encoding.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>

#include <ombrix/core/octree/morton.h>

namespace examples::viewer {

using ombrix::core::Octree;
using ombrix::core::Vector3f;

namespace {

static_assert(std::endian::native == std::endian::little, "what is sent is copied from memory");

constexpr std::size_t NODE_HEAD_BYTES = 24;

/// Fills a string with values one after another; its size is known beforehand.
class Writer {
public:
    explicit Writer(std::size_t bytes) : text_(bytes, '\0') {}

    template <class Value>
    void put(const Value& value) {
        std::memcpy(text_.data() + size_, &value, sizeof value);
        size_ += sizeof value;
    }
    [[nodiscard]] std::string take() { return std::move(text_); }

private:
    std::string text_;
    std::size_t size_ = 0;
};

/// Where a value stands between low and low + width, in steps of 1/65535.
std::uint16_t share(float value, float low, float width) {
    const float at = (value - low) / width;
    // What is not a number fails the comparison.
    return at > 0.0f ? static_cast<std::uint16_t>(std::lround(std::min(at, 1.0f) * 65535.0f))
                     : std::uint16_t{0};
}

/// See `encodeNode`. Counts the cells that the points lie in, level by level: the points of a cell follow one
/// another, for a tree's builder leaves them in Morton order.
float spacingOf(const ombrix::core::PointCloud& cloud, const Vector3f& corner, float edge) {
    constexpr unsigned levels = 16;
    constexpr double alone = 0.63;  // 1 - 1 / e
    std::array<double, levels + 1> cells{};
    std::array<std::uint32_t, 3> before{};
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        std::uint32_t changed = 0;
        for (int axis = 0; axis < 3; ++axis) {
            const std::uint32_t at = share(cloud.positions()[i][axis], corner[axis], edge);
            auto& last = before[static_cast<std::size_t>(axis)];
            changed |= at ^ last;
            last = at;
        }
        // The first level at which it is another cell than the point's before; the first point opens level 0.
        if (i == 0)
            ++cells[0];
        else if (changed != 0)
            ++cells[levels + 1 - static_cast<unsigned>(std::bit_width(changed))];
    }
    const double wanted = alone * static_cast<double>(cloud.size());
    double level = 0.0;
    for (unsigned next = 1; next <= levels && cells[next - 1] < wanted; ++next) {
        cells[next] += cells[next - 1];
        level = next;
        if (cells[next] >= wanted)
            level -= std::log(cells[next] / wanted) / std::log(cells[next] / cells[next - 1]);
    }
    return edge * static_cast<float>(std::min(std::exp2(-level), 1.0 / 64.0));
}

}  // namespace

std::string keyText(std::uint64_t key) {
    char text[24];
    return {text, std::to_chars(text, text + sizeof text, key, 8).ptr};
}

std::optional<std::uint64_t> keyOf(std::string_view text) {
    // A root digit and one for each level; 22 octal digits are within 64 bits when the first is 1.
    if (text.empty() || text.size() > Octree::MAX_DEPTH + 1 || text.front() != '1')
        return std::nullopt;
    std::uint64_t key = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), key, 8);
    if (error != std::errc{} || end != text.data() + text.size())
        return std::nullopt;
    return key;
}

std::string encodeNode(const Octree& tree, const Octree::Node& node, const Range& intensity) {
    static const ombrix::core::PointCloud none;
    const ombrix::core::PointCloud& cloud = node.pc ? *node.pc : none;
    const auto count = static_cast<std::uint32_t>(cloud.size());
    const Vector3f corner = tree.node_origin(node);
    const float edge = 2.0f * tree.node_aabb(node).radius;

    Writer out(NODE_HEAD_BYTES + std::size_t{12} * count);
    out.put(count);
    for (int axis = 0; axis < 3; ++axis)
        out.put(corner[axis]);
    out.put(edge);
    out.put(spacingOf(cloud, corner, edge));
    for (std::uint32_t i = 0; i < count; ++i) {
        const Vector3f& p = cloud.positions()[i];
        for (int axis = 0; axis < 3; ++axis)
            out.put(share(p[axis], corner[axis], edge));
        out.put(i < cloud.scalars().size()
                    ? share(cloud.scalars()[i], intensity.low, intensity.high - intensity.low)
                    : std::uint16_t{0});
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        constexpr std::uint8_t full = 255;
        const auto color =
            i < cloud.colors().size() ? cloud.colors()[i] : ombrix::core::ColorRGB(full, full, full);
        for (const std::uint8_t channel : {color.r, color.g, color.b, full})
            out.put(channel);
    }
    return out.take();
}

std::string encodeNormals(const Vector3f* normals, std::size_t count) {
    Writer out(4 * count);
    for (std::size_t i = 0; i < count; ++i) {
        for (int axis = 0; axis < 3; ++axis)
            out.put(
                static_cast<std::int8_t>(std::lround(127.0f * std::clamp(normals[i][axis], -1.0f, 1.0f))));
        out.put(std::int8_t{0});
    }
    return out.take();
}

std::string encodeNumbers(const float* values, std::size_t count, const Range& range) {
    Writer out(2 * count);
    for (std::size_t i = 0; i < count; ++i)
        out.put(share(values[i], range.low, range.high - range.low));
    return out.take();
}

}  // namespace examples::viewer
