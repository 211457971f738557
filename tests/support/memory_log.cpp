#include "tests/support/memory_log.h"

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

std::string MemoryLogTest::LogDump() const {
    std::string dump;
    for (const auto& record : sink_->Records()) {
        dump += std::string("[") + LogLevelName(record.level) + "] " + record.text + "\n";
    }
    return dump;
}

}  // namespace wardend::test
