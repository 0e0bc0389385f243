#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <system_error>
#include <utility>

#include <ombrix/core/services/work_detail.h>
#include <ombrix/mesh/file_error_detail.h>
#include <ombrix/mesh/obj_parser_detail.h>
#include <ombrix/mesh/text_lines_detail.h>
#include <ombrix/mesh/tri_mesh.h>

namespace ombrix::mesh {

namespace {

/// What the system says; 0 where it cannot.
std::uint64_t bytesOf(const std::string& path) {
    std::error_code unknown;
    const auto bytes = std::filesystem::file_size(path, unknown);
    return unknown ? 0 : bytes;
}

constexpr std::uint32_t NONE = std::numeric_limits<std::uint32_t>::max();

/// Collects the triangles of one file, each corner with the normal it names.
class FullSink {
public:
    static constexpr std::size_t MAX_CORNERS = std::numeric_limits<std::size_t>::max();

    FullSink(const ObjReadOptions& options, ObjReadResult& result) : options_(options), result_(result) {}

    void vertex(const Vector3f& position, bool wellFormed) {
        mesh_.vertices.push_back(position);
        note(wellFormed);
    }
    void normal(const Vector3f& normal, bool wellFormed) {
        if (options_.normals) {
            mesh_.normals.push_back(normal);
            ++result_.normals;
            note(wellFormed);
        }
    }
    void textureCoordinate() { ++result_.textureCoordinates; }
    void other() { ++result_.otherLines; }

    void face(const std::vector<detail::ObjCorner>& corners, bool wellFormed) {
        if (corners.size() < 3) {
            ++result_.skippedFaces;
            noteProblem();
            return;
        }
        note(wellFormed);
        result_.polygons += corners.size() > 3 ? 1 : 0;
        const std::size_t end = options_.triangulate ? corners.size() : 3;
        for (std::size_t i = 2; i < end; ++i) {
            triangle(corners[0], corners[i - 1], corners[i]);
        }
    }

    /// Drops triangles without vertices and brings the normals to the vertices.
    TriMesh finish(core::detail::Work* work) {
        dropInvalidTriangles();
        if (work != nullptr) {
            work->check();
        }
        assignNormals();
        if (work != nullptr) {
            work->check();
        }
        result_.vertices = mesh_.vertices.size();
        result_.triangles = mesh_.faces.size();
        return std::move(mesh_);
    }

private:
    void note(bool wellFormed) {
        if (!wellFormed) {
            ++result_.malformedLines;
            noteProblem();
        }
    }
    void noteProblem() {
        if (result_.firstProblemLine == 0) {
            result_.firstProblemLine = result_.lines;
        }
    }

    /// 0-based, `NONE` for 0 and for counting back behind the first.
    static std::uint32_t resolve(std::int64_t index, std::size_t count) {
        const std::int64_t resolved = index > 0 ? index - 1 : static_cast<std::int64_t>(count) + index;
        return index == 0 || resolved < 0 ? NONE : static_cast<std::uint32_t>(resolved);
    }

    void triangle(const detail::ObjCorner& a, const detail::ObjCorner& b, const detail::ObjCorner& c) {
        const std::size_t vertices = mesh_.vertices.size();
        mesh_.faces.push_back(
            {{resolve(a.vertex, vertices), resolve(b.vertex, vertices), resolve(c.vertex, vertices)}});
        const bool named = options_.normals && (a.normal != 0 || b.normal != 0 || c.normal != 0);
        if (named || !cornerNormals_.empty()) {
            const std::size_t normals = mesh_.normals.size();
            cornerNormals_.resize(mesh_.faces.size() - 1, {{NONE, NONE, NONE}});
            cornerNormals_.push_back(
                {{resolve(a.normal, normals), resolve(b.normal, normals), resolve(c.normal, normals)}});
        }
    }

    void dropInvalidTriangles() {
        std::size_t kept = 0;
        for (std::size_t i = 0; i < mesh_.faces.size(); ++i) {
            const Face face = mesh_.faces[i];
            const std::size_t vertices = mesh_.vertices.size();
            if (face.index[0] < vertices && face.index[1] < vertices && face.index[2] < vertices) {
                mesh_.faces[kept] = face;
                if (!cornerNormals_.empty()) {
                    cornerNormals_[kept] = cornerNormals_[i];
                }
                ++kept;
            }
        }
        result_.droppedTriangles = mesh_.faces.size() - kept;
        mesh_.faces.resize(kept);
        if (!cornerNormals_.empty()) {
            cornerNormals_.resize(kept);
        }
    }

