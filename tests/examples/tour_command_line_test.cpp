#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "program.h"

namespace ombrix::tests {
namespace {

const std::string SHIPPED = OMBRIX_SOURCE_DIR "/examples/data/swiss_fields.las";

void expectFailure(const std::string& arguments, int status, const std::string& said) {
    const Outcome outcome = run(TOUR_PROGRAM, arguments);
    EXPECT_EQ(outcome.status, status) << arguments;
    EXPECT_NE(outcome.err.find(said), std::string::npos) << arguments << "\nsaid: " << outcome.err;
}

}  // namespace

TEST(TourCommandLine, RefusesWhatItDoesNotKnow) {
    expectFailure("--banana", 2, "unknown option '--banana'");
    expectFailure("-x 3", 2, "unknown option '-x'");
    expectFailure("--budget", 2, "option --budget needs a value");
    for (const char* argument :
         {"--budget=-1", "--budget=", "--budget=1e6", "--frames=3.5", "--frames=99999999999999999999",
          "--leaf=0", "--size=100", "--size=0x100", "--size=100x", "--size=100x99999", "--fov=0", "--fov=nan",
          "--fov=50deg", "--min-size=-1", "--min-size=inf", "--tree=oak", "--color=blue", "--map=jet",
          "--shading=soft"}) {
        const std::string option = std::string(argument).substr(0, std::string(argument).find('='));
        expectFailure(argument, 2, "bad value");
        expectFailure(argument, 2, option);
    }
}

TEST(TourCommandLine, NamesTheFileThatFails) {
    const auto folder = emptyFolder();
    const auto in = [&](const char* name) { return (folder / name).string(); };
    std::ofstream(in("empty.xyz")).flush();
    std::ofstream(in("rubbish.ply")) << "ply\nformat sideways 1.0\nend_header\n";
    std::ofstream(in("header_only.ply")) << "ply\nformat ascii 1.0\nelement vertex 0\nproperty float x\n"
                                            "property float y\nproperty float z\nend_header\n";
    const std::string output = " --output " + in("pictures");
    for (const char* name : {"missing.las", "empty.xyz", "rubbish.ply", "header_only.ply"})
        expectFailure(in(name) + output, 1, name);
    expectFailure(in("header_only.ply") + " " + in("missing.las") + output, 1, "missing.las");

    std::ofstream(in("in_the_way")) << "a file";
    expectFailure(SHIPPED + " --output " + in("in_the_way"), 1, "in_the_way");
    expectFailure(SHIPPED + " --output /proc/pictures", 1, "/proc/pictures");
}

TEST(TourCommandLine, AColouringThatTheFileLacksIsSaid) {
    const auto folder = emptyFolder();
    std::ofstream(folder / "bare.xyz") << "0 0 0\n1 0 0\n0 1 0\n1 1 1\n";
    const std::string rest =
        (folder / "bare.xyz").string() + " --output " + folder.string() + " --size 64x64 ";
    expectFailure(rest + "--color rgb", 1, "--color");
    expectFailure(rest + "--color intensity", 1, "--color");
    // A handful of points is a scene, too.
    const Outcome outcome = run(TOUR_PROGRAM, rest + "--sheet");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(std::filesystem::exists(folder / "sheet.png"));
}

TEST(TourCommandLine, WithoutAFileItToursTheShippedCloud) {
    const auto folder = emptyFolder();
    const Outcome outcome =
        run(TOUR_PROGRAM, "--frames 1 --flight 1 --size 160x90 --output " + folder.string());
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("498868 points"), std::string::npos) << outcome.out;
    // A bar is for terminals alone.
    EXPECT_EQ(outcome.out.find('\r'), std::string::npos);
    for (const char* name : {"orbit_00.png", "flight_00.png", "levels.png"})
        EXPECT_TRUE(std::filesystem::exists(folder / name)) << name;
}

}  // namespace ombrix::tests
