#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include <examples/viewer/clients.h>
#include <examples/viewer/derived_fields.h>
#include <examples/viewer/messages.h>
#include <examples/viewer/model.h>
#include <examples/viewer/node_encoding.h>
#include <ombrix/core/octree/nested_octree_factory.h>

#include "program.h"

namespace ombrix::tests {
namespace {

using namespace examples::viewer;
using core::Octree;
using core::PointCloud;
using core::Vector3d;
using core::Vector3f;
using std::chrono::seconds;

template <class Value>
Value read(const std::string& bytes, std::size_t at) {
    Value value;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}

/// A tree of one node, [0, 8] on each axis.
Octree oneNode(const std::shared_ptr<PointCloud>& cloud) {
    Octree tree;
    tree.setOriginTop(Vector3f::Zero(), Vector3f::Constant(8.0f));
    tree.add_node(1).pc = cloud;
    return tree;
}

/// A model of a plane z = x / 2 of 96,000 points, national-grid coordinates, an intensity that is x.
Model slope() {
    const auto path = emptyFolder() / "slope.xyz";
    std::ofstream out(path);
    out.precision(12);
    for (int x = 0; x < 320; ++x)
        for (int y = 0; y < 300; ++y)
            out << 600000 + 0.5 * x << ' ' << 200000 + 0.5 * y << ' ' << 400 + 0.25 * x << ' ' << x << '\n';
    out.close();
    return loadModel({path});
}

const char* const CAMERA =
    R"({"position": [1, 2, 3], "right": [1, 0, 0], "up": [0, 1, 0], "forward": [0, 0, 1],
    "fov": 60, "aspect": 2, "height": 500, "near": 1, "far": 100})";

std::string frame(const std::string& camera, const std::string& rest = R"("budget": 5, "minSize": 2)") {
    return R"({"client": "c", "seen": 3, "camera": )" + camera + ", " + rest + "}";
}

std::string with(std::string text, const std::string& part, const std::string& other) {
    return text.replace(text.find(part), part.size(), other);
}

}  // namespace

TEST(ViewerKeys, AreOctalTextsOfPossibleNodes) {
    for (const std::uint64_t key : {std::uint64_t{1}, std::uint64_t{8 + 5}, std::uint64_t{1} << 63})
        EXPECT_EQ(keyOf(keyText(key)), key);
    EXPECT_EQ(keyText(8 * 8 + 8 * 3 + 7), "137");
    for (const char* text : {"", "0", "2", "18", "1 ", "-1", "1a", "10000000000000000000000"})
        EXPECT_FALSE(keyOf(text)) << text;
}

TEST(ViewerNodes, ComeWithinHalfAStep) {
    auto cloud = std::make_shared<PointCloud>();
    for (const Vector3f& p :
         {Vector3f(0, 0, 0), Vector3f(8, 8, 8), Vector3f(1.2345f, 6.789f, 4), Vector3f(9, -1, 4)})
        cloud->positions().push_back(p);
    cloud->scalars() = {10, 20, 15, NAN};
    cloud->colors() = {{1, 2, 3}};
    const Octree tree = oneNode(cloud);
    const std::string bytes = encodeNode(tree, tree.node(1), {10, 20});
    ASSERT_EQ(bytes.size(), 24u + 4 * 12);
    EXPECT_EQ(read<std::uint32_t>(bytes, 0), 4u);
    EXPECT_EQ(read<float>(bytes, 16), 8.0f);
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const float place =
                read<float>(bytes, 4 + 4 * axis) +
                8.0f * static_cast<float>(read<std::uint16_t>(bytes, 24 + 8 * i + 2 * axis)) / 65535;
            // What lies outside comes to the cube's face.
            const float inside = std::clamp(cloud->positions()[i][static_cast<int>(axis)], 0.0f, 8.0f);
            EXPECT_NEAR(place, inside, 8.0f / 131070 + 1e-6f);
        }
    for (const auto& [point, share] : std::map<std::size_t, int>{{0, 0}, {1, 65535}, {2, 32768}, {3, 0}})
        EXPECT_EQ(read<std::uint16_t>(bytes, 24 + 8 * point + 6), share);
    EXPECT_EQ(bytes.substr(24 + 32, 8), std::string("\1\2\3\xff\xff\xff\xff\xff"));
}

TEST(ViewerNodes, TellHowFarThePointsAreApart) {
    // n points strewn over a square of the root's size, in Morton order as the builder leaves them, are
    // edge / sqrt(n) apart.
    std::mt19937 random(5);
    std::uniform_real_distribution<float> place(0.0f, 8.0f);
    for (const int count : {10, 20000, 60000}) {
        PointCloud cloud;
        for (int i = 0; i < count; ++i)
            cloud.positions().emplace_back(place(random), place(random), 1.0f);
        cloud.resize(cloud.size());
        core::NestedOctreeFactory factory(Vector3f::Zero(), 8.0f);
        factory.add(cloud);
        Octree tree;
        factory(tree);
        const auto spacing = read<float>(encodeNode(tree, tree.node(1), {0, 1}), 20);
        const float expected = std::min(8.0f / std::sqrt(static_cast<float>(count)), 8.0f / 64);
        EXPECT_GT(spacing, 0.7f * expected) << count;
        EXPECT_LT(spacing, 1.4f * expected) << count;
    }
}

