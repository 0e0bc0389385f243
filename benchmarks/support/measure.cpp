#include "benchmarks/support/measure.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <iostream>
#include <map>

#include "benchmarks/support/bench_cloud.h"

namespace ombrix::benchmarks {
namespace {

constexpr std::int64_t CAP = 10'000'000;

bool anyFailed = false;

/// What the first library of a row answered, by "row/size".
struct First {
    std::string library;
    Answer answer;
};
std::map<std::string, First> firstAnswers;
std::map<std::string, FirstRun> firstRuns;

bool isClose(double a, double b, double tolerance) {
    return std::abs(a - b) <= tolerance * std::max({std::abs(a), std::abs(b), 1.0});
}

}  // namespace

void registerMeasure(const Row& row, const std::string& library, Pace pace, RunMeasure run) {
    const auto add = [&](std::int64_t size) {
        auto* bench = benchmark::RegisterBenchmark((std::string(row.name) + "/" + library).c_str(), run);
        bench->Arg(size)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseManualTime();
        if (isTakenOnce(pace, size)) {
            bench->Repetitions(1);
        }
    };
    if (row.triangles > 0) {
        add(row.triangles);
        return;
    }
    for (const std::int64_t size : pointCounts()) {
        if (pace == Pace::QUICK || size <= CAP) {
            add(size);
        }
    }
}

FirstRun firstRun(const std::string& measure, const std::function<double()>& run) {
    static int heapsGivenBack = 0;
    const auto [it, isFirst] = firstRuns.try_emplace(measure);
    FirstRun& first = it->second;
    if (isFirst) {
        const PeakMemory memory;
        first.seconds = run();
        first.peakBytes = memory.bytes();
        first.heapsGivenBack = ++heapsGivenBack;
    } else if (first.heapsGivenBack != heapsGivenBack) {
        run();
        first.heapsGivenBack = heapsGivenBack;
    }
    return first;
}

void compareAnswers(benchmark::State& state, const Row& row, const std::string& library,
                    const Answer& answer) {
    const auto [it, isFirst] =
        firstAnswers.try_emplace(std::string(row.name) + "/" + std::to_string(state.range(0)));
    First& first = it->second;
    if (isFirst) {
        first = {library, answer};
        return;
    }
    std::size_t differing = first.answer.size() == answer.size() ? 0 : answer.size() + 1;
    for (std::size_t i = 0; i < std::min(answer.size(), first.answer.size()); ++i) {
        differing += isClose(answer[i], first.answer[i], row.tolerance) ? 0 : 1;
    }
    if (static_cast<double>(differing) > row.mayDiffer * static_cast<double>(answer.size())) {
        anyFailed = true;
        std::string message = std::to_string(differing) + " of " + std::to_string(answer.size()) +
                              " answers differ from those of " + first.library;
        if (answer.size() == 1 && first.answer.size() == 1) {
            message += ": " + std::to_string(answer[0]) + ", " + std::to_string(first.answer[0]);
        }
        state.SkipWithError(message.c_str());
    }
}

int runMeasures(int argc, char** argv, std::initializer_list<void (*)()> registrations) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    keepHeap();
    try {
        for (void (*registerAll)() : registrations) {
            registerAll();
        }
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return anyFailed ? 1 : 0;
}

}  // namespace ombrix::benchmarks
