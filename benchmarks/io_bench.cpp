// Reading and writing point files beside plain loops that only move the same bytes. Files are in the page
// cache: what is measured is the library, not the disk.
#include <array>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <ombrix/io.h>

#include "benchmarks/support/bench_cloud.h"
#include "benchmarks/support/bench_files.h"

namespace {

using ombrix::core::PointCloud;
using ombrix::core::Vector3d;
namespace io = ombrix::io;

enum class Form { FLOAT_PLY, DOUBLE_PLY, LAS, ASCII_PLY, TEXT, OBJ };

const Vector3d FAR_AWAY(600000.0, 4900000.0, 0.0);

const PointCloud& cloudOf(std::size_t points) {
    return ombrix::benchmarks::benchCloud(static_cast<std::int64_t>(points));
}

/// A file of this run, which the end of the program removes.
std::filesystem::path outputPath(const std::string& name) {
    return ombrix::benchmarks::outputFile(name);
}

void appendNumber(std::string& text, auto value) {
    std::array<char, 32> digits;
    text.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr);
    text += ' ';
}

/// Coordinates in millimetres, then the colour: "600123.456 4900987.654 210.123 100 128 155".
void writeText(const std::filesystem::path& path, const PointCloud& cloud, Form form) {
    std::string text;
    if (form == Form::ASCII_PLY) {
        text = "ply\nformat ascii 1.0\nelement vertex " + std::to_string(cloud.size()) +
               "\nproperty double x\nproperty double y\nproperty double z\nproperty uchar red\n"
               "property uchar green\nproperty uchar blue\nend_header\n";
    }
    for (std::size_t i = 0; i < cloud.size(); ++i) {
        text += form == Form::OBJ ? "v " : "";
        for (Eigen::Index axis = 0; axis < 3; ++axis) {
            const double world = static_cast<double>(cloud.positions()[i][axis]) + FAR_AWAY[axis];
            appendNumber(text, std::round(world * 1000.0) / 1000.0);
        }
        for (int c = 0; c < 3 && form != Form::OBJ; ++c) {
            appendNumber(text, static_cast<int>(cloud.colors()[i].data()[c]));
        }
        text.back() = '\n';
    }
    std::FILE* file = std::fopen(path.c_str(), "wb");
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
}

/// A file of that form, made on first use.
std::filesystem::path fileOf(Form form, std::size_t points) {
    static const std::map<Form, std::string> endings = {
        {Form::FLOAT_PLY, "_f.ply"}, {Form::DOUBLE_PLY, "_d.ply"}, {Form::LAS, ".las"},
        {Form::ASCII_PLY, "_a.ply"}, {Form::TEXT, ".xyz"},         {Form::OBJ, ".obj"}};
    const std::filesystem::path path = outputPath(std::to_string(points) + endings.at(form));
    if (!std::filesystem::exists(path)) {
        const PointCloud& cloud = cloudOf(points);
        switch (form) {
            case Form::FLOAT_PLY:
                io::writePly(path, cloud);
                break;
            case Form::DOUBLE_PLY:
                io::writePly(path, cloud, FAR_AWAY);
                break;
            case Form::LAS:
                io::writeLas(path, cloud, FAR_AWAY);
                break;
            default:
                writeText(path, cloud, form);
        }
    }
    return path;
}

void setRates(benchmark::State& state, const std::filesystem::path& path) {
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(std::filesystem::file_size(path)));
}

template <Form form>
void Read(benchmark::State& state) {
    const auto path = fileOf(form, static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        const io::PointFile file = io::readPoints(path);
        benchmark::DoNotOptimize(file.cloud.positions().data());
    }
    setRates(state, path);
}

/// fread of the same file into a fresh buffer: what the bytes alone cost.
template <Form form>
void BaselineFread(benchmark::State& state) {
    const auto path = fileOf(form, static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        std::vector<char> bytes(std::filesystem::file_size(path));
        std::FILE* file = std::fopen(path.c_str(), "rb");
        benchmark::DoNotOptimize(std::fread(bytes.data(), 1, bytes.size(), file));
        std::fclose(file);
    }
    setRates(state, path);
}

template <Form form>
void Write(benchmark::State& state) {
    const auto path = outputPath("written");
    const PointCloud& cloud = cloudOf(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        std::filesystem::remove(path);
        if (form == Form::LAS) {
            io::writeLas(path, cloud, FAR_AWAY);
        } else {
            io::writePly(path, cloud, form == Form::DOUBLE_PLY ? FAR_AWAY : Vector3d(0, 0, 0));
        }
    }
    setRates(state, path);
}

/// fwrite of as many bytes as that form takes: what the bytes alone cost.
template <Form form>
void BaselineFwrite(benchmark::State& state) {
    const auto path = outputPath("written");
    const std::vector<char> bytes(
        std::filesystem::file_size(fileOf(form, static_cast<std::size_t>(state.range(0)))), 'a');
    for (auto _ : state) {
        std::filesystem::remove(path);
        std::FILE* file = std::fopen(path.c_str(), "wb");
        std::fwrite(bytes.data(), 1, bytes.size(), file);
        std::fclose(file);
    }
    setRates(state, path);
}

using ombrix::benchmarks::pointSizes;

}  // namespace

BENCHMARK(Read<Form::FLOAT_PLY>)->Apply(pointSizes);
BENCHMARK(BaselineFread<Form::FLOAT_PLY>)->Apply(pointSizes);
BENCHMARK(Read<Form::DOUBLE_PLY>)->Apply(pointSizes);
BENCHMARK(BaselineFread<Form::DOUBLE_PLY>)->Apply(pointSizes);
BENCHMARK(Read<Form::LAS>)->Apply(pointSizes);
BENCHMARK(BaselineFread<Form::LAS>)->Apply(pointSizes);
BENCHMARK(Read<Form::ASCII_PLY>)->Apply(pointSizes);
BENCHMARK(BaselineFread<Form::ASCII_PLY>)->Apply(pointSizes);
BENCHMARK(Read<Form::TEXT>)->Apply(pointSizes);
BENCHMARK(BaselineFread<Form::TEXT>)->Apply(pointSizes);
BENCHMARK(Read<Form::OBJ>)->Apply(pointSizes);
BENCHMARK(BaselineFread<Form::OBJ>)->Apply(pointSizes);
BENCHMARK(Write<Form::FLOAT_PLY>)->Apply(pointSizes);
BENCHMARK(BaselineFwrite<Form::FLOAT_PLY>)->Apply(pointSizes);
BENCHMARK(Write<Form::DOUBLE_PLY>)->Apply(pointSizes);
BENCHMARK(BaselineFwrite<Form::DOUBLE_PLY>)->Apply(pointSizes);
BENCHMARK(Write<Form::LAS>)->Apply(pointSizes);
BENCHMARK(BaselineFwrite<Form::LAS>)->Apply(pointSizes);
