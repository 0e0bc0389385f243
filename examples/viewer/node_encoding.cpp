#include "node_encoding.h"

#include <algorithm>
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

    Writer out(20 + std::size_t{12} * count);
    out.put(count);
    for (int axis = 0; axis < 3; ++axis)
        out.put(corner[axis]);
    out.put(edge);
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