TEST(ViewerModel, KeepsThePlaceInTheWorldAndComputesFields) {
    const Model model = slope();
    EXPECT_EQ(model.tree->size(), 96000u);
    EXPECT_LT((model.box.min + model.shift - Vector3d(600000, 200000, 400)).norm(), 1e-6);
    EXPECT_GT(model.tree->keyCount(), 1u);
    EXPECT_TRUE(model.hasIntensity && !model.intensityIsBrightness && !model.hasColors);
    EXPECT_NEAR(model.height.high - model.height.low, 0.98 * 80, 0.5);

    DerivedFields fields(model);
    const Vector3f up = Vector3f(-0.5f, 0, 1).normalized();
    for (const Field field : {Field::normal, Field::curvature, Field::density}) {
        while (fields.request(field) == DerivedFields::State::computing)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        ASSERT_EQ(fields.request(field), DerivedFields::State::ready);
    }
    // 4 points a squared unit of the ground; the plane is larger than its ground.
    const float density = 4.0f * up.z();
    const Range range = fields.range(Field::density);
    std::size_t typical = 0;
    for (const std::uint64_t key : model.tree->keys()) {
        const PointCloud& cloud = *model.tree->node(key).pc;
        const std::string normals = fields.encode(Field::normal, key);
        const std::string curvature = fields.encode(Field::curvature, key);
        const std::string densities = fields.encode(Field::density, key);
        ASSERT_EQ(normals.size(), 4 * cloud.size());
        ASSERT_EQ(densities.size(), 2 * cloud.size());
        for (std::size_t i = 0; i < cloud.size(); ++i) {
            for (int axis = 0; axis < 3; ++axis)
                ASSERT_NEAR(read<std::int8_t>(normals, 4 * i + static_cast<std::size_t>(axis)),
                            127 * up[axis], 1.1f);
            const float share = static_cast<float>(read<std::uint16_t>(densities, 2 * i)) / 65535;
            typical += std::abs(range.low + share * (range.high - range.low) - density) < 0.25f * density;
        }
    }
    // Fewer neighbours at the border
    EXPECT_GT(typical, 90000u);
    EXPECT_LT(fields.range(Field::curvature).high, 1e-3f);
    EXPECT_FALSE(fieldNamed("banana"));
}

TEST(ViewerClients, AreForgottenWhenTheyAreSilent) {
    const Octree tree = oneNode(std::make_shared<PointCloud>());
    Clients::Clock::time_point now{};
    Clients clients(tree, 2, seconds(60), [&] { return now; });
    const std::string first = clients.open();
    const std::string second = clients.open();
    EXPECT_NE(first, second);
    EXPECT_TRUE(clients.open().empty()) << "there is room for two";
    now += seconds(50);
    EXPECT_TRUE(clients.find(first));
    now += seconds(20);
    EXPECT_FALSE(clients.find(second)) << "silent for 70 seconds";
    const auto held = clients.find(first);
    clients.close(first);
    EXPECT_FALSE(clients.find(first));
    EXPECT_EQ(clients.size(), 0u);
    EXPECT_EQ(held->answers, 0u) << "a client in use lives on";
}

TEST(ViewerMessages, GiveTheCameraOrSayWhatIsWrong) {
    const FrameRequest request = parseFrameRequest(frame(CAMERA));
    EXPECT_EQ(request.client + std::to_string(request.seen), "c3");
    EXPECT_EQ(request.camera.pixelHeight(), 500);
    // Half of the view's height at a depth of 10 is 5.77, of its width 11.5.
    EXPECT_EQ(request.camera.pointInFrustum({12.4f, 2, 13}), 2);
    EXPECT_EQ(request.camera.pointInFrustum({12.7f, 2, 13}), 0);

    const std::string good = frame(CAMERA);
    for (const auto& bad :
         {std::string("{"), std::string("[]"), std::string("null"), std::string(20000, '['), frame("7"),
          with(good, "\"near\"", "\"n\""), with(good, "60", "0"), with(good, "60", "\"60\""),
          with(good, "[1, 2, 3]", "[1, 2]"), with(good, "[1, 2, 3]", "[1, 2, 1e40]"),
          with(good, "[1, 2, 3]", "[1, 2, null]"), with(good, "500", "-5"), with(good, "5,", "-5,"),
          with(good, "\"budget\": 5", "\"budget\": 5.5"), with(good, "\"c\"", "1"),
          with(good, "\"budget\": 5", "\"budget\": 99999999999")})
        EXPECT_THROW((void)parseFrameRequest(bad), BadMessage) << bad.substr(0, 200);
    EXPECT_THROW((void)parsePickRequest(std::string("{\"camera\": ") + CAMERA + ", \"u\": 2, \"v\": 0}"),
                 BadMessage);
}

}  // namespace ombrix::tests
