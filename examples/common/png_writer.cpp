#include <examples/common/png_writer.h>

#include <stdexcept>
#include <string>

#include <png.h>

namespace examples {

void writePng(const std::filesystem::path& path, const Image& image) {
    const auto fail = [&](const std::string& reason) {
        throw std::runtime_error("cannot write " + path.string() + ": " + reason);
    };
    if (image.width <= 0 || image.height <= 0)
        fail("the picture is empty");

    png_image header{};
    header.version = PNG_IMAGE_VERSION;
    header.width = static_cast<png_uint_32>(image.width);
    header.height = static_cast<png_uint_32>(image.height);
    header.format = PNG_FORMAT_RGB;
    if (png_image_write_to_file(&header, path.string().c_str(), 0, image.rgb.data(), 0, nullptr) == 0)
        fail(header.message);
}

}  // namespace examples
