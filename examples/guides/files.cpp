#include <cstdio>
#include <filesystem>
#include <fstream>

#include <ombrix/core.h>
#include <ombrix/io.h>
#include <ombrix/mesh.h>

#include "expect.h"

using namespace ombrix::core;
namespace io = ombrix::io;

int main(int count, char** words) {
    const std::filesystem::path folder = count > 1 ? words[1] : "guide_output/files";
    std::filesystem::create_directories(folder);

    // A scan in text, as instruments export it
    std::ofstream(folder / "scan.xyz") << "# x y z intensity\n"
                                          "2600000.12 1200000.34 431.56 17\n"
                                          "2600001.25 1200002.50 431.75 220\n";

    // Any point file: its first bytes tell what it is
    const io::PointFile scan = io::readPoints(folder / "scan.xyz");
    const Vector3d world = scan.cloud.positions()[1].cast<double>() + scan.shift;
    std::printf("%llu points, shift (%.0f, %.0f, %.0f), second at (%.2f, %.2f)\n",
                static_cast<unsigned long long>(scan.cloud.size()), scan.shift.x(), scan.shift.y(),
                scan.shift.z(), world.x(), world.y());
    expect(scan.shift == Vector3d(2'600'000.0, 1'200'000.0, 0.0), "large coordinates are shifted");
    expect((world - Vector3d(2600001.25, 1200002.50, 431.75)).norm() < 1e-4, "nothing is lost");
    expect(scan.hasScalars && !scan.hasColors, "and it says what there was");

    // Out as PLY, with every field, and as LAS
    io::writePly(folder / "scan.ply", scan.cloud, scan.shift);
    io::writeLas(folder / "scan.las", scan.cloud, scan.shift);
    expect(io::readPoints(folder / "scan.ply").cloud.scalars() == scan.cloud.scalars(), "PLY keeps all");

    // Several files in one frame: give the first one's shift to the others
    io::ReadOptions options;
    options.shift = scan.shift;
    options.progress = [](std::uint64_t done, std::uint64_t total) {
        std::printf("%llu of %llu\n", static_cast<unsigned long long>(done),
                    static_cast<unsigned long long>(total));
    };
    const io::PointFile same = io::readPoints(folder / "scan.las", options);
    expect((same.cloud.positions()[1] - scan.cloud.positions()[1]).norm() < 0.001f, "the same frame");

    // What is wrong with a file is said in one line: file, place, reason
    std::ofstream(folder / "broken.ply") << "ply\nformat ascii 1.0\nelement vertex 3\n";
    try {
        const io::PointFile broken = io::readPoints(folder / "broken.ply");
        expect(false, "a broken file is no cloud");
    } catch (const io::Error& error) {
        std::printf("%s\n", error.what());
    }

    // Meshes are OBJ files
    ombrix::mesh::TriMesh mesh;
    mesh.vertices = {Vector3f(0, 0, 0), Vector3f(1, 0, 0), Vector3f(0, 1, 0)};
    mesh.faces = {{{0, 1, 2}}};
    const auto written = mesh.writeOBJ((folder / "mesh.obj").string(), ombrix::mesh::ObjWriteOptions());
    expect(written.ok(), "written, or error says why not");
    ombrix::mesh::TriMesh again;
    expect(again.readOBJ((folder / "mesh.obj").string(), {}).triangles == 1, "and read back");
}
