#ifndef TESTS_UNIT_SNAPSHOT_SNAPSHOT_FIXTURE_H
#define TESTS_UNIT_SNAPSHOT_SNAPSHOT_FIXTURE_H

#include <atomic>
#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "snapshot/sys_info_manage.h"
#include "tests/support/memory_log.h"
#include "tests/support/temp_dir.h"

namespace wardend::test {

// 2024-03-01 12:00:05 in UTC, the zone the fixture runs in.
constexpr std::time_t kWallTime = 1709294405;
constexpr const char* kWallText = "2024-03-01-12-00-05";

// A recorder of its own on real files: snapshots go to out/ below a temporary directory, /proc
// is read from proc/ and the timing records from tlog/. The steady clock starts past the first
// ten seconds and moves only when a test says so; the wall clock stands still.
class SnapshotTest : public MemoryLogTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // Writes vesk.json with this "SnapshotConfig" section (raw JSON text) and makes the
    // recorder read it. An empty text writes a file that is not JSON at all.
    void Configure(const std::string& section);
    void ConfigureOn(bool sched, bool delay, bool cpu, bool net);

    int Trigger(
        const std::map<vesk::wardend::ListenerType, vesk::wardend::ListenerParams>& result = {});
    void Advance(std::uint64_t ms) { now_ += ms; }

    std::string OutDir() const { return dir_.Path() + "/out"; }
    std::string SnapshotPath(std::uint64_t index) const;
    std::vector<std::string> SnapshotFiles() const;  // names in out/, sorted

    static std::string ReadAll(const std::string& path);
    static std::map<vesk::wardend::ListenerType, vesk::wardend::ListenerParams> Listener(
        const std::string& guid, std::uint32_t writerPid, std::uint32_t readerPid);

    TempDir dir_;
    std::atomic<std::uint64_t> now_{1000000};
    std::unique_ptr<vesk::wardend::SysInfoManage> sut_;
};

}  // namespace wardend::test

#endif
