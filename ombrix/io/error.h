#pragma once

#include <stdexcept>
#include <string>

#include <ombrix/io/io_export.h>

namespace ombrix::io {

/// A point file that cannot be read or written.
///
/// `what` is one line, "FILE: PLACE: REASON". The place is "byte N" (counted from 0) in binary files,
/// "line N" (counted from 1) in text, and "opening" or "writing" where the system refused;
/// reading that was stopped tells the "point or byte N" that it came to.
class OMBRIX_IO_API Error : public std::runtime_error {
public:
    /// Puts the line together.
    Error(const std::string& file, const std::string& place, const std::string& reason);
    ~Error() override;

    Error(const Error&) = default;
    Error& operator=(const Error&) = default;
};

/// Reading ended because the caller's stop token asked for it.
class OMBRIX_IO_API Stopped : public Error {
public:
    /// Puts the line together.
    Stopped(const std::string& file, const std::string& place);
    ~Stopped() override;

    Stopped(const Stopped&) = default;
    Stopped& operator=(const Stopped&) = default;
};

}  // namespace ombrix::io
