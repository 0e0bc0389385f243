#include "benchmarks/support/bench_files.h"

#include <filesystem>

#include <unistd.h>

#include <ombrix/io/write_points.h>
#include <ombrix/mesh/tri_mesh.h>

#include "benchmarks/support/bench_cloud.h"
#include "benchmarks/support/bumpy_torus.h"

namespace ombrix::benchmarks {
namespace {

class Folder {
public:
    Folder()
        : path_(std::filesystem::temp_directory_path() / ("ombrix_bench_" + std::to_string(::getpid()))) {
        std::filesystem::create_directories(path_);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace

std::string outputFile(const std::string& name) {
    static const Folder folder;
    return (folder.path() / name).string();
}

std::string plyFile(std::int64_t n) {
    const std::string path = outputFile(std::to_string(n) + ".ply");
    if (!std::filesystem::exists(path)) {
        io::writePly(path, benchCloud(n));
    }
    return path;
}

std::string objFile() {
    const std::string path = outputFile("torus.obj");
    if (!std::filesystem::exists(path)) {
        mesh::TriMesh torus = bumpyTorus();
        torus.evaluateVertexNormals();
        (void)torus.writeOBJ(path, mesh::ObjWriteOptions{});
    }
    return path;
}

}  // namespace ombrix::benchmarks
