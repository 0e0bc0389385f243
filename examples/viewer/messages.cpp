#include "messages.h"

#include <array>
#include <limits>

#include <nlohmann/json.hpp>

#include <examples/common/color_scale.h>

#include "node_encoding.h"
#include "options.h"

namespace examples::viewer {

using nlohmann::json;
using ombrix::core::Vector3d;
using ombrix::core::Vector3f;
using ombrix::core::ViewFrustum;

namespace {

json parseObject(const std::string& body) {
    json message = json::parse(body, nullptr, false);
    if (!message.is_object())
        throw BadMessage("the message is not a JSON object");
    return message;
}

const json& member(const json& object, const char* name) {
    const auto found = object.find(name);
    if (found == object.end())
        throw BadMessage(std::string("\"") + name + "\" is missing");
    return *found;
}

double number(const json& object, const char* name, double low, double high) {
    const json& value = member(object, name);
    // JSON has no other numbers than finite ones, but large ones are read as infinity.
    if (!value.is_number() || !(value.get<double>() >= low && value.get<double>() <= high))
        throw BadMessage(std::string("\"") + name + "\" is not a number in its range");
    return value.get<double>();
}

std::uint64_t count(const json& object, const char* name, std::uint64_t most) {
    const json& value = member(object, name);
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() > most)
        throw BadMessage(std::string("\"") + name + "\" is not a whole number in its range");
    return value.get<std::uint64_t>();
}

std::string text(const json& object, const char* name) {
    const json& value = member(object, name);
    if (!value.is_string())
        throw BadMessage(std::string("\"") + name + "\" is not a text");
    return value.get<std::string>();
}

Vector3d vector(const json& object, const char* name) {
    const json& value = member(object, name);
    Vector3d result;
    bool good = value.is_array() && value.size() == 3;
    for (std::size_t axis = 0; good && axis < 3; ++axis) {
        good = value[axis].is_number();
        if (good)
            result[static_cast<Eigen::Index>(axis)] = value[axis].get<double>();
    }
    // Cameras are in single precision.
    if (!good || !result.cast<float>().allFinite())
        throw BadMessage(std::string("\"") + name + "\" is not a list of three numbers");
    return result;
}

ViewFrustum camera(const json& message) {
    const json& object = member(message, "camera");
    if (!object.is_object())
        throw BadMessage("\"camera\" is not an object");
    constexpr double most = std::numeric_limits<float>::max();
    ViewFrustum frustum;
    frustum.setIntrinsics(static_cast<float>(number(object, "fov", 0.1, 179.0)),
                          static_cast<float>(number(object, "aspect", 0.001, 1000.0)));
    const auto height = static_cast<int>(number(object, "height", 1.0, 65536.0));
    frustum.setPixelSize(height, height);
    frustum.setClipPlane(static_cast<float>(number(object, "near", 0.0, most)),
                         static_cast<float>(number(object, "far", 0.0, most)));
    ViewFrustum::Pose pose = ViewFrustum::Pose::Identity();
    pose.linear().col(0) = vector(object, "right").cast<float>();
    pose.linear().col(1) = vector(object, "up").cast<float>();
    pose.linear().col(2) = vector(object, "forward").cast<float>();
    pose.translation() = vector(object, "position").cast<float>();
    frustum.setPosition(pose);
    return frustum;
}

json list(const Vector3d& v) {
    return {v.x(), v.y(), v.z()};
}

json scale(const char* name, const std::string& title, const char* map, double low, double high) {
    return {{"name", name}, {"title", title}, {"map", map}, {"low", low}, {"high", high}};
}

json keyList(const std::vector<std::uint64_t>& keys) {
    json texts = json::array();
    for (const std::uint64_t key : keys)
        texts.push_back(keyText(key));
    return texts;
}

}  // namespace

