#pragma once

#include <cstdint>

#include <ombrix/core/core_export.h>

extern "C" {

/// Non-cryptographic hash of a byte buffer, the same on every machine and in every build.
///
/// Reads little-endian words without any alignment requirement.
/// Source: Zilong Tan, fast-hash, 2012.
///
/// @param buf   `len` bytes; may be null when there are none.
/// @param seed  any value; different seeds give unrelated hashes.
[[nodiscard]] OMBRIX_CORE_API std::uint64_t fasthash64(const void* buf, std::uint64_t len,
                                                       std::uint64_t seed) noexcept;

/// `fasthash64` folded to 32 bits: the low half of h - (h >> 32).
[[nodiscard]] OMBRIX_CORE_API std::uint32_t fasthash32(const void* buf, std::uint64_t len,
                                                       std::uint32_t seed) noexcept;

}  // extern "C"

namespace ombrix::core {

using ::fasthash32;
using ::fasthash64;

}  // namespace ombrix::core
