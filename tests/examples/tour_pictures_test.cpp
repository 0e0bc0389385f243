#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <ombrix/io/write_points.h>

#include "program.h"

namespace ombrix::tests {
namespace {

using core::ColorRGB;
using core::Vector3f;
using Pixel = std::array<int, 3>;

const ColorRGB GREY(128, 128, 128);
const ColorRGB RED(255, 0, 0);
const ColorRGB GREEN(0, 255, 0);
const ColorRGB BLUE(0, 0, 255);

/// Grey ground with a red patch in the east, a green one in the north and a blue tower in the middle.
/// Far from the origin, as maps are.
std::filesystem::path writeLandmarks(const std::filesystem::path& folder) {
    core::PointCloud cloud;
    const auto put = [&](float x, float y, float z, const ColorRGB& color) {
        core::Point point;
        point.position = Vector3f(x, y, z);
        point.color = color;
        cloud.push_back(point, true);
    };
    for (int i = 0; i < 300; ++i)
        for (int k = 0; k < 200; ++k) {
            const float x = static_cast<float>(i) / 3.0f;
            const float y = static_cast<float>(k) / 3.0f;
            const bool east = x > 90.0f && std::abs(y - 33.0f) < 8.0f;
            const bool north = y > 58.0f && std::abs(x - 50.0f) < 8.0f;
            put(x, y, 0.0f, east ? RED : north ? GREEN : GREY);
        }
    for (int i = 0; i < 5000; ++i) {
        const float turn = 0.1f * static_cast<float>(i);
        put(50.0f + 2.0f * std::cos(turn), 33.0f + 2.0f * std::sin(turn),
            0.1f + 0.004f * static_cast<float>(i), BLUE);
    }
    auto path = folder / "landmarks.ply";
    io::writePly(path, cloud, core::Vector3d(2'600'000.0, 1'200'000.0, 400.0));
    return path;
}
constexpr std::uint64_t POINTS = 300 * 200 + 5000;

Pixel at(const examples::Image& image, int x, int y) {
    return {image.pixel(x, y)[0], image.pixel(x, y)[1], image.pixel(x, y)[2]};
}

bool isBackground(const Pixel& p) {
    return std::max({p[0], p[1], p[2]}) <= 68;
}

/// Where the pixels of a colour lie on average.
struct Spot {
    double x = 0.0;
    double y = 0.0;
    int pixels = 0;
};

Spot find(const examples::Image& image, const ColorRGB& color) {
    Spot spot;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
            if (at(image, x, y) == Pixel{color.r, color.g, color.b}) {
                spot.x += x;
                spot.y += y;
                ++spot.pixels;
            }
    spot.x /= std::max(1, spot.pixels);
    spot.y /= std::max(1, spot.pixels);
    return spot;
}

/// Background pixels between the first and the last drawn one of each row: the ground is convex.
int holes(const examples::Image& image) {
    int count = 0;
    for (int y = 0; y < image.height; ++y) {
        int first = image.width;
        int last = -1;
        for (int x = 0; x < image.width; ++x)
            if (!isBackground(at(image, x, y))) {
                first = std::min(first, x);
                last = x;
            }
        for (int x = first; x < last; ++x)
            count += isBackground(at(image, x, y)) ? 1 : 0;
    }
    return count;
}

int drawn(const examples::Image& image) {
    int count = 0;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
            count += isBackground(at(image, x, y)) ? 0 : 1;
    return count;
}

/// The number in a column of the table's line that begins with a frame's name.
std::uint64_t tableEntry(const std::string& table, const std::string& frame, int column) {
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(frame, 0) == 0) {
            std::istringstream words(line);
            std::string word;
            for (int i = 0; i <= column; ++i)
                words >> word;
            return std::strtoull(word.c_str(), nullptr, 10);
        }
    ADD_FAILURE() << "no line " << frame << " in\n" << table;
    return 0;
}

class TourPictures : public testing::Test {
protected:
    void SetUp() override {
        folder_ = emptyFolder();
        cloud_ = writeLandmarks(folder_);
    }
    /// Runs with small pictures and gives the named one.
    examples::Image tour(const std::string& options, const std::string& picture,
                         const std::string& before = "") {
        outcome_ = run(before + TOUR_PROGRAM, cloud_.string() + " --output " + folder_.string() +
                                                  " --frames 4 --flight 2 --size 320x200 " + options);
        EXPECT_EQ(outcome_.status, 0) << options << '\n' << outcome_.err;
        return readPng(folder_ / picture);
    }

    std::filesystem::path folder_;
    std::filesystem::path cloud_;
    Outcome outcome_;
};

}  // namespace

