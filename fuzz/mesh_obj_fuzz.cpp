// Any bytes as an OBJ mesh, in both forms of reading, written and read back.

#include <algorithm>

#include <ombrix/mesh.h>

#include "fuzz/fuzz_support.h"

namespace {

using namespace ombrix;
using fuzz::require;
using fuzz::sameBits;

bool sameFaces(const mesh::TriMesh& a, const mesh::TriMesh& b) {
    return std::ranges::equal(a.faces, b.faces, [](const mesh::Face& f, const mesh::Face& g) {
        return std::ranges::equal(f.index, g.index);
    });
}

void requireValid(const mesh::TriMesh& mesh) {
    require(mesh.normals.empty() || mesh.normals.size() == mesh.vertices.size(),
            "a normal per vertex, or none");
    for (const mesh::Face& face : mesh.faces) {
        for (const std::uint32_t index : face.index) {
            require(index < mesh.vertices.size(), "faces name vertices");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::quietSingleThread();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzz::InputFile input(".obj");
    static fuzz::InputFile output(".again.obj");
    const std::string& path = input.write(data, size);

    mesh::TriMesh plain;
    plain.readOBJ(path);
    mesh::TriMesh mesh;
    const mesh::ObjReadResult result = mesh.readOBJ(path, {});
    require(result.ok(), "reading a file never fails for what it holds");
    require(result.vertices == mesh.vertices.size() && result.triangles == mesh.faces.size(), "true counts");
    requireValid(mesh);
    if (std::find(data, data + size, '\\') == data + size) {  // the plain form knows no continued lines
        require(sameBits(plain.vertices, mesh.vertices), "both forms read the same vertices");
        require(plain.normals.size() == result.normals, "both forms read the same normals");
    }

    mesh::TriMesh twice = mesh;
    require(twice.readOBJ(path, {.triangulate = false, .normals = false}).ok(),
            "reading behind what is there");
    require(twice.vertices.size() == 2 * mesh.vertices.size(), "vertices are appended");
    require(twice.faces.size() <= 2 * mesh.faces.size(), "no more triangles without fans");
    for (std::size_t i = mesh.faces.size(); i < twice.faces.size(); ++i) {
        for (const std::uint32_t index : twice.faces[i].index) {
            require(index >= mesh.vertices.size() && index < twice.vertices.size(), "faces are shifted");
        }
    }

    require(mesh.writeOBJ(output.path(), {}).ok(), "writing");
    mesh::TriMesh again;
    require(again.readOBJ(output.path(), {}).ok(), "reading what was written");
    require(sameBits(mesh.vertices, again.vertices) && sameFaces(mesh, again),
            "what is written is read back");
    require(mesh.normals.size() == again.normals.size(), "normals are read back");
    mesh.evaluateVertexNormals();
    requireValid(mesh);
    core::Vector3f low;
    core::Vector3f high;
    mesh.getMinMax(low, high);
    for (const mesh::Face& face : mesh.faces) {
        static_cast<void>(mesh.make_triangle(face));
    }
    return 0;
}
