#include <ombrix/io/error.h>

namespace ombrix::io {

Error::Error(const std::string& file, const std::string& place, const std::string& reason)
    : std::runtime_error(file + ": " + place + ": " + reason) {}

Error::~Error() = default;

Stopped::Stopped(const std::string& file, const std::string& place)
    : Error(file, place, "reading was stopped") {}

Stopped::~Stopped() = default;

}  // namespace ombrix::io
