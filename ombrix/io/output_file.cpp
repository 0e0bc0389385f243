#include <cerrno>
#include <system_error>

#include <ombrix/io/error.h>
#include <ombrix/io/output_file_detail.h>

namespace ombrix::io::detail {

OutputFile::OutputFile(const std::filesystem::path& path) : path_(path) {
    errno = 0;
    file_ = std::fopen(path.string().c_str(), "wb");
    if (file_ == nullptr) {
        failAsSystem("opening");
    }
}

OutputFile::~OutputFile() {
    if (file_ != nullptr) {
        std::fclose(file_);
        remove();
    }
}

void OutputFile::write(const void* bytes, std::size_t count) {
    errno = 0;
    if (count > 0 && std::fwrite(bytes, 1, count, file_) != count) {
        failAsSystem("writing");
    }
}

void OutputFile::close() {
    errno = 0;
    if (std::fflush(file_) != 0) {
        failAsSystem("writing");
    }
    std::FILE* file = file_;
    file_ = nullptr;
    if (std::fclose(file) != 0) {
        const int reason = errno;
        remove();
        errno = reason;
        failAsSystem("writing");
    }
}

void OutputFile::remove() const {
    std::error_code ignored;
    if (std::filesystem::is_regular_file(path_, ignored)) {  // never a device
        std::filesystem::remove(path_, ignored);
    }
}

void OutputFile::failAsSystem(const char* place) const {
    throw Error(path_.string(), place,
                errno != 0 ? std::generic_category().message(errno) : "refused by the system");
}

}  // namespace ombrix::io::detail
