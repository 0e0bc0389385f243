#pragma once

#include <memory>
#include <vector>

#include <ombrix/core/core_export.h>

namespace spdlog {
class logger;
namespace sinks {
class sink;
}
}  // namespace spdlog

namespace ombrix::core {

/// Name of the library's logger in spdlog's registry.
inline constexpr char LOGGER_NAME[] = "ombrix";

/// The library's logger, made and registered by the first call; later calls give the same one and ignore
/// their sinks.
///
/// It sets neither pattern nor level. A logger over given sinks is only registered: the sinks keep the
/// patterns that they have. The default one gets the registry's pattern, level and error handler.
///
/// @param sinks  where the log goes, in this order; null ones are left out. Without any: a coloured console
///               sink on standard output that several threads may use.
/// @throws spdlog::spdlog_ex  when another thread registers the name at the same time.
OMBRIX_CORE_API std::shared_ptr<spdlog::logger> setup_logger(
    std::vector<std::shared_ptr<spdlog::sinks::sink>> sinks = {});

}  // namespace ombrix::core
