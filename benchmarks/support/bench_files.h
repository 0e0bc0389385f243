#pragma once

#include <cstdint>
#include <string>

namespace ombrix::benchmarks {

/// Files that measures read, written on first use into a folder that the end of the program removes: the
/// cloud of n points as binary PLY, and the mesh of a million triangles as OBJ without normals.
std::string plyFile(std::int64_t n);
std::string objFile();

/// A path in the same folder for what a measure writes.
std::string outputFile(const std::string& name);

}  // namespace ombrix::benchmarks
