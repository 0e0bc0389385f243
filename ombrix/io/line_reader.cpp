#include <algorithm>
#include <cstring>

#include <ombrix/io/error.h>
#include <ombrix/io/line_reader_detail.h>

namespace ombrix::io::detail {

bool LineReader::next(std::string_view& line) {
    if (offset() == source_->size()) {
        return false;
    }
    std::uint64_t searched = 0;
    for (;;) {
        const unsigned char* begin = bytes_.data() + used_;
        const std::uint64_t held = bytes_.size() - used_;
        const void* found = held > searched ? std::memchr(begin + searched, '\n', held - searched) : nullptr;
        const bool last = found == nullptr && base_ + bytes_.size() == source_->size();
        if (found != nullptr || last) {
            const auto length =
                found != nullptr
                    ? static_cast<std::uint64_t>(static_cast<const unsigned char*>(found) - begin)
                    : held;
            line = {reinterpret_cast<const char*>(begin), length};
            if (line.ends_with('\r')) {
                line.remove_suffix(1);
            }
            used_ += length + (last ? 0 : 1);
            ++line_;
            return true;
        }
        base_ += used_;
        used_ = 0;
        searched = held;
        bytes_ = {};
        bytes_ =
            source_->view(base_, std::min(source_->size() - base_, std::max<std::uint64_t>(2 * held, 4096)));
    }
}

void LineReader::fail(const std::string& reason) const {
    throw Error(source_->path(), "line " + std::to_string(line_), reason);
}

}  // namespace ombrix::io::detail
