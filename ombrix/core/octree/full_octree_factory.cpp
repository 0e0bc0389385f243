#include <cstdint>
#include <vector>

#include <ombrix/core/octree/cell_key_detail.h>
#include <ombrix/core/octree/full_octree_factory.h>
#include <ombrix/core/octree/morton_pairs_detail.h>
#include <ombrix/core/octree/padded_append_detail.h>
#include <ombrix/core/octree/recursive_build_detail.h>
#include <ombrix/core/octree/watched_append_detail.h>

namespace ombrix::core {
namespace {

/// Takes a cloud's scalars, where pairs can hold them, and gives them back at the end.
class ScalarsForPairs {
public:
    explicit ScalarsForPairs(PointCloud& cloud) : cloud_(cloud) {
        if (detail::canHoldScalars(cloud)) {
            content_ = detail::PairContent::INDEX_AND_SCALAR;
            scalars_.swap(cloud.scalars());
        }
    }
    ~ScalarsForPairs() {
        if (content_ == detail::PairContent::INDEX_AND_SCALAR) {
            scalars_.swap(cloud_.scalars());
        }
    }
    ScalarsForPairs(const ScalarsForPairs&) = delete;
    ScalarsForPairs& operator=(const ScalarsForPairs&) = delete;

    [[nodiscard]] detail::PairContent content() const { return content_; }
    [[nodiscard]] float operator[](std::uint64_t i) const { return scalars_[i]; }

private:
    PointCloud& cloud_;
    std::vector<float> scalars_;
    detail::PairContent content_ = detail::PairContent::INDEX;
};

}  // namespace

FullOctreeFactory::FullOctreeFactory(const Vector3f& origin, const Vector3f& top, unsigned int capacity)
    : OctreeFactory(origin, top), capacity_(capacity) {}

FullOctreeFactory::FullOctreeFactory(const Vector3f& origin, float extend, unsigned int capacity)
    : OctreeFactory(origin, extend), capacity_(capacity) {}

void FullOctreeFactory::add(const PointCloud& cloud, const Vector3d& shift) {
    detail::AppendRollback before(cloud_);
    try {
        detail::appendEven(cloud_, cloud, shift - origin_.cast<double>(), false);
    } catch (...) {
        before.undo();  // memory ran out: arrays of unlike lengths must not stay
        throw;
    }
    widenScalarRange(cloud);
}

void FullOctreeFactory::add(const PointCloud& cloud) {
    add(cloud, Vector3d::Zero());
}

bool FullOctreeFactory::add(const PointCloud& cloud, const Vector3d& shift, const WorkContext& context) {
    return detail::runWatched(context, [&](detail::Work& work) {
        detail::appendWatched(cloud_, cloud, shift - origin_.cast<double>(), work);
        widenScalarRange(cloud);
    });
}

bool FullOctreeFactory::add(const PointCloud& cloud, const WorkContext& context) {
    return add(cloud, Vector3d::Zero(), context);
}

void FullOctreeFactory::operator()(Octree& out) {
    factory(out);
}

bool FullOctreeFactory::operator()(Octree& out, const WorkContext& context) {
    return detail::runWatched(context, [&](detail::Work& work) {
        try {
            build(out, &work);
        } catch (...) {
            out.nodes().clear();
            throw;
        }
    });
}

void FullOctreeFactory::factory(Octree& out) {
    build(out, nullptr);
}

void FullOctreeFactory::build(Octree& out, detail::Work* work) {
    copyStateTo(out, Octree::FULL);
    const auto begin = [&](double share) {
        if (work != nullptr) {
            work->begin(share, cloud_.size());
        }
    };

    const std::vector<Vector3f>& positions = cloud_.positions();
    const double extend = extend_;
    begin(0.1);
    const auto codeOf = [&](std::uint64_t i) {
        return detail::cellKey(positions[i].cast<double>(), extend).key;
    };
    const ScalarsForPairs scalars(cloud_);
    OctreeConverter::PairVector pairs =
        scalars.content() == detail::PairContent::INDEX
            ? detail::mortonPairs(positions.size(), codeOf, work)
            : detail::mortonPairs(positions.size(), codeOf, work,
                                  [&](std::uint64_t i) { return detail::withScalar(i, scalars[i]); });
    begin(0.4);
    detail::sortByCode(pairs, work);
    begin(0.5);
    // Without points the last position wraps around and the run counts as empty.
    detail::recursiveBuild(cloud_, pairs, {0, positions.size() - 1, 1, 0}, capacity_, false, out, work,
                           scalars.content());
}

}  // namespace ombrix::core
