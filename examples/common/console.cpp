#include <examples/common/console.h>

#include <cstdio>
#include <iostream>

#include <unistd.h>

namespace examples {

Bar::Bar(const std::string& what, Unit unit) {
    constexpr std::uint64_t width = 40;
    if (isatty(STDOUT_FILENO) == 0)
        return;
    std::cout << what << '\n';
    if (unit == points)
        points_.emplace(std::cout, width);
    else
        bytes_.emplace(std::cout, width);
}

Bar::~Bar() {
    if (points_)
        points_->flush();
    if (bytes_)
        bytes_->flush();
}

void Bar::update(std::uint64_t done, std::uint64_t total) {
    if (points_)
        points_->update(done, total);
    if (bytes_ && total != 0)
        bytes_->update(static_cast<float>(done) / static_cast<float>(total));
}

void printRate(const std::string& what, std::uint64_t points, double seconds) {
    const auto count = static_cast<double>(points);
    std::printf("%s: %llu points in %.3f s, %.2f million points/s\n", what.c_str(),
                static_cast<unsigned long long>(points), seconds,
                seconds > 0.0 ? count / seconds * 1e-6 : 0.0);
    std::fflush(stdout);
}

}  // namespace examples
