#include <cmath>

#include "files.h"

namespace ombrix::io::test {

namespace {

using core::Vector3d;
using core::Vector3f;
using Reading = IoTest;

constexpr std::size_t POINTS = 70'000;

// The same points in every format, in quarters so that each format holds them exactly.
std::vector<std::string> writeAll(const std::filesystem::path& folder) {
    core::PointCloud cloud;
    std::string text;
    std::string obj;
    std::string ascii = "ply\nformat ascii 1.0\nelement vertex " + std::to_string(POINTS) +
                        "\nproperty float x\nproperty float y\nproperty float z\nend_header\n";
    for (std::size_t i = 0; i < POINTS; ++i) {
        const Vector3f p(static_cast<float>(i % 512) / 4, static_cast<float>(i) / 4, 0.25f);
        cloud.positions().push_back(p);
        const std::string line =
            std::to_string(p.x()) + " " + std::to_string(p.y()) + " " + std::to_string(p.z()) + "\n";
        text += line;
        ascii += line;
        obj += "v " + line;
    }
    writePly(folder / "binary.ply", cloud);
    writeLas(folder / "a.las", cloud, Vector3d::Zero(), 0.25);
    for (const auto& [name, content] : {std::pair{"a.txt", text}, {"a.obj", obj}, {"ascii.ply", ascii}}) {
        std::ofstream(folder / name, std::ios::binary) << content;
    }
    return {"binary.ply", "a.las", "a.txt", "a.obj", "ascii.ply"};
}

}  // namespace

TEST_F(Reading, ViewsOfAnySizeGiveTheSame) {
    for (const std::string& name : writeAll(path(""))) {
        SCOPED_TRACE(name);
        ReadOptions tiny;
        tiny.viewBytes = 1;
        tiny.shift = Vector3d(10, -20, 0.5);
        const PointFile whole = readPoints(path(name));
        const PointFile pieces = readPoints(path(name), tiny);
        ASSERT_EQ(whole.cloud.size(), POINTS);
        ASSERT_EQ(pieces.cloud.size(), POINTS);
        EXPECT_EQ(pieces.shift, *tiny.shift);
        EXPECT_EQ(whole.box.max, Vector3d(127.75, (POINTS - 1) / 4.0, 0.25));
        EXPECT_EQ(whole.box.max, pieces.box.max);
        for (std::size_t i = 0; i < POINTS; ++i) {
            const Vector3d expected(static_cast<double>(i % 512) / 4, static_cast<double>(i) / 4, 0.25);
            ASSERT_EQ(world(whole, i), expected);
            ASSERT_EQ(world(pieces, i), expected);
        }
    }
}

TEST_F(Reading, ProgressGrowsToTheTotal) {
    for (const std::string& name : writeAll(path(""))) {
        SCOPED_TRACE(name);
        std::vector<std::uint64_t> calls;
        std::uint64_t total = 0;
        ReadOptions options;
        options.progress = [&](std::uint64_t done, std::uint64_t all) {
            calls.push_back(done);
            total = all;
        };
        const PointFile file = readPoints(path(name), options);
        const bool counted = file.format == PointFormat::PLY || file.format == PointFormat::LAS;
        EXPECT_EQ(total, counted ? POINTS : std::filesystem::file_size(path(name)));
        EXPECT_GT(calls.size(), 2u);
        EXPECT_TRUE(std::ranges::is_sorted(calls));
        EXPECT_EQ(calls.back(), total);
    }
}

TEST_F(Reading, StopsOnRequest) {
    for (const std::string& name : writeAll(path(""))) {
        SCOPED_TRACE(name);
        std::stop_source source;
        std::uint64_t reached = 0;
        ReadOptions options;
        options.stop = source.get_token();
        std::uint64_t total = 0;
        options.progress = [&](std::uint64_t done, std::uint64_t all) {
            reached = done;
            total = all;
            if (done > 0) {
                source.request_stop();
            }
        };
        EXPECT_THROW(static_cast<void>(readPoints(path(name), options)), Stopped);
        EXPECT_LT(reached, total);
        EXPECT_THROW(static_cast<void>(readPoints(path(name), options)), Error);  // before the first point
    }
}

TEST_F(Reading, AContextWatchesBesideTheOptions) {
    for (const std::string& name : writeAll(path(""))) {
        SCOPED_TRACE(name);
        std::uint64_t done = 0;
        ReadOptions options;
        options.progress = [&](std::uint64_t now, std::uint64_t) { done = now; };
        std::vector<double> told;
        const PointFile file =
            readPoints(path(name), options, {{}, [&](double fraction) { told.push_back(fraction); }});
        EXPECT_EQ(file.cloud.positions(), readPoints(path(name)).cloud.positions());
        EXPECT_TRUE(std::ranges::is_sorted(told));
        EXPECT_EQ(told.back(), 1.0);
        EXPECT_GT(done, 0u);

        std::stop_source source;
        const ombrix::core::WorkContext context{source.get_token(), [&](double) { source.request_stop(); }};
        EXPECT_THROW(static_cast<void>(readPoints(path(name), {}, context)), Stopped);
        EXPECT_THROW(static_cast<void>(readPoints(path(name), {}, context)), Stopped);
    }
}

TEST_F(Reading, TheShiftIsZeroNearTheOriginAndRoundFarFromIt) {
    const auto shiftOf = [&](const std::string& text) { return read("a.xyz", text).shift; };
    EXPECT_EQ(shiftOf("9999.9 -9999.9 0\n1e6 0 0\n"), Vector3d(0, 0, 0));
    EXPECT_EQ(shiftOf("10000 -10049 12345678.9\n"), Vector3d(10000, -10000, 12345700));
    EXPECT_EQ(shiftOf("1e300 0 0\n"), Vector3d(1e300, 0, 0));
}

TEST_F(Reading, WhatIsNoFileIsAnError) {
    const auto messageOf = [](const std::filesystem::path& file) -> std::string {
        try {
            static_cast<void>(readPoints(file));
        } catch (const Error& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(messageOf(path("no.ply")), path("no.ply").string() + ": opening: No such file or directory");
    EXPECT_EQ(messageOf(path("")), path("").string() + ": opening: is a directory");
    EXPECT_EQ(messageOf("/dev/null"), "/dev/null: opening: is no regular file");
    EXPECT_EQ(messageOf(file("a.las", "")), path("a.las").string() + ": byte 0: the file is empty");
}

TEST_F(Reading, TheShippedCloudIsWhatItsNoticeSays) {
    const PointFile file = readPoints(OMBRIX_SOURCE_DIR "/examples/data/swiss_fields.las");
    EXPECT_EQ(file.cloud.size(), 498868u);
    EXPECT_LT((file.box.min - Vector3d(589500.00, 231300.00, 722.555)).norm(), 1e-6);
    EXPECT_LT((file.box.max - Vector3d(590099.99, 231565.70, 789.905)).norm(), 1e-6);
    EXPECT_TRUE(file.hasColors);
    EXPECT_TRUE(file.fields.empty());
}

}  // namespace ombrix::io::test
