#pragma once

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <string>

#include <ombrix/core/core_export.h>

namespace ombrix::core {

/// A report of progress to hand around; the library gives no meaning to its values.
struct OMBRIX_CORE_API Progress {
    std::string text;           ///< what is being done
    std::uint64_t current = 0;  ///< how much of it
    std::uint64_t total = 0;    ///< out of how much
    std::uint32_t code = 0;     ///< free for applications
    std::uint8_t flag = 0;      ///< free for applications
};

/// A bar on one line of a console, redrawn in place by carriage returns.
///
/// Keeps a reference to the stream, which must outlive it; copies share the stream. Driven by one thread at
/// a time. Made to be used directly or by value: there is no virtual destructor.
class OMBRIX_CORE_API ProgressBar {
public:
    /// Draws the empty bar, "[0%] [" blanks "]", without an end of line.
    /// @param width  number of cells, at least 1.
    ProgressBar(std::ostream& out, std::uint64_t width);

    /// Redraws the bar alone: no closing bracket, percentage or time.
    /// @param fraction  0 to 1.
    void update(float fraction);

    /// Redraws the line when one more cell is filled since the last time, or when current = total:
    /// "\r[50%] [=====>    ] [5 p] [2 p/ms] [in 2 ms]" and four blanks. Nothing happens when total is 0.
    ///
    /// The time is that from the construction to the last redraw, at least 1 ms.
    virtual void update(std::uint64_t current, std::uint64_t total);

    /// Ends the line.
    virtual void flush();

    /// Number of items per cell when there are n, rounded down.
    [[nodiscard]] std::uint64_t delta(std::uint64_t n) const noexcept;

protected:
    /// Number of cells.
    [[nodiscard]] std::uint64_t width() const noexcept { return width_; }
    /// Writes the whole line but its end, with the time so far, and flushes the stream.
    void writeStatus(std::uint64_t percent, const std::string& cells, std::uint64_t points);

private:
    [[nodiscard]] std::string cells() const;

    std::uint64_t width_;
    std::int32_t position_ = 0;
    std::chrono::steady_clock::time_point start_;
    std::uint64_t interval_ms_ = 0;
    std::uint64_t total_ms_ = 0;
    std::ostream* out_;
};

/// A progress bar that counts points.
class OMBRIX_CORE_API PointProgressBar : public ProgressBar {
public:
    using ProgressBar::update;

    /// As the base.
    PointProgressBar(std::ostream& out, std::uint64_t width);

    /// The expected number of points. While it is 0, nothing is redrawn.
    void set_max(std::uint64_t n) noexcept { max_ = n; }
    /// The points counted so far.
    [[nodiscard]] std::uint64_t current() const noexcept { return count_; }
    /// Counts n further points and redraws the line when due.
    void add(std::uint64_t n);

    /// As the base; `total` becomes the expected number, the count stays.
    void update(std::uint64_t current, std::uint64_t total) override;

    /// Draws the line of the expected number at 100%, whatever was counted, and ends it. Its bar is one
    /// character longer than the ones before. With no number expected it only ends the line.
    void flush() override;

private:
    std::uint64_t max_ = 0;
    std::uint64_t count_ = 0;
};

}  // namespace ombrix::core
