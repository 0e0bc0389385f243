// Hashes and mapped files beside loops that only touch the same bytes, and what a progress bar costs.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <ombrix/core/services/hashes.h>
#include <ombrix/core/services/memory_mapped.h>
#include <ombrix/core/services/progress.h>

namespace {

using namespace ombrix::core;

constexpr std::size_t BUFFER = std::size_t{64} << 20;
constexpr std::size_t FILE_SIZE = std::size_t{512} << 20;

std::vector<std::uint64_t> words(std::size_t bytes) {
    std::vector<std::uint64_t> out(bytes / 8);
    std::iota(out.begin(), out.end(), 0x9e3779b97f4a7c15u);
    return out;
}

/// Sum of a buffer's words: as fast as the bytes can be had.
std::uint64_t sumWords(const void* bytes, std::size_t count) {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < count; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, static_cast<const char*>(bytes) + i, 8);
        sum += word;
    }
    return sum;
}

void setBytes(benchmark::State& state, std::size_t bytes) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

void FastHash64(benchmark::State& state) {
    const auto buffer = words(BUFFER);
    for (auto _ : state)
        benchmark::DoNotOptimize(fasthash64(buffer.data(), BUFFER, 0));
    setBytes(state, BUFFER);
}

void FastHash64Unaligned(benchmark::State& state) {
    const auto buffer = words(BUFFER);
    for (auto _ : state)
        benchmark::DoNotOptimize(fasthash64(reinterpret_cast<const char*>(buffer.data()) + 3, BUFFER - 8, 0));
    setBytes(state, BUFFER);
}

void PlainSum(benchmark::State& state) {
    const auto buffer = words(BUFFER);
    for (auto _ : state)
        benchmark::DoNotOptimize(sumWords(buffer.data(), BUFFER));
    setBytes(state, BUFFER);
}

void Memcpy(benchmark::State& state) {
    const auto buffer = words(BUFFER);
    auto copy = buffer;
    for (auto _ : state) {
        std::memcpy(copy.data(), buffer.data(), BUFFER);
        benchmark::ClobberMemory();
    }
    setBytes(state, BUFFER);
}

/// A file that the system holds in its cache, removed at the end of the program.
class CachedFile {
public:
    CachedFile() : path_(std::filesystem::temp_directory_path() / "ombrix_services_bench") {
        const auto content = words(FILE_SIZE);
        std::ofstream(path_, std::ios::binary)
            .write(reinterpret_cast<const char*>(content.data()), FILE_SIZE);
    }
    CachedFile(const CachedFile&) = delete;
    CachedFile& operator=(const CachedFile&) = delete;
    ~CachedFile() {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
    [[nodiscard]] std::string path() const { return path_.string(); }

private:
    std::filesystem::path path_;
};

const CachedFile& cachedFile() {
    static const CachedFile file;
    return file;
}

/// Opening included; the argument is the size of the views in MiB, 0 for one of the whole file.
void SumMappedFile(benchmark::State& state, MemoryMapped::CacheHint hint) {
    const std::string path = cachedFile().path();
    const auto view = static_cast<std::uint64_t>(state.range(0)) << 20;
    for (auto _ : state) {
        MemoryMapped file(path, view, hint);
        std::uint64_t sum = 0;
        for (std::uint64_t offset = 0; file.isValid(); file.remap(offset, view)) {
            sum += sumWords(file.getData(), file.mappedSize());
            offset += file.mappedSize();
        }
        benchmark::DoNotOptimize(sum);
    }
    setBytes(state, FILE_SIZE);
}

void SumReadFile(benchmark::State& state) {
    const std::string path = cachedFile().path();
    std::vector<char> buffer(static_cast<std::size_t>(state.range(0)) << 20);
    for (auto _ : state) {
        std::FILE* file = std::fopen(path.c_str(), "rb");
        if (!file) {
            state.SkipWithError("cannot open the file");
            break;
        }
        std::uint64_t sum = 0;
        while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), file))
            sum += sumWords(buffer.data(), count);
        std::fclose(file);
        benchmark::DoNotOptimize(sum);
    }
    setBytes(state, FILE_SIZE);
}

/// One call per point: the line is redrawn 50 times.
void PointProgressBarAdd(benchmark::State& state) {
    const auto points = static_cast<std::uint64_t>(state.range(0));
    for (auto _ : state) {
        std::ostringstream out;
        PointProgressBar bar(out, 50);
        bar.set_max(points);
        for (std::uint64_t i = 0; i < points; ++i)
            bar.add(1);
        bar.flush();
        benchmark::DoNotOptimize(&bar);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(FastHash64)->Unit(benchmark::kMillisecond);
BENCHMARK(FastHash64Unaligned)->Unit(benchmark::kMillisecond);
BENCHMARK(PlainSum)->Unit(benchmark::kMillisecond);
BENCHMARK(Memcpy)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SumMappedFile, Normal, MemoryMapped::Normal)
    ->Arg(0)
    ->Arg(1)
    ->Arg(16)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SumMappedFile, SequentialScan, MemoryMapped::SequentialScan)
    ->Arg(0)
    ->Arg(1)
    ->Arg(16)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(SumReadFile)->Arg(1)->Arg(16)->Unit(benchmark::kMillisecond);
BENCHMARK(PointProgressBarAdd)->Arg(10'000'000)->Unit(benchmark::kMillisecond);

}  // namespace
