#include <ombrix/core/services/logger.h>

#include <gtest/gtest.h>
#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <sstream>

namespace ombrix::core {
namespace {

class Logger : public testing::Test {
protected:
    void SetUp() override {
        spdlog::drop(LOGGER_NAME);
        spdlog::set_pattern("registry %v");
        spdlog::set_level(spdlog::level::warn);
    }
    void TearDown() override { SetUp(); }

    static std::shared_ptr<spdlog::sinks::sink> sinkTo(std::ostream& out) {
        auto sink = std::make_shared<spdlog::sinks::ostream_sink_mt>(out);
        sink->set_pattern("host %v");
        return sink;
    }
};

TEST_F(Logger, WritesToTheFirstCallersSinksWithTheirPatterns) {
    std::ostringstream first, second, late;
    const auto logger = setup_logger({sinkTo(first), nullptr, sinkTo(second)});
    EXPECT_EQ(logger->name(), "ombrix");
    EXPECT_EQ(spdlog::get("ombrix"), logger);
    EXPECT_EQ(setup_logger({sinkTo(late)}), logger);
    EXPECT_EQ(setup_logger(), logger);

    logger->info("text");
    EXPECT_EQ(first.str(), "host text\n");
    EXPECT_EQ(second.str(), "host text\n");
    EXPECT_EQ(late.str(), "");
}

TEST_F(Logger, WritesToStandardOutputWithTheRegistrysDefaults) {
    const auto logger = setup_logger();
    EXPECT_EQ(spdlog::get("ombrix"), logger);
    ASSERT_EQ(logger->sinks().size(), 1u);
    EXPECT_NE(dynamic_cast<spdlog::sinks::stdout_color_sink_mt*>(logger->sinks()[0].get()), nullptr);

    testing::internal::CaptureStdout();
    logger->info("below the level");
    logger->warn("text");
    logger->flush();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "registry text\n");
}

}  // namespace
}  // namespace ombrix::core
