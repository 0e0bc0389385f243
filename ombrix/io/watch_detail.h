#pragma once

#include <cstdint>
#include <string>

#include <ombrix/io/read_points.h>

namespace ombrix::io::detail {

/// Records handed to a builder at a time, and between two looks at the stop token.
inline constexpr std::uint64_t BATCH = 65536;

/// Bytes of text between two looks at the stop token.
inline constexpr std::uint64_t BATCH_BYTES = std::uint64_t{1} << 20;

/// Tells the caller how far reading is, and ends it on request.
class Watch {
public:
    Watch(const ReadOptions& options, const std::string& path, std::uint64_t total)
        : options_(&options), path_(&path), total_(total) {}

    /// @throws Stopped  when the caller asked for it; `unit` names what `done` counts.
    void at(std::uint64_t done, const char* unit) const {
        if (options_->stop.stop_requested()) {
            throw Stopped(*path_, unit + (" " + std::to_string(done)));
        }
        if (options_->progress) {
            options_->progress(done, total_);
        }
    }

private:
    const ReadOptions* options_;
    const std::string* path_;
    std::uint64_t total_;
};

}  // namespace ombrix::io::detail
