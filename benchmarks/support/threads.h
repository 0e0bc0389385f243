#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <thread>

#include <tbb/blocked_range.h>
#include <tbb/global_control.h>
#include <tbb/parallel_for.h>

namespace ombrix::benchmarks {

/// What peers that have to be told are told: as many as the task pool uses.
inline int threadCount() {
    return static_cast<int>(std::thread::hardware_concurrency());
}

/// `prepare` with its work limited to some threads; 0: not limited.
template <class Prepare>
auto onThreads(int threads, const Prepare& prepare) {
    return [=](std::int64_t n) {
        std::shared_ptr<tbb::global_control> limit;
        if (threads > 0) {
            limit = std::make_shared<tbb::global_control>(tbb::global_control::max_allowed_parallelism,
                                                          static_cast<std::size_t>(threads));
        }
        return [limit, work = prepare(n)] { return work(); };
    };
}

inline std::string libraryName(int threads) {
    return threads == 0 ? "ombrix" : std::to_string(threads) + "_thread";
}

/// body(i) for i in [0, n) on all threads, with a state per block of 1024: body(i, state).
template <class State, class Body>
void forEachPoint(std::size_t n, const State& initial, const Body& body) {
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, n, 1024), [&](const auto& range) {
        State state = initial;
        for (std::size_t i = range.begin(); i != range.end(); ++i) {
            body(i, state);
        }
    });
}

}  // namespace ombrix::benchmarks
