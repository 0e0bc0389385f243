#include <fstream>
#include <iostream>
#include <string_view>

#include <ombrix/mesh/obj_parser_detail.h>
#include <ombrix/mesh/text_lines_detail.h>
#include <ombrix/mesh/tri_mesh.h>

namespace ombrix::mesh {

namespace {

/// Takes the records as they stand.
struct PlainSink {
    static constexpr std::size_t MAX_CORNERS = 3;
    TriMesh& mesh;

    void vertex(const Vector3f& position, bool) { mesh.vertices.push_back(position); }
    void normal(const Vector3f& normal, bool) { mesh.normals.push_back(normal); }
    void textureCoordinate() {}
    void other() {}
    void face(const std::vector<detail::ObjCorner>& corners, bool) {
        if (corners.size() == MAX_CORNERS) {
            const auto index = [&](std::size_t i) {
                return static_cast<std::uint32_t>(corners[i].vertex - 1);
            };
            mesh.faces.push_back({{index(0), index(1), index(2)}});
        }
    }
};

}  // namespace

void TriMesh::readOBJ(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    // A folder can be opened on some systems, but nothing can be read from it.
    if (!file || (file.peek(), file.bad())) {
        std::cout << "ERROR in TriMesh::readOBJ :  file not found" << std::endl;
        return;
    }
    PlainSink sink{*this};
    detail::ObjParser parser(sink);
    detail::forEachObjLine(file, [&](const char* first, const char* last) { parser.parseLine(first, last); });
}

}  // namespace ombrix::mesh
