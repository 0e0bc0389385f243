#include "renderer.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

#include <tbb/parallel_for.h>

#include "depth_buffer.h"

namespace examples {

using ombrix::core::ColorRGB;
using ombrix::core::Octree;
using ombrix::core::Vector3f;
using ombrix::core::Visibility;

namespace {

constexpr int SCALE = 2;           ///< pixels of the depth buffer along one of the picture
constexpr float OVERLAP = 1.7f;    ///< diameter of a disc over the distance of neighbours
constexpr float LARGEST = 0.012f;  ///< radius of the largest disc, of the picture's height

/// The camera's projection to a depth buffer.
struct Projection {
    explicit Projection(const View& view, const Lens& lens)
        : center(view.frustum.getPosition().translation()),
          right(-view.frustum.ax()),
          up(view.frustum.ay()),
          forward(view.frustum.az()),
          width(static_cast<float>(SCALE * lens.width)),
          height(static_cast<float>(SCALE * lens.height)),
          focal(0.5f * height / view.frustum.slope()) {}

    Vector3f center;
    Vector3f right;
    Vector3f up;
    Vector3f forward;
    float width;
    float height;
    float focal;  ///< pixels
};

/// Draws with the spacing of the finest selected node below selection[index] that contains a point.
class Detail {
public:
    Detail(const Spacings& spacings, const std::vector<Visibility::HNode>& selection)
        : selection_(&selection) {
        for (const auto& node : selection)
            spacings_.push_back(&spacings.of(node.key));
    }

    [[nodiscard]] float spacingAt(std::size_t index, Octree::Aabb box, const Vector3f& p) const {
        const auto& nodes = *selection_;
        float spacing = spacings_[index]->at(box, p);
        while (nodes[index].childMask != 0) {
            const unsigned octant = (p.x() >= box.center.x() ? 4u : 0u) |
                                    (p.y() >= box.center.y() ? 2u : 0u) | (p.z() >= box.center.z() ? 1u : 0u);
            const std::uint32_t mask = nodes[index].childMask;
            if ((mask >> octant & 1u) == 0)
                break;
            index +=
                nodes[index].childOffset + static_cast<unsigned>(std::popcount(mask & ((1u << octant) - 1u)));
            box.radius *= 0.5f;
            box.center += Vector3f((octant & 4) != 0 ? box.radius : -box.radius,
                                   (octant & 2) != 0 ? box.radius : -box.radius,
                                   (octant & 1) != 0 ? box.radius : -box.radius);
            if (spacings_[index]->typical > 0.0f)
                spacing = spacings_[index]->at(box, p);
        }
        return spacing;
    }

private:
    const std::vector<Visibility::HNode>* selection_;
    std::vector<const Spacings::Local*> spacings_;
};

}  // namespace

Image draw(const Octree& tree, const Spacings& spacings, const std::vector<Visibility::HNode>& selection,
           const View& view, const Lens& lens, const Painter& painter, const Style& style) {
    const Projection projection(view, lens);
    const Detail detail(spacings, selection);
    const float nearest = 1e-3f * tree.extend();
    const float largest = LARGEST * projection.height;

    std::vector<std::vector<Splat>> perNode(selection.size());
    tbb::parallel_for(std::size_t{0}, selection.size(), [&](std::size_t i) {
        const Octree::Node& node = tree.node(selection[i].key);
        if (!node.pc || node.pc->size() == 0)
            return;
        const Octree::Aabb box = tree.node_aabb(node);
        std::vector<ColorRGB> colors;
        painter.paint(*node.pc, colors);
        for (std::size_t k = 0; k < colors.size(); ++k) {
            const Vector3f& p = node.pc->positions()[k];
            const Vector3f d = p - projection.center;
            const float depth = d.dot(projection.forward);
            if (!(depth > nearest))
                continue;
            const float scale = projection.focal / depth;
            const float spacing = OVERLAP * style.splat * detail.spacingAt(i, box, p);
            Splat splat{};
            splat.x = 0.5f * projection.width + scale * d.dot(projection.right);
            splat.y = 0.5f * projection.height - scale * d.dot(projection.up);
            splat.radius = std::min(0.5f * spacing * scale, largest);
            splat.depth = depth;
            splat.bulge = 0.5f * spacing;
            splat.color = colors[k];
            const bool inside = splat.x > -splat.radius && splat.x < projection.width + splat.radius &&
                                splat.y > -splat.radius && splat.y < projection.height + splat.radius;
            if (inside)
                perNode[i].push_back(splat);
        }
    });

    std::size_t count = 0;
    for (const auto& splats : perNode)
        count += splats.size();
    std::vector<Splat> splats;
    splats.reserve(count);
    for (const auto& some : perNode)
        splats.insert(splats.end(), some.begin(), some.end());

    DepthBuffer buffer(SCALE * lens.width, SCALE * lens.height);
    buffer.draw(splats);
    if (style.closed)
        buffer.closeGaps();
    return buffer.resolve(SCALE, style.edl);
}

}  // namespace examples
