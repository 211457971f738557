#ifndef TESTS_SUPPORT_MEMORY_LOG_H
#define TESTS_SUPPORT_MEMORY_LOG_H

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "platform/log/log.h"

namespace wardend::test {

using ara::tessel::common::log::LogLevel;

// Installs an in-memory sink at verbose level for the lifetime of the test, so that log lines
// that are behaviour can be asserted.
class MemoryLogTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    bool Logged(LogLevel level, const std::string& text) const {
        return sink_->Contains(level, text);
    }
    std::size_t LogCount(LogLevel level, const std::string& text) const {
        return sink_->Count(level, text);
    }
    void ClearLog() { sink_->Clear(); }
    // Lines that contain part, at level (at any level when none is given).
    std::size_t CountContaining(const std::string& part,
                                std::optional<LogLevel> level = std::nullopt) const;
    // Waits up to ten seconds for such a line, which another thread writes.
    bool WaitContaining(const std::string& part,
                        std::optional<LogLevel> level = std::nullopt) const;
    // Every line, one a row, for failure messages.
    std::string LogDump() const;

    std::shared_ptr<ara::tessel::common::log::MemoryLogSink> sink_;

private:
    LogLevel previousLevel_{LogLevel::kWarn};
};

}  // namespace wardend::test

#endif