    void assignNormals() {
        if (cornerNormals_.empty()) {
            if (mesh_.normals.size() != mesh_.vertices.size()) {
                mesh_.normals.clear();
            }
            return;
        }
        // What a file with one normal per vertex holds is kept as it is, also for vertices without a face.
        if (mesh_.normals.size() == mesh_.vertices.size() && namesAgree()) {
            return;
        }
        std::vector<std::uint32_t> first(mesh_.vertices.size(), NONE);
        std::vector<bool> several(mesh_.vertices.size(), false);
        forEachNamedNormal([&](std::uint32_t vertex, std::uint32_t normal) {
            if (first[vertex] == NONE) {
                first[vertex] = normal;
            } else if (first[vertex] != normal) {
                several[vertex] = true;
            }
        });
        std::vector<Vector3f> assigned(mesh_.vertices.size(), Vector3f::Zero());
        forEachNamedNormal([&](std::uint32_t vertex, std::uint32_t normal) {
            if (several[vertex]) {
                assigned[vertex] += mesh_.normals[normal];
            }
        });
        for (std::size_t i = 0; i < assigned.size(); ++i) {
            if (several[i]) {
                const float length = assigned[i].stableNorm();
                assigned[i] = length > 0 ? Vector3f(assigned[i] / length) : assigned[i];
            } else if (first[i] != NONE) {
                assigned[i] = mesh_.normals[first[i]];
            }
        }
        mesh_.normals = std::move(assigned);
    }

    [[nodiscard]] bool namesAgree() const {
        bool agree = true;
        forEachNamedNormal(
            [&](std::uint32_t vertex, std::uint32_t normal) { agree = agree && vertex == normal; });
        return agree;
    }

    template <class Visit>
    void forEachNamedNormal(Visit&& visit) const {
        for (std::size_t i = 0; i < cornerNormals_.size(); ++i) {
            for (int corner = 0; corner < 3; ++corner) {
                const std::uint32_t normal = cornerNormals_[i].index[corner];
                if (normal < mesh_.normals.size()) {
                    visit(mesh_.faces[i].index[corner], normal);
                }
            }
        }
    }

    const ObjReadOptions& options_;
    ObjReadResult& result_;
    TriMesh mesh_;
    std::vector<Face> cornerNormals_;  ///< empty until a corner names a normal, then one entry per face
};

/// Passes lines on, with those joined that end in a backslash.
template <class Line>
class LineJoiner {
public:
    explicit LineJoiner(Line line) : line_(std::move(line)) {}

    void operator()(const char* first, const char* last) {
        const char* end = last;
        if (end != first && end[-1] == '\r') {
            --end;
        }
        const bool continued = end != first && end[-1] == '\\';
        if (continued) {
            joined_.append(first, end - 1).push_back(' ');
        } else if (!joined_.empty()) {
            joined_.append(first, last);
            flush();
        } else {
            line_(first, last);
        }
    }

    /// Passes on what the last line continued.
    void flush() {
        if (!joined_.empty()) {
            joined_.push_back('\n');
            line_(joined_.data(), joined_.data() + joined_.size() - 1);
            joined_.clear();
        }
    }

private:
    Line line_;
    std::string joined_;
};

/// Appends a file to the mesh, watched unless `work` is null.
ObjReadResult appendFile(TriMesh& mesh, const std::string& path, const ObjReadOptions& options,
                         core::detail::Work* work) {
    ObjReadResult result;
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        result.error = detail::fileError("open", path);
        return result;
    }
    FullSink sink(options, result);
    detail::ObjParser parser(sink);
    LineJoiner joiner([&](const char* first, const char* last) { parser.parseLine(first, last); });
    if (work != nullptr) {
        work->begin(0.9, bytesOf(path));
    }
    core::detail::WorkSteps steps(work, 1u << 16);
    detail::forEachObjLine(file, [&](const char* first, const char* last) {
        ++result.lines;
        joiner(first, last);
        steps.step(static_cast<std::uint64_t>(last - first) + 1);
    });
    joiner.flush();
    if (file.bad()) {
        result = {};
        result.error = detail::fileError("read", path);
        return result;
    }

    TriMesh part = sink.finish(work);
    if (mesh.vertices.empty() && mesh.faces.empty()) {
        mesh = std::move(part);
        return result;
    }
    // One normal per vertex, or none at all.
    if (!part.normals.empty()) {
        mesh.normals.resize(mesh.vertices.size(), Vector3f::Zero());
    } else if (!mesh.normals.empty()) {
        part.normals.resize(part.vertices.size(), Vector3f::Zero());
    }
    mesh.add(part);
    return result;
}

}  // namespace

ObjReadResult TriMesh::readOBJ(const std::string& path, const ObjReadOptions& options) {
    return appendFile(*this, path, options, nullptr);
}

ObjReadResult TriMesh::readOBJ(const std::string& path, const ObjReadOptions& options,
                               const core::WorkContext& context) {
    core::detail::Work work(context);
    ObjReadResult result;
    try {
        result = appendFile(*this, path, options, &work);
    } catch (const core::detail::WorkStopped&) {
        result.error = "cannot read " + path + ": reading was stopped";
        result.stopped = true;
        return result;
    }
    if (result.ok()) {
        work.finish();
    }
    return result;
}

}  // namespace ombrix::mesh
