#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "model.h"

namespace examples::viewer {

/// What is computed of the points' neighbourhoods.
enum class Field { normal, curvature, density };

/// The field of that name; none for other names.
[[nodiscard]] std::optional<Field> fieldNamed(std::string_view name);

/// Normals, curvature and density of all points of a model, each computed in the background when it is first
/// asked for. Several threads may ask at once.
class DerivedFields {
public:
    enum class State { computing, ready, failed };

    explicit DerivedFields(const Model& model);
    /// Waits for what is being computed.
    ~DerivedFields();
    DerivedFields(const DerivedFields&) = delete;
    DerivedFields& operator=(const DerivedFields&) = delete;

    /// Starts to compute a field unless that was done before.
    State request(Field field);
    /// Whether something is being computed now.
    [[nodiscard]] bool busy() const;

    /// Scale of a field that is ready; of 0 to 1 for normals.
    [[nodiscard]] Range range(Field field) const;
    /// The field, which must be ready, of the points of a node, which must exist: for each point four signed
    /// bytes x, y, z, 0 of -127 to 127, or a little-endian 16-bit number, 0 and 65535 the ends of the range.
    [[nodiscard]] std::string encode(Field field, std::uint64_t key) const;

private:
    struct Values {
        std::optional<State> state;  ///< none: not asked for yet
        Range range;
        std::vector<float> numbers;
        std::vector<ombrix::core::Vector3f> normals;
        std::thread worker;
    };

    void compute(Field field);
    [[nodiscard]] ombrix::core::PointCloud wholeCloud() const;
    [[nodiscard]] Values& values(Field field) { return values_[static_cast<std::size_t>(field)]; }
    [[nodiscard]] const Values& values(Field field) const { return values_[static_cast<std::size_t>(field)]; }

    const Model& model_;
    /// Where a node's points stand among those of all nodes.
    std::unordered_map<std::uint64_t, std::size_t> firstOf_;
    std::vector<std::uint64_t> keys_;  ///< nodes with points, in the order of their points
    mutable std::mutex mutex_;         ///< of `state`s; a ready field's values do not change
    std::mutex oneAtATime_;            ///< memory for one computation, not three
    std::array<Values, 3> values_;
};

}  // namespace examples::viewer
