#include "tests/support/memory_log.h"

#include "tests/support/wait.h"

namespace wardend::test {

using ara::tessel::common::log::Log;
using ara::tessel::common::log::LogLevelName;
using ara::tessel::common::log::MemoryLogSink;

void MemoryLogTest::SetUp() {
    sink_ = std::make_shared<MemoryLogSink>();
    previousLevel_ = Log::GetLevel();
    Log::SetLevel(LogLevel::kVerbose);
    Log::AddSink(sink_);
}

void MemoryLogTest::TearDown() {
    Log::RemoveSink(sink_);
    Log::SetLevel(previousLevel_);
}

std::size_t MemoryLogTest::CountContaining(const std::string& part,
                                           std::optional<LogLevel> level) const {
    std::size_t count = 0;
    for (const auto& record : sink_->Records()) {
        if ((!level || record.level == *level) && record.text.find(part) != std::string::npos) {
            ++count;
        }
    }
    return count;
}

bool MemoryLogTest::WaitContaining(const std::string& part, std::optional<LogLevel> level) const {
    return WaitUntil([&] { return CountContaining(part, level) > 0; }, std::chrono::seconds(10));
}

std::string MemoryLogTest::LogDump() const {
    std::string dump;
    for (const auto& record : sink_->Records()) {
        dump += std::string("[") + LogLevelName(record.level) + "] " + record.text + "\n";
    }
    return dump;
}

}  // namespace wardend::test
