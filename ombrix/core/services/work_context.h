#pragma once

#include <functional>
#include <stop_token>

#include <tbb/task_arena.h>

namespace ombrix::core {

/// How long work is watched, ended early and kept to some threads; the members left out do nothing.
///
///     std::stop_source source;  // another thread may call source.request_stop()
///     if (!factory.add(cloud, shift, {source.get_token(), [&](double f) { bar.show(f); }})) return;
///
/// Work that takes a context gives the same results as the form without. It looks for a request several
/// times in 100 milliseconds; how it leaves its objects then, each operation says.
struct WorkContext {
    /// A request ends the work.
    std::stop_token stop{};

    /// Called with the part of the work that is done, in [0, 1] and never less than before; with 1 once,
    /// when all is done. The calls come one after another, but from any thread that works, and the work
    /// waits for them. What it throws passes through and ends the work as a request does; at the last call,
    /// with 1, the work is complete.
    std::function<void(double fraction)> progress{};

    /// Where the work runs, on at most as many threads as that has; null is the caller's own. The arena is
    /// the caller's and is only used while the call lasts.
    tbb::task_arena* arena = nullptr;
};

}  // namespace ombrix::core
