#include <algorithm>
#include <charconv>
#include <fstream>
#include <iostream>
#include <string_view>

#include <ombrix/mesh/file_error_detail.h>
#include <ombrix/mesh/obj_number_detail.h>
#include <ombrix/mesh/tri_mesh.h>

namespace ombrix::mesh {

namespace {

/// Collects text and writes it in large blocks.
class TextWriter {
public:
    explicit TextWriter(std::ofstream& file) : file_(file), buffer_(BLOCK + MAX_RECORD, '\0') {}

    void vector(std::string_view keyword, const Vector3f& v, int digits) {
        char* p = std::copy(keyword.begin(), keyword.end(), record());
        for (int axis = 0; axis < 3; ++axis) {
            *p++ = ' ';
            p = detail::formatFloat(p, v[axis], digits);
        }
        endRecord(p);
    }

    void face(const Face& face, bool repeatAsNormal) {
        char* p = record();
        *p++ = 'f';
        for (const std::uint32_t index : face.index) {
            *p++ = ' ';
            char* number = p;
            p = std::to_chars(p, p + MAX_INDEX, index + 1).ptr;
            if (repeatAsNormal) {
                char* end = p;
                *p++ = '/';
                *p++ = '/';
                p = std::copy(number, end, p);
            }
        }
        endRecord(p);
    }

    void flush() {
        file_.write(buffer_.data(), static_cast<std::streamsize>(used_));
        written_ += used_;
        used_ = 0;
    }

    [[nodiscard]] std::uint64_t written() const { return written_; }

private:
    static constexpr std::size_t BLOCK = std::size_t{1} << 18;
    static constexpr std::size_t MAX_INDEX = 10;
    static constexpr std::size_t MAX_RECORD = 128;

    char* record() { return buffer_.data() + used_; }
    void endRecord(char* end) {
        *end++ = '\n';
        used_ = static_cast<std::size_t>(end - buffer_.data());
        if (used_ >= BLOCK) {
            flush();
        }
    }

    std::ofstream& file_;
    std::string buffer_;
    std::size_t used_ = 0;
    std::uint64_t written_ = 0;
};

std::uint64_t writeRecords(std::ofstream& file, const TriMesh& mesh, std::string_view normalKeyword,
                           bool withNormals, int digits) {
    TextWriter writer(file);
    for (const Vector3f& vertex : mesh.vertices) {
        writer.vector("v", vertex, digits);
    }
    if (withNormals) {
        for (const Vector3f& normal : mesh.normals) {
            writer.vector(normalKeyword, normal, digits);
        }
    }
    for (const Face& face : mesh.faces) {
        writer.face(face, withNormals);
    }
    writer.flush();
    return writer.written();
}

}  // namespace

void TriMesh::writeOBJ(const std::string& path) const {
    std::cout << " Write OBJ file " << path << std::endl;
    std::ofstream file(path);
    if (file) {
        writeRecords(file, *this, "n", !normals.empty(), 6);
    }
}

ObjWriteResult TriMesh::writeOBJ(const std::string& path, const ObjWriteOptions& options) const {
    ObjWriteResult result;
    errno = 0;
    std::ofstream file(path);
    if (!file) {
        result.error = detail::fileError("open", path);
        return result;
    }
    const bool withNormals = options.normals && !normals.empty() && normals.size() == vertices.size();
    result.bytes = writeRecords(file, *this, "vn", withNormals, std::clamp(options.significantDigits, 1, 9));
    file.close();
    if (!file) {
        result.bytes = 0;
        result.error = detail::fileError("write", path);
    }
    return result;
}

}  // namespace ombrix::mesh
