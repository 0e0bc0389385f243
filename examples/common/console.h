#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <ombrix/core/services/progress.h>

namespace examples {

/// A bar of work done. Draws where standard output is a terminal; a pipe or a file gets nothing.
class Bar {
public:
    enum Unit { points, bytes };

    /// @param what  said on a line of its own above the bar.
    /// @param unit  what is counted; points are shown with their rate.
    explicit Bar(const std::string& what, Unit unit = points);
    /// Ends the bar's line.
    ~Bar();
    Bar(const Bar&) = delete;
    Bar& operator=(const Bar&) = delete;

    void update(std::uint64_t done, std::uint64_t total);

private:
    std::optional<ombrix::core::PointProgressBar> points_;
    std::optional<ombrix::core::ProgressBar> bytes_;
};

/// The line "WHAT: N points in S s, R million points/s" on standard output.
void printRate(const std::string& what, std::uint64_t points, double seconds);

}  // namespace examples
