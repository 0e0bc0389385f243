#include <ombrix/core/services/progress.h>

#include <algorithm>
#include <limits>
#include <ostream>

#include <ombrix/core/services/progress_detail.h>

namespace ombrix::core {

std::chrono::steady_clock::time_point (*detail::progressClock)() = std::chrono::steady_clock::now;

namespace {

/// The integer part of a value, at the ends of T's range for what lies outside; 0 for NaN.
template <class T>
T truncated(double value) {
    if (!(value > 0.0))
        return 0;
    return value < static_cast<double>(std::numeric_limits<T>::max()) ? static_cast<T>(value)
                                                                      : std::numeric_limits<T>::max();
}

/// Unformatted: neither the stream's flags nor its locale change a character.
void write(std::ostream& out, const std::string& text) {
    out.write(text.data(), static_cast<std::streamsize>(text.size())).flush();
}

}  // namespace

ProgressBar::ProgressBar(std::ostream& out, std::uint64_t width) : width_(width), out_(&out) {
    write(out, "[0%] [" + std::string(width, ' ') + "]");
    start_ = detail::progressClock();
}

void ProgressBar::update(float fraction) {
    position_ = truncated<std::int32_t>(static_cast<double>(static_cast<float>(width_) * fraction));
    write(*out_, "\r[" + cells());
}

void ProgressBar::update(std::uint64_t current, std::uint64_t total) {
    if (total == 0)
        return;
    const double perCell = static_cast<double>(total) / static_cast<double>(width_);
    const auto position = truncated<std::int32_t>(static_cast<double>(current) / perCell);
    if (position <= position_ && current != total)
        return;

    const auto now = detail::progressClock();
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(now - start_);
    interval_ms_ = static_cast<std::uint64_t>(elapsed.count());
    total_ms_ += std::max<std::uint64_t>(interval_ms_, 1);
    position_ = position;
    const double percent = static_cast<double>(current) / static_cast<double>(total) * 100.0;
    writeStatus(truncated<std::uint64_t>(percent), cells(), current);
    interval_ms_ = 0;
    start_ = now;
}

void ProgressBar::flush() {
    write(*out_, "\n");
}

std::uint64_t ProgressBar::delta(std::uint64_t n) const noexcept {
    return width_ == 0 ? n : n / width_;
}

void ProgressBar::writeStatus(std::uint64_t percent, const std::string& cells, std::uint64_t points) {
    total_ms_ = std::max<std::uint64_t>(total_ms_, 1);
    write(*out_, "\r[" + std::to_string(percent) + "%] [" + cells + "] [" + std::to_string(points) + " p] [" +
                     std::to_string(points / total_ms_) + " p/ms] [in " + std::to_string(total_ms_) +
                     " ms]    ");
}

std::string ProgressBar::cells() const {
    const auto filled = static_cast<std::uint64_t>(position_);
    return std::string(filled, '=') + '>' + std::string(width_ > filled ? width_ - filled - 1 : 0, ' ');
}

PointProgressBar::PointProgressBar(std::ostream& out, std::uint64_t width) : ProgressBar(out, width) {}

void PointProgressBar::add(std::uint64_t n) {
    count_ += n;
    update(count_, max_);
}

void PointProgressBar::update(std::uint64_t current, std::uint64_t total) {
    max_ = total;
    ProgressBar::update(current, total);
}

void PointProgressBar::flush() {
    if (max_ > 0)
        writeStatus(100, std::string(width(), '=') + '>', max_);
    ProgressBar::flush();
}

}  // namespace ombrix::core
