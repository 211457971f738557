#ifndef PLATFORM_TLOG_TIMEOUT_RECORD_H
#define PLATFORM_TLOG_TIMEOUT_RECORD_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/core/string.h"

namespace kbr::tlog {

using ara::core::String;

// The message whose timing is asked for: its guid and the two ends of the exchange.
struct MsgInfo {
    String guid;
    std::uint32_t writerPid{};
    std::uint32_t readerPid{};
};

// The timing records of late messages. The tracer leaves them in <directory>/<guid>.tlog, one
// record a line; a message without such a file has no records.
class TimeoutRecord {
public:
    static constexpr const char* kDefaultDirectory = "/run/vesk/tlog/";
    // The guid comes from an application, and the records end up in a file that people read:
    // both are bounded.
    static constexpr std::size_t kMaxGuidLength = 128;
    static constexpr std::size_t kMaxRecords = 4096;
    static constexpr std::size_t kMaxRecordLength = 4096;

    TimeoutRecord();
    // Another directory than the tracer's (tests, relocated run directories).
    explicit TimeoutRecord(String directory);

    // The records in file order, empty lines left out. A record longer than kMaxRecordLength is
    // cut there; records after the first kMaxRecords are dropped. A guid that could name a file
    // outside the directory (empty, a '/', a leading '.', other than [A-Za-z0-9._:-]) has none.
    std::vector<String> GetTimeoutRecordInfo(const MsgInfo& info) const;

    static bool IsValidGuid(const String& guid) noexcept;

private:
    String directory_;
};

}  // namespace kbr::tlog

#endif
