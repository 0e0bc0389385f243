// Any bytes as a point file: points or an `Error` that names the file, the same through any view size, and
// the same again when written and read back.

#include <algorithm>
#include <string_view>

#include <ombrix/io.h>

#include "fuzz/fuzz_support.h"

namespace {

using namespace ombrix;
using fuzz::require;
using fuzz::sameBits;

constexpr std::string_view ENDING = OMBRIX_FUZZ_ENDING;

bool canBeOfThisFormat(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    return ENDING == ".ply"   ? text.starts_with("ply")
           : ENDING == ".las" ? text.starts_with("LASF")
                              : !text.starts_with("ply") && !text.starts_with("LASF");
}

/// The file, or nothing where it is refused.
bool read(const std::string& path, const io::ReadOptions& options, io::PointFile& file) {
    try {
        file = io::readPoints(path, options);
        return true;
    } catch (const io::Error& error) {
        require(std::string_view(error.what()).starts_with(path + ": "), "an error names the file");
        return false;
    }
}

void requireEven(const io::PointFile& file) {
    const std::size_t n = file.cloud.size();
    require(file.cloud.colors().size() == (file.hasColors ? n : 0), "as many colours as points, or none");
    require(file.cloud.scalars().size() == (file.hasScalars ? n : 0), "as many scalars as points, or none");
    require(file.cloud.hasNormals() == file.hasNormals, "normals where they are announced");
    require(file.cloud.fields().size() == file.fields.size() + (file.hasNormals ? 1 : 0),
            "fields are listed");
    for (const auto& [name, field] : file.cloud.fields()) {
        require(field->size() == n && field->name == name, "every field is as long as the positions");
    }
    require(file.shift.allFinite(), "a finite shift");
}

void requireSame(const io::PointFile& a, const io::PointFile& b, const char* what) {
    require(sameBits(a.cloud.positions(), b.cloud.positions()), what);
    require(a.cloud.colors() == b.cloud.colors(), what);
    require(a.cloud.scalars().size() == b.cloud.scalars().size(), what);
    for (std::size_t i = 0; i < a.cloud.scalars().size(); ++i) {
        require(sameBits(a.cloud.scalars()[i], b.cloud.scalars()[i]), what);
    }
    require(a.cloud.fields().size() == b.cloud.fields().size(), what);
    for (const auto& [name, field] : a.cloud.fields()) {
        require(b.cloud.fields().contains(name), what);
        const auto other = b.cloud.fields().get(name);
        require(field->elementType() == other->elementType() && field->size() == other->size(), what);
        if (const auto floats = a.cloud.fields().get<float>(name)) {
            const auto& values = b.cloud.fields().get<float>(name)->data();
            for (std::size_t i = 0; i < values.size(); ++i) {
                require(sameBits(floats->data()[i], values[i]), what);
            }
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::quietSingleThread();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (!canBeOfThisFormat(data, size)) {
        return 0;
    }
    static fuzz::InputFile input{std::string(ENDING)};
    static fuzz::InputFile output{std::string(".again.ply")};
    const std::string& path = input.write(data, size);

    io::PointFile file;
    const bool good = read(path, {}, file);
    io::ReadOptions narrow;
    narrow.viewBytes = 1;
    io::PointFile again;
    require(read(path, narrow, again) == good, "any view size, the same answer");
    if (!good) {
        return 0;
    }
    requireEven(file);
    requireSame(file, again, "any view size, the same points");
    io::ReadOptions bare;
    bare.fields = false;
    require(read(path, bare, again) && sameBits(file.cloud.positions(), again.cloud.positions()),
            "without fields, the same positions");

    // With a shift, the same world coordinates can give another shift and other roundings; a name that would
    // break a header's line is changed
    const bool plainNames = std::ranges::all_of(
        file.fields, [](const std::string& name) { return name.find_first_of("\r\n") == std::string::npos; });
    if (file.shift.isZero() && plainNames) {
        io::writePly(output.path(), file.cloud);
        require(read(output.path(), {}, again), "what is written can be read");
        requireSame(file, again, "what is written is read back");
    }
    return 0;
}
