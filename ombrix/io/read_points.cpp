#include <algorithm>
#include <string>
#include <string_view>

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

}  // namespace ombrix::io
