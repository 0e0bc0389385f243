#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <mutex>

#include <ombrix/core/services/work_context.h>

namespace ombrix::core::detail {

/// Thrown where work finds that it is to end; never leaves the library.
struct WorkStopped {};

/// One piece of watched work. The steps of it, one after another, are told with `begin`; what is done of a
/// step with `done`, by any thread. Where nobody watches, there is a null pointer in its place.
class Work {
public:
    explicit Work(const WorkContext& context) : context_(&context) {}

    /// @throws WorkStopped
    void check() const {
        if (context_->stop.stop_requested()) {
            throw WorkStopped();
        }
    }

    /// The next step is this part of the whole, and has so many units.
    void begin(double share, std::uint64_t units) {
        check();
        start_ = std::min(1.0, start_ + share_);
        share_ = share;
        units_ = std::max<std::uint64_t>(units, 1);
        done_ = 0;
    }

    /// @throws WorkStopped
    void done(std::uint64_t units) {
        check();
        const std::uint64_t all = done_.fetch_add(units, std::memory_order_relaxed) + units;
        if (!context_->progress) {
            return;
        }
        const double part = std::min(1.0, static_cast<double>(all) / static_cast<double>(units_));
        const double fraction = start_ + share_ * part;
        // Whoever finds another thread reporting need not wait for it
        const std::unique_lock lock(reporting_, std::try_to_lock);
        if (lock && fraction >= reported_ + 0.005 && fraction < 1.0) {
            reported_ = fraction;
            context_->progress(fraction);
        }
    }

    /// All is done.
    void finish() const {
        if (context_->progress) {
            context_->progress(1.0);
        }
    }

private:
    const WorkContext* context_;
    double start_ = 0.0;
    double share_ = 0.0;
    std::uint64_t units_ = 1;
    std::atomic<std::uint64_t> done_ = 0;
    std::mutex reporting_;
    double reported_ = 0.0;
};

/// Tells a thread's units to the work some at a time; costs next to nothing where nobody watches.
class WorkSteps {
public:
    explicit WorkSteps(Work* work, std::uint64_t every = 1024) : work_(work), every_(every) {}

    void step(std::uint64_t units = 1) {
        if (work_ == nullptr) {
            return;
        }
        work_->check();  // each time: what a unit costs depends on the data
        count_ += units;
        if (count_ >= every_) {
            flush();
        }
    }
    void flush() {
        if (count_ > 0) {
            work_->done(count_);
        }
        count_ = 0;
    }

private:
    Work* work_;
    std::uint64_t every_;
    std::uint64_t count_ = 0;
};

/// Runs job(work) in the context's arena. Returns whether it came to its end; the job has to leave its
/// objects in order when it is thrown out.
template <class Job>
[[nodiscard]] bool runWatched(const WorkContext& context, const Job& job) {
    Work work(context);
    try {
        const auto body = [&] {
            work.check();
            job(work);
        };
        if (context.arena != nullptr) {
            context.arena->execute(body);
        } else {
            body();
        }
    } catch (const WorkStopped&) {
        return false;
    }
    work.finish();
    return true;
}

}  // namespace ombrix::core::detail
