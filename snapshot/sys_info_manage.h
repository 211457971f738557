#ifndef SNAPSHOT_SYS_INFO_MANAGE_H
#define SNAPSHOT_SYS_INFO_MANAGE_H

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <vector>

#include "platform/config/vesk_config_parser.h"
#include "platform/core/string.h"
#include "platform/tlog/timeout_record.h"
#include "records/wardend_records.h"

namespace vesk::wardend {

using ara::core::String;
using ara::tessel::common::veskConfigParser::SnapshotConfig;

// Where the recorder reads from and what it takes for "now". The daemon runs on the defaults;
// tests point them at files and clocks of their own. Nothing else differs between the two.
struct SnapshotEnvironment {
    String procRoot;  // put in front of every "/proc/..." path; empty reads the real /proc
    String tlogDirectory{kbr::tlog::TimeoutRecord::kDefaultDirectory};
    std::function<std::uint64_t()> steadyMilliseconds;  // empty: the steady clock
    std::function<std::time_t()> wallClock;             // empty: time()
};

// Records what the system looks like when an application's listener reports a problem:
// scheduler traces, network and CPU counters and the timing records of the late message, as
// text appended to snapshot_<time>_<index>.log files in the configured directory. A file is
// finished after the snapshot that takes it past 2 MiB; nine finished files are kept.
//
// Locks: recordLock_ is held over a whole trigger and by CloseSnapshotFile, and nothing else of
// the daemon's is taken under it. InitSnapshotConfig runs before the service is offered, so
// before the first trigger, and writes the configuration under configOnce_ alone.
class SysInfoManage {
public:
    static constexpr std::uint64_t kMinimumIntervalMs = 10000;
    // A file whose end lies at or below this offset stays open.
    static constexpr std::uint64_t kMaxFileSize = 0x200000;
    static constexpr std::size_t kFinishedFilesKept = 9;

    static SysInfoManage& GetInstance();

    // The daemon uses GetInstance(); tests make recorders of their own.
    explicit SysInfoManage(SnapshotEnvironment environment = {});
    ~SysInfoManage();
    SysInfoManage(const SysInfoManage&) = delete;
    SysInfoManage& operator=(const SysInfoManage&) = delete;

    // Reads the "SnapshotConfig" section of vesk.json, once for the object's life.
    void InitSnapshotConfig();
    // One snapshot, unless the function is off or the last one is less than ten seconds old.
    // 0, or -1 when the new file could not be made or the snapshot's first line not written.
    int TriggerSnapshot(const std::map<ListenerType, ListenerParams>& result);
    // Closes the open file without an end mark; the service's stop path calls it after the
    // pool that runs the triggers has stopped.
    void CloseSnapshotFile();

    // What the recorder holds now; for tests and diagnostics.
    SnapshotConfig GetConfig() const;
    String LogDir() const;
    String FileName() const;
    bool HasOpenFile() const;
    std::map<ListenerType, ListenerParams> ListenerResult() const;
    std::vector<String> ClosedFiles() const;

private:
    // All of these expect recordLock_ held.
    int CreateSnapshotFile();
    int RecordSnapshot();
    int WriteFileSection(const String& path);
    int WriteCpuUsage();
    int WriteTlogSection();
    int FinishFileIfFull();
    bool Write(const String& text);
    String LocalTimeText() const;

    SnapshotEnvironment environment_;

    // Written once under configOnce_, before the first trigger; read-only afterwards.
    std::once_flag configOnce_;
    SnapshotConfig snapshotConfig_;
    String logDir_{"/tmp/"};  // always with a trailing '/'

    mutable std::mutex recordLock_;  // guards everything below
    std::FILE* logFile_{nullptr};
    String fileName_;
    std::list<String> closedFiles_;  // oldest first
    std::size_t closedFileCount_{0};
    std::uint64_t lastRecordTime_{0};
    std::uint64_t fileIndex_{0};
    std::map<ListenerType, ListenerParams> listenerResult_;
};

}  // namespace vesk::wardend

#endif
