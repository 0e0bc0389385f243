#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include <ombrix/core/octree/padded_append_detail.h>
#include <ombrix/core/points/append_detail.h>
#include <ombrix/core/points/point_cloud.h>
#include <ombrix/core/services/work_detail.h>

namespace ombrix::core::detail {

/// Takes back what was appended to a cloud, down to fields that were added to it.
class AppendRollback {
public:
    explicit AppendRollback(PointCloud& cloud)
        : cloud_(cloud),
          positions_(cloud.positions().size()),
          colors_(cloud.colors().size()),
          scalars_(cloud.scalars().size()),
          fields_(cloud.fields()) {
        for (const auto& [name, field] : fields_) {
            sizes_.push_back(field->size());
        }
    }

    void undo() {
        cloud_.positions().resize(positions_);
        cloud_.colors().resize(colors_);
        cloud_.scalars().resize(scalars_);
        auto size = sizes_.begin();
        for (const auto& [name, field] : fields_) {
            field->resize(*size++);
        }
        cloud_.fields() = std::move(fields_);
    }

private:
    PointCloud& cloud_;
    std::uint64_t positions_;
    std::uint64_t colors_;
    std::uint64_t scalars_;
    FieldContainer fields_;  ///< shares the fields
    std::vector<std::uint64_t> sizes_;
};

/// `target.push_back(source, shift, false)` in portions.
inline void pushBackInPortions(PointCloud& target, const PointCloud& source, const Vector3d& shift,
                               Work& work) {
    constexpr std::uint64_t PORTION = 1u << 16;
    const std::uint64_t count = source.size();
    const auto inPortions = [&](std::uint64_t n, const auto& append) {
        for (std::uint64_t first = 0; first < n; first += PORTION) {
            append(first, std::min(n, first + PORTION) - 1);
            work.done(std::min(n - first, PORTION));
        }
    };
    const auto appendArray = [&](auto& values, const auto& added) {
        makeRoom(values, added.size());
        inPortions(added.size(),
                   [&](std::uint64_t first, std::uint64_t last) { appendRange(values, added, first, last); });
    };
    const std::uint64_t start = target.size();
    makeRoom(target.positions(), count);
    target.positions().resize(start + count);
    inPortions(count, [&](std::uint64_t first, std::uint64_t last) {
        for (std::uint64_t i = first; i <= last; ++i) {
            target.positions()[start + i] = (source.positions()[i].cast<double>() + shift).cast<float>();
        }
    });
    appendArray(target.colors(), source.colors());
    appendArray(target.scalars(), source.scalars());
    const bool even = std::all_of(source.fields().begin(), source.fields().end(),
                                  [&](const auto& entry) { return entry.second->size() == count; });
    if (even) {
        inPortions(count, [&](std::uint64_t first, std::uint64_t last) {
            target.fields().append(source.fields(), first, last);
        });
    } else {
        target.fields().append(source.fields());
    }
}

/// `appendPadded`, watched. When it is stopped, the target holds a part.
inline void appendPaddedWatched(PointCloud& target, const PointCloud& source, const Vector3d& shift,
                                Work& work) {
    adoptFields(target, source);
    pushBackInPortions(target, source, shift, work);
    padAttributes(target);
}

/// `appendEven` of all attributes, watched. When it is stopped, the target is as it was.
inline void appendWatched(PointCloud& target, const PointCloud& source, const Vector3d& shift, Work& work) {
    AppendRollback before(target);
    work.begin(1.0, 4 * source.size());
    try {
        appendEvenBy(target, source, false, [&] { pushBackInPortions(target, source, shift, work); });
    } catch (...) {
        before.undo();
        throw;
    }
}

}  // namespace ombrix::core::detail
