#include <ombrix/core/services/logger.h>

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

namespace ombrix::core {

std::shared_ptr<spdlog::logger> setup_logger(std::vector<std::shared_ptr<spdlog::sinks::sink>> sinks) {
    if (auto existing = spdlog::get(LOGGER_NAME))
        return existing;

    std::erase(sinks, nullptr);
    if (!sinks.empty()) {
        // Initialising would overwrite the patterns of the host's sinks with the registry's.
        auto logger = std::make_shared<spdlog::logger>(LOGGER_NAME, sinks.begin(), sinks.end());
        spdlog::register_logger(logger);
        return logger;
    }
    auto logger = std::make_shared<spdlog::logger>(LOGGER_NAME,
                                                   std::make_shared<spdlog::sinks::stdout_color_sink_mt>());
    spdlog::initialize_logger(logger);
    return logger;
}

}  // namespace ombrix::core
