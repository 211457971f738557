#ifndef TESTS_UNIT_SNAPSHOT_SNAPSHOT_FIXTURE_H
#define TESTS_UNIT_SNAPSHOT_SNAPSHOT_FIXTURE_H

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
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

using ListenerMap = std::map<vesk::wardend::ListenerType, vesk::wardend::ListenerParams>;

// A recorder of its own on real files: snapshots go to out/ below a temporary directory, /proc
// is read from proc/ and the timing records from tlog/. The steady clock starts past the first
// ten seconds and moves only when a test says so; the wall clock stands still.
class SnapshotTest : public MemoryLogTest {
protected:
    void SetUp() override {
        MemoryLogTest::SetUp();
        setenv("TZ", "UTC", 1);  // the snapshot binaries all run in UTC
        tzset();
        std::filesystem::create_directories(OutDir());
        vesk::wardend::SnapshotEnvironment environment;
        environment.procRoot = dir_.Path();
        environment.tlogDirectory = dir_.Path() + "/tlog";
        environment.steadyMilliseconds = [this] { return now_.load(); };
        environment.wallClock = [] { return kWallTime; };
        sut_ = std::make_unique<vesk::wardend::SysInfoManage>(environment);
    }

    void TearDown() override {
        sut_.reset();
        unsetenv("VESK_CONFIG");
        MemoryLogTest::TearDown();
    }

    // Writes vesk.json with this "SnapshotConfig" section (raw JSON text) and makes the
    // recorder read it. An empty text writes a file that is not JSON at all.
    void Configure(const std::string& section) {
        const std::string text =
            section.empty() ? "{ not json" : "{\"SnapshotConfig\": " + section + "}";
        setenv("VESK_CONFIG", dir_.WriteFile("vesk.json", text).c_str(), 1);
        sut_->InitSnapshotConfig();
    }

    void ConfigureOn(bool sched, bool delay, bool cpu, bool net) {
        const auto flag = [](bool on) { return on ? "true" : "false"; };
        Configure(std::string(R"({"threshold": 1, "enable_sched_trace": )") + flag(sched) +
                  R"(, "time_delay": )" + flag(delay) + R"(, "cpu_usage": )" + flag(cpu) +
                  R"(, "net_statistics": )" + flag(net) + R"(, "path": ")" + OutDir() + R"("})");
    }

    int Trigger(const ListenerMap& result = {}) { return sut_->TriggerSnapshot(result); }
    void Advance(std::uint64_t ms) { now_ += ms; }

    std::string OutDir() const { return dir_.Path() + "/out"; }
    std::string SnapshotPath(std::uint64_t index) const {
        return OutDir() + "/snapshot_" + kWallText + "_" + std::to_string(index) + ".log";
    }
    std::vector<std::string> SnapshotFiles() const {  // names in out/, sorted
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(OutDir())) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    static ListenerMap Listener(const std::string& guid, std::uint32_t writerPid,
                                std::uint32_t readerPid) {
        return {{vesk::wardend::ListenerType::kLatencyTimeout,
                 vesk::wardend::ListenerParams{guid, writerPid, readerPid}}};
    }

    TempDir dir_;
    std::atomic<std::uint64_t> now_{1000000};
    std::unique_ptr<vesk::wardend::SysInfoManage> sut_;
};

}  // namespace wardend::test

#endif
