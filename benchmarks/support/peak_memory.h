#pragma once

#include <fstream>
#include <string>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace ombrix::benchmarks {

/// Makes freed memory stay with the process, large arrays too, so that what is timed is the work and not the
/// kernel's clearing of pages, which differs from run to run.
inline void keepHeap() {
#if defined(__GLIBC__)
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, -1);
#endif
}

/// What a piece of work takes in memory beyond what the process holds when the meter is made: its peak of
/// resident bytes. Linux only; 0 elsewhere.
class PeakMemory {
public:
    PeakMemory() {
#if defined(__GLIBC__)
        malloc_trim(0);  // memory that earlier work freed would hide what this work takes
#endif
        std::ofstream("/proc/self/clear_refs") << 5;  // forgets the peak so far
        before_ = statusBytes("VmRSS:");
    }

    [[nodiscard]] double bytes() const {
        return statusBytes("VmHWM:") - before_;
    }

private:
    /// A line of /proc/self/status in bytes; 0 where there is none.
    static double statusBytes(const std::string& name) {
        std::ifstream status("/proc/self/status");
        for (std::string word; status >> word;) {
            if (word == name) {
                double kilobytes = 0;
                status >> kilobytes;
                return kilobytes * 1024;
            }
        }
        return 0;
    }

    double before_ = 0;
};

}  // namespace ombrix::benchmarks
