#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "benchmarks/support/peak_memory.h"

/// Measures of the performance page: a row names the work, and each library that does it is one measure,
/// registered as "row/library/size". Answers are compared between the libraries of a row.
namespace ombrix::benchmarks {

/// What a measure computed, reduced to numbers that every library of the row should arrive at.
using Answer = std::vector<double>;

struct Row {
    const char* name;
    double tolerance = 0.0;  ///< by which two numbers may differ, relative to the larger; at least absolute
    double mayDiffer = 0.0;  ///< share of the numbers that may differ by more: ties, rounding
    std::int64_t triangles = 0;  ///< of a row over a mesh; 0: the sizes are numbers of points
};

/// How far a measure goes: a capped one is not tried beyond 10 million points; a slow one is capped, too,
/// and from 5 million points on taken once.
enum class Pace { QUICK, CAPPED, SLOW };

/// Whether a measure is taken once.
[[nodiscard]] inline bool isTakenOnce(Pace pace, std::int64_t size) {
    return pace == Pace::SLOW && size >= 5'000'000;
}

using RunMeasure = std::function<void(benchmark::State&)>;
void registerMeasure(const Row& row, const std::string& library, Pace pace, RunMeasure run);

/// Compares with the answer that another library gave first; the state fails when they differ.
void compareAnswers(benchmark::State& state, const Row& row, const std::string& library,
                    const Answer& answer);

/// What a first run of a measure took, while the kernel still had to hand out and clear its memory.
struct FirstRun {
    double seconds = 0;
    double peakBytes = 0;
    int heapsGivenBack = 0;  ///< to the kernel, when the measure was run last without being timed
};

/// The first run of a measure, made when it is first asked for. As every first run gives the free heap back
/// to the kernel, the measure is run once more where others made theirs since: the next run finds the heap
/// kept.
FirstRun firstRun(const std::string& measure, const std::function<double()>& run);

/// Times `work` in a state's loop; the result of the last run. Freeing results is not timed. The peak of
/// memory is that of one run before, from a heap given back to the kernel; the timed ones find it kept. What
/// is taken once has that run only.
template <class Work>
auto timed(benchmark::State& state, const std::string& name, Pace pace, Work& work) {
    std::optional<decltype(work())> result;
    const auto run = [&] {
        result.reset();
        const auto start = std::chrono::steady_clock::now();
        result.emplace(work());
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    const FirstRun first = firstRun(name + "/" + std::to_string(state.range(0)), run);
    for (auto _ : state) {
        state.SetIterationTime(isTakenOnce(pace, state.range(0)) ? first.seconds : run());
    }
    state.counters["peak_bytes"] = first.peakBytes;
    state.counters["first_seconds"] = first.seconds;
    state.SetItemsProcessed(state.iterations() * state.range(0));
    return std::move(*result);
}

/// Adds nothing to a measure.
struct NoCounters {
    template <class Result>
    void operator()(benchmark::State& /*state*/, const Result& /*result*/) const {}
};

/// Adds a measure. `prepare(n)` does what is not timed and gives the work, a function whose result
/// `answer(n, result)` reduces; `count(state, result)` may set counters of the state beside it.
template <class Prepare, class Reduce, class Count = NoCounters>
void measure(const Row& row, const std::string& library, const Prepare& prepare, const Reduce& answer,
             Pace pace = Pace::QUICK, const Count& count = {}) {
    registerMeasure(row, library, pace, [=, &row](benchmark::State& state) {
        auto work = prepare(state.range(0));
        const auto result = timed(state, std::string(row.name) + "/" + library, pace, work);
        compareAnswers(state, row, library, answer(state.range(0), result));
        count(state, result);
    });
}

/// Adds a measure without an answer: a limit of the machine, or what stands beside such a limit only.
template <class Prepare>
void measureLimit(const Row& row, const std::string& name, const Prepare& prepare) {
    registerMeasure(row, name, Pace::QUICK, [=, &row](benchmark::State& state) {
        auto work = prepare(state.range(0));
        benchmark::DoNotOptimize(timed(state, std::string(row.name) + "/" + name, Pace::QUICK, work));
    });
}

/// The main program of an executable of measures: registers them and runs what the arguments choose.
/// @return  the exit status: 1 when something failed or answers differ.
int runMeasures(int argc, char** argv, std::initializer_list<void (*)()> registrations);

}  // namespace ombrix::benchmarks