FrameRequest parseFrameRequest(const std::string& body) {
    const json message = parseObject(body);
    FrameRequest request;
    request.client = text(message, "client");
    request.seen = count(message, "seen", std::numeric_limits<std::uint64_t>::max());
    request.camera = camera(message);
    request.budget = count(message, "budget", MOST_BUDGET);
    request.minSize = static_cast<float>(number(message, "minSize", 0.0, 65536.0));
    return request;
}

PickRequest parsePickRequest(const std::string& body) {
    const json message = parseObject(body);
    PickRequest request;
    request.camera = camera(message);
    request.u = number(message, "u", -1.0, 1.0);
    request.v = number(message, "v", -1.0, 1.0);
    request.clip = ombrix::core::PickBeam{}.clip;
    if (message.contains("clip")) {
        const json& clip = member(message, "clip");
        if (!clip.is_object())
            throw BadMessage("\"clip\" is not an object");
        request.clip = {vector(clip, "min"), vector(clip, "max")};
    }
    return request;
}

std::string parseClientName(const std::string& body) {
    return text(parseObject(body), "client");
}

std::string describe(const Model& model, std::uint64_t budget) {
    json maps = json::array();
    for (const auto& [name, map] : mapNames())
        maps.push_back(name);
    json colorings = json::array();
    if (model.hasColors)
        colorings.push_back({{"name", "rgb"}, {"title", "True colour"}});
    colorings.push_back(scale("height", "Height", "viridis", static_cast<double>(model.height.low),
                              static_cast<double>(model.height.high)));
    if (model.hasIntensity)
        colorings.push_back(scale(
            "intensity", model.intensityIsBrightness ? "Intensity (brightness of the colours)" : "Intensity",
            "gray", static_cast<double>(model.intensity.low), static_cast<double>(model.intensity.high)));
    colorings.push_back(
        {{"name", "normal"}, {"title", "Normal (x, y, z as red, green, blue)"}, {"field", true}});
    // These two are computed when they are asked for, and have their range only then.
    for (const auto& [name, title, map] :
         {std::array{"curvature", "Curvature (surface variation)", "plasma"},
          std::array{"density", "Density (points per squared unit)", "viridis"}})
        colorings.push_back({{"name", name}, {"title", title}, {"map", map}, {"field", true}});

    const json description = {{"name", model.name},
                              {"points", model.tree->size()},
                              {"nodes", model.tree->keyCount()},
                              {"depth", model.tree->max_depth()},
                              {"edge", model.tree->extend()},
                              {"shift", list(model.shift)},
                              {"box", {{"min", list(model.box.min)}, {"max", list(model.box.max)}}},
                              {"budget", {{"start", budget}, {"least", LEAST_BUDGET}}},
                              {"colorings", colorings},
                              {"maps", maps}};
    // A file's name need not be UTF-8.
    return description.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string describeClient(const std::string& name) {
    return json{{"client", name}}.dump();
}

std::string describe(const ombrix::core::FrameSelection& selection, std::uint64_t answer, bool whole) {
    return json{{"answer", answer},
                {"whole", whole},
                {"points", selection.pointCount()},
                {"nodes", selection.keys().size()},
                {"entered", keyList(whole ? selection.keys() : selection.entered())},
                {"left", keyList(whole ? std::vector<std::uint64_t>{} : selection.left())}}
        .dump();
}

std::string describe(const ombrix::core::PickResult& result, const Model& model) {
    if (!result.point)
        return json{{"found", false}}.dump();
    const Vector3d& position = result.point->position;
    return json{{"found", true},
                {"position", list(position)},
                {"world", list(position + model.shift)},
                {"key", keyText(result.point->key)},
                {"index", result.point->index},
                {"depth", result.point->depth},
                {"offset", result.point->offset}}
        .dump();
}

std::string describeField(bool ready, const Range& range) {
    return ready ? json{{"ready", true}, {"low", range.low}, {"high", range.high}}.dump()
                 : json{{"ready", false}}.dump();
}

std::string describeError(std::string_view text) {
    return json{{"error", text}}.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace examples::viewer
