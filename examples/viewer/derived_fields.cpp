#include "derived_fields.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>

#include <examples/common/arguments.h>
#include <examples/common/color_scale.h>
#include <examples/common/console.h>
#include <examples/common/neighbourhoods.h>
#include <examples/common/tree_building.h>

#include "node_encoding.h"

namespace examples::viewer {

using ombrix::core::PointCloud;
using ombrix::core::Vector3f;

namespace {

constexpr std::size_t SAMPLES = 100'000;

const Names<Field>& fieldNames() {
    static const Names<Field> names{
        {"normal", Field::normal}, {"curvature", Field::curvature}, {"density", Field::density}};
    return names;
}

Range rangeOf(const std::vector<float>& values) {
    std::vector<float> sample;
    for (std::size_t i = 0; i < values.size(); i += std::max<std::size_t>(1, values.size() / SAMPLES))
        sample.push_back(values[i]);
    const auto [low, high] = rangeWithoutTails(std::move(sample));
    return {low, high};
}

}  // namespace

std::optional<Field> fieldNamed(std::string_view name) {
    for (const auto& [text, field] : fieldNames())
        if (text == name)
            return field;
    return std::nullopt;
}

DerivedFields::DerivedFields(const Model& model) : model_(model) {
    keys_ = model.tree->keys();
    std::erase_if(keys_, [&](std::uint64_t key) { return !model.tree->node(key).pc; });
    std::sort(keys_.begin(), keys_.end());
    std::size_t first = 0;
    for (const std::uint64_t key : keys_) {
        firstOf_[key] = first;
        first += model.tree->node(key).pc->size();
    }
}

DerivedFields::~DerivedFields() {
    for (Values& field : values_)
        if (field.worker.joinable())
            field.worker.join();
}

DerivedFields::State DerivedFields::request(Field field) {
    const std::lock_guard lock(mutex_);
    Values& wanted = values(field);
    if (!wanted.state) {
        wanted.worker = std::thread([this, field] { compute(field); });
        wanted.state = State::computing;
    }
    return *wanted.state;
}

bool DerivedFields::busy() const {
    const std::lock_guard lock(mutex_);
    return std::any_of(values_.begin(), values_.end(),
                       [](const Values& field) { return field.state == State::computing; });
}

Range DerivedFields::range(Field field) const {
    return values(field).range;
}

std::string DerivedFields::encode(Field field, std::uint64_t key) const {
    const auto first = firstOf_.find(key);
    if (first == firstOf_.end())
        return {};
    const std::size_t count = model_.tree->node(key).pc->size();
    const Values& source = values(field);
    return field == Field::normal ? encodeNormals(source.normals.data() + first->second, count)
                                  : encodeNumbers(source.numbers.data() + first->second, count, source.range);
}

PointCloud DerivedFields::wholeCloud() const {
    PointCloud cloud;
    for (const std::uint64_t key : keys_) {
        const auto& positions = model_.tree->node(key).pc->positions();
        cloud.positions().insert(cloud.positions().end(), positions.begin(), positions.end());
    }
    return cloud;
}

void DerivedFields::compute(Field field) {
    State state = State::failed;
    Values& result = values(field);
    try {
        const std::lock_guard lock(oneAtATime_);
        PointCloud cloud = wholeCloud();
        Stopwatch watch;
        watch.time([&] {
            if (field == Field::normal) {
                computeNormals(cloud, model_.box);
                result.normals = std::move(cloud.normals());
                result.range = {0.0f, 1.0f};
            } else {
                result.numbers = field == Field::curvature ? curvatures(cloud) : densities(cloud);
                result.range = rangeOf(result.numbers);
            }
        });
        printRate(nameIn(fieldNames(), field), cloud.size(), watch.seconds());
        state = State::ready;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "viewer: %s: %s\n", nameIn(fieldNames(), field).c_str(), error.what());
    }
    const std::lock_guard lock(mutex_);
    result.state = state;
}

}  // namespace examples::viewer
