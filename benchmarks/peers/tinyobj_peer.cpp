// Reading a million triangles from a warm OBJ file beside tinyobjloader.
#include <string>
#include <vector>

#include <tiny_obj_loader.h>

#include "benchmarks/ours/ours.h"
#include "benchmarks/support/answers.h"
#include "benchmarks/support/bench_files.h"
#include "benchmarks/support/rows.h"

namespace {

using namespace ombrix::benchmarks;

struct Loaded {
    tinyobj::attrib_t attributes;
    std::vector<tinyobj::shape_t> shapes;
};

void readObj() {
    ours::readObj();
    measure(
        rows::READ_OBJ, "tinyobjloader",
        [](std::int64_t) {
            return [path = objFile()] {
                Loaded mesh;
                std::vector<tinyobj::material_t> materials;
                std::string warnings;
                std::string errors;
                tinyobj::LoadObj(&mesh.attributes, &mesh.shapes, &materials, &warnings, &errors,
                                 path.c_str());
                return mesh;
            };
        },
        [](std::int64_t, const Loaded& mesh) {
            const auto& v = mesh.attributes.vertices;
            Answer answer = meanPointAnswer(v.size() / 3, [&](std::size_t i) {
                return ombrix::core::Vector3d(v[3 * i], v[3 * i + 1], v[3 * i + 2]);
            });
            std::size_t faces = 0;
            for (const tinyobj::shape_t& shape : mesh.shapes) {
                faces += shape.mesh.num_face_vertices.size();
            }
            answer.push_back(static_cast<double>(faces));
            return answer;
        });
}

}  // namespace

int main(int argc, char** argv) {
    return runMeasures(argc, argv, {readObj});
}