TEST_F(TourPictures, StandUprightAndAreNotMirrored) {
    const auto south = tour("", "orbit_00.png");
    ASSERT_EQ(south.width, 320);
    ASSERT_EQ(south.height, 200);
    const Spot ground = find(south, GREY);
    ASSERT_GT(ground.pixels, 5000);  // true colours are shown as they are
    EXPECT_GT(find(south, RED).x, ground.x + 50);
    EXPECT_LT(find(south, GREEN).y, ground.y - 10);
    EXPECT_LT(find(south, BLUE).y, ground.y - 10);
    EXPECT_NEAR(find(south, BLUE).x, 160, 5);

    // From the east, north is on the right; then from the north, east is on the left.
    const auto east = readPng(folder_ / "orbit_01.png");
    EXPECT_GT(find(east, GREEN).x, find(east, GREY).x + 30);
    EXPECT_GT(find(east, RED).y, find(east, GREY).y + 10);
    const auto north = readPng(folder_ / "orbit_02.png");
    EXPECT_LT(find(north, RED).x, find(north, GREY).x - 50);
    // The flight goes along the longer side, so from west to east: north is on the left.
    const auto flight = readPng(folder_ / "flight_00.png");
    EXPECT_LT(find(flight, GREEN).x, find(flight, BLUE).x - 10);
}

TEST_F(TourPictures, HaveHolesOnlyWhereABudgetEndsInLeaves) {
    int wholePixels = 0;
    for (const char* tree : {"nested", "full", "dynamic"}) {
        const auto whole = tour(std::string("--min-size 0 --leaf 100 --tree ") + tree, "orbit_00.png");
        EXPECT_EQ(holes(whole), 0) << tree;
        wholePixels = drawn(whole);
        EXPECT_EQ(tableEntry(outcome_.out, "orbit_00", 2), POINTS) << tree;
    }
    const auto cut = tour("--tree full --leaf 100 --budget 20000", "orbit_00.png");
    EXPECT_LT(drawn(cut), 0.7 * wholePixels);
    EXPECT_GE(tableEntry(outcome_.out, "orbit_00", 2), 20'000u);
    EXPECT_LT(tableEntry(outcome_.out, "orbit_00", 2), 20'100u);
    tour("--budget 0", "orbit_00.png");
    EXPECT_EQ(tableEntry(outcome_.out, "orbit_00", 2), 0u);
}

TEST_F(TourPictures, OfANestedTreeAreCoarserNotTornWhenTheBudgetEnds) {
    const auto whole = tour("", "orbit_00.png");
    const std::uint64_t all = tableEntry(outcome_.out, "orbit_00", 2);
    // Two copies of the cloud, apart by a little: enough points for a second level.
    const auto coarse = tour(cloud_.string() + " --budget 1", "orbit_00.png");
    EXPECT_GT(tableEntry(outcome_.out, "orbit_00", 2), 0u);
    EXPECT_LT(tableEntry(outcome_.out, "orbit_00", 2), all / 2);
    EXPECT_LT(holes(coarse), 20);  // its rim is rough
    EXPECT_NEAR(find(coarse, GREY).pixels, find(whole, GREY).pixels, 0.05 * find(whole, GREY).pixels);
    const auto levels = readPng(folder_ / "levels.png");
    EXPECT_GE(levels.width, 320);
}

TEST_F(TourPictures, ShowValuesInTheColoursOfTheMap) {
    const auto rainbow = tour("--color height --map rainbow --shading none", "orbit_00.png");
    EXPECT_GT(find(rainbow, BLUE).pixels, 5000);  // the ground is lowest
    EXPECT_GT(find(rainbow, RED).pixels, 10);     // the tower's top, and the legend's right end
    const auto reversed = tour("--color height --map rainbow_reversed --shading none", "orbit_00.png");
    EXPECT_GT(find(reversed, RED).pixels, 5000);
    // Up is blue, and all of the ground points up.
    const auto normals = tour("--color normal --shading none", "orbit_00.png");
    EXPECT_GT(find(normals, ColorRGB(127, 127, 255)).pixels, 5000);
    const auto sheet = tour("--sheet", "sheet.png");
    EXPECT_NE(outcome_.out.find("6 colourings"), std::string::npos) << outcome_.out;
    EXPECT_GE(sheet.width, 320);
}

TEST_F(TourPictures, DoNotDependOnTheNumberOfThreads) {
    ASSERT_EQ(std::system("taskset -c 0 true"), 0);
    for (const char* picture : {"flight_01.png", "sheet.png"}) {
        const auto several = tour("--sheet --budget 30000 --tree full", picture);
        const auto one = tour("--sheet --budget 30000 --tree full", picture, "taskset -c 0 ");
        EXPECT_EQ(several.rgb, one.rgb) << picture;
    }
}

}  // namespace ombrix::tests
