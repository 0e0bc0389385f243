#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <ombrix/core/services/work_detail.h>
#include <ombrix/io/byte_source_detail.h>
#include <ombrix/io/read_points.h>
#include <ombrix/io/readers_detail.h>

namespace ombrix::io {

namespace {

std::string endingOf(const std::filesystem::path& path) {
    std::string ending = path.extension().string();
    std::ranges::transform(ending, ending.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return ending;
}

}  // namespace

PointFile readPoints(const std::filesystem::path& path, const ReadOptions& options) {
    detail::ByteSource source(path, options.viewBytes);
    const auto bytes = source.view(0, std::min<std::uint64_t>(source.size(), 4));
    const std::string_view start(reinterpret_cast<const char*>(bytes.data()),
                                 std::min<std::size_t>(bytes.size(), 4));
    const std::string ending = endingOf(path);
    if (start == "LASF") {
        return detail::readLas(source, options);
    }
    if (start == "ply" || start == "ply\n" || start == "ply\r" || start == "ply ") {
        return detail::readPly(source, options);
    }
    if (ending == ".las" || ending == ".laz") {
        source.fail(0, "no LAS file: it does not begin with 'LASF'");
    }
    if (ending == ".ply") {
        source.fail(0, "no PLY file: it does not begin with the line 'ply'");
    }
    return ending == ".obj" ? detail::readObj(source, options) : detail::readText(source, options);
}

PointFile readPoints(const std::filesystem::path& path, const ReadOptions& options,
                     const core::WorkContext& context) {
    // Readers report where they look for a request, so that this is the place for the context's, too
    core::detail::Work work(context);
    std::uint64_t before = 0;
    ReadOptions watched = options;
    watched.progress = [&](std::uint64_t done, std::uint64_t total) {
        if (options.progress) {
            options.progress(done, total);
        }
        if (done == 0) {
            work.begin(1.0, total);
        }
        work.done(done - before);
        before = done;
    };
    std::optional<PointFile> file;
    const auto read = [&] { file = readPoints(path, watched); };
    try {
        context.arena != nullptr ? context.arena->execute(read) : read();
    } catch (const core::detail::WorkStopped&) {
        throw Stopped(path.string(), "point or byte " + std::to_string(before));
    }
    work.finish();
    return std::move(*file);
}

}  // namespace ombrix::io
