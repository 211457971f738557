#include "platform/log/log.h"

#include <gtest/gtest.h>
#include <cstdlib>

#include <cstdint>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <string_view>

#include "tests/support/memory_log.h"
#include "tests/support/temp_dir.h"

namespace {

using ara::tessel::common::log::Log;
using ara::tessel::common::log::LogLimitConfig;
using wardend::test::LogLevel;
using wardend::test::MemoryLogTest;
using wardend::test::TempDir;

class LogTest : public MemoryLogTest {
protected:
    std::shared_ptr<Log> log_ = Log::GetLog("TEST");
};

TEST_F(LogTest, LinesAboveTheLevelAreNotWritten) {
    Log::SetLevel(LogLevel::kWarn);
    log_->LogInfo() << "hidden";
    log_->LogVerbose() << "hidden";
    log_->LogWarn() << "shown " << 3;
    log_->LogError() << "shown too";
    EXPECT_FALSE(Logged(LogLevel::kInfo, "hidden"));
    EXPECT_FALSE(Logged(LogLevel::kVerbose, "hidden"));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "shown 3"));
    EXPECT_TRUE(Logged(LogLevel::kError, "shown too"));
    EXPECT_TRUE(log_->CheckLogLevel(LogLevel::kWarn));
    EXPECT_FALSE(log_->CheckLogLevel(LogLevel::kInfo));
    EXPECT_FALSE(log_->CheckLogLevel(LogLevel::kOff));
}

struct Streamable {
    int value;
};
std::ostream& operator<<(std::ostream& out, const Streamable& streamable) {
    return out << "streamable(" << streamable.value << ')';
}

// A line is built without a stream, and says what a stream would have written, bytes and bools
// excepted.
TEST_F(LogTest, NumbersTextsAndOtherTypesReadAsAStreamWritesThem) {
    const std::string text = "text";
    const char literal[] = "literal";
    std::ostringstream expected;
    const auto line = [&](auto&&... values) {
        expected.str("");
        (expected << ... << values);
        (log_->LogInfo() << ... << values);
        EXPECT_TRUE(Logged(LogLevel::kInfo, expected.str())) << expected.str() << LogDump();
    };
    line(std::numeric_limits<int>::min(), ' ', std::numeric_limits<unsigned>::max(), ' ',
         std::numeric_limits<long long>::min(), ' ', std::numeric_limits<std::uint64_t>::max(), ' ',
         short{-5}, ' ', std::uint16_t{65535}, ' ', 0);
    line(0.1, ' ', 1e-7, ' ', 123456789.0, ' ', -0.0, ' ', 2.5F, ' ', 1e300, ' ', 100.0, ' ',
         0.000123456789, ' ', 1.0L / 3);
    line(text, ' ', std::string_view("view"), ' ', literal, ' ', static_cast<const char*>(literal),
         'c', std::string());
    line(Streamable{42}, " after");
    // Bytes print as numbers where a stream writes characters.
    log_->LogInfo() << std::uint8_t{7} << ' ' << std::int8_t{-2} << ' ' << true;
    EXPECT_TRUE(Logged(LogLevel::kInfo, "7 -2 true")) << LogDump();
}

TEST_F(LogTest, TagsLimitLinesPerPeriodAndCountTheRestAnEmptyTagNever) {
    const LogLimitConfig hour{3600 * 1000};
    for (int i = 0; i < 5; ++i) {
        log_->LogWarn("limit-test-tag", hour) << "peer did something " << i;
    }
    log_->LogWarn("limit-test-other", hour) << "another tag";
    EXPECT_TRUE(Logged(LogLevel::kWarn, "peer did something 0"));
    EXPECT_FALSE(Logged(LogLevel::kWarn, "peer did something 1"));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "another tag"));
    EXPECT_EQ(Log::SuppressedCount("limit-test-tag"), 4U);
    EXPECT_EQ(Log::SuppressedCount("limit-test-other"), 0U);

    // An empty tag is never limited.
    for (int i = 0; i < 3; ++i) {
        log_->LogError("", LogLimitConfig{}) << "repeated";
    }
    EXPECT_EQ(LogCount(LogLevel::kError, "repeated"), 3U);

    // A limited tag writes again once its period has passed.
    const LogLimitConfig shortPeriod{1};
    log_->LogWarn("limit-test-short", shortPeriod) << "first";
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(2);
    while (std::chrono::steady_clock::now() < until) {
    }
    log_->LogWarn("limit-test-short", shortPeriod) << "second";
    EXPECT_TRUE(Logged(LogLevel::kWarn, "second"));
}

// InitLogging reads the "Log" section of vesk.json, which overrides what the program passes.
TEST_F(LogTest, ConfigurationSelectsLevelAndFileSink) {
    TempDir dir;
    const std::string logFile = dir.Path() + "/wardend.log";
    const std::string config =
        dir.WriteFile("vesk.json", R"({"Log": {"level": "debug", "sinks": ["file"], "file": ")" +
                                       logFile + R"("}})");
    setenv("VESK_CONFIG", config.c_str(), 1);
    Log::InitLogging("WRDN", "ARA_LOG", 3, 0, "");
    unsetenv("VESK_CONFIG");

    EXPECT_EQ(Log::GetLevel(), LogLevel::kDebug);
    log_->LogDebug() << "to the file";
    log_->LogWarn() << "warned";
    log_->LogVerbose() << "not at debug";

    // Each line: time, application, context, level and text.
    const std::string content = wardend::test::ReadFile(logFile);
    EXPECT_NE(content.find("WRDN TEST [debug] to the file\n"), std::string::npos) << content;
    EXPECT_NE(content.find("WRDN TEST [warn] warned\n"), std::string::npos) << content;
    EXPECT_EQ(content.find("not at debug"), std::string::npos);

    Log::InitLogging("WRDN", "ARA_LOG", 3, 0, "");  // back to the console
}

}  // namespace
