#include "tests/unit/snapshot/snapshot_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace wardend::test {

using vesk::wardend::ListenerParams;
using vesk::wardend::ListenerType;
using vesk::wardend::SnapshotEnvironment;
using vesk::wardend::SysInfoManage;

void SnapshotTest::SetUp() {
    MemoryLogTest::SetUp();
    setenv("TZ", "UTC", 1);  // the snapshot binaries all run in UTC
    tzset();
    std::filesystem::create_directories(OutDir());
    SnapshotEnvironment environment;
    environment.procRoot = dir_.Path();
    environment.tlogDirectory = dir_.Path() + "/tlog";
    environment.steadyMilliseconds = [this] { return now_.load(); };
    environment.wallClock = [] { return kWallTime; };
    sut_ = std::make_unique<SysInfoManage>(environment);
}

void SnapshotTest::TearDown() {
    sut_.reset();
    unsetenv("VESK_CONFIG");
    MemoryLogTest::TearDown();
}

void SnapshotTest::Configure(const std::string& section) {
    const std::string text =
        section.empty() ? "{ not json" : "{\"SnapshotConfig\": " + section + "}";
    setenv("VESK_CONFIG", dir_.WriteFile("vesk.json", text).c_str(), 1);
    sut_->InitSnapshotConfig();
}

void SnapshotTest::ConfigureOn(bool sched, bool delay, bool cpu, bool net) {
    const auto flag = [](bool on) { return on ? "true" : "false"; };
    Configure(std::string(R"({"threshold": 1, "enable_sched_trace": )") + flag(sched) +
              R"(, "time_delay": )" + flag(delay) + R"(, "cpu_usage": )" + flag(cpu) +
              R"(, "net_statistics": )" + flag(net) + R"(, "path": ")" + OutDir() + R"("})");
}

int SnapshotTest::Trigger(const std::map<ListenerType, ListenerParams>& result) {
    return sut_->TriggerSnapshot(result);
}

std::string SnapshotTest::SnapshotPath(std::uint64_t index) const {
    return OutDir() + "/snapshot_" + kWallText + "_" + std::to_string(index) + ".log";
}

std::vector<std::string> SnapshotTest::SnapshotFiles() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(OutDir())) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string SnapshotTest::ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

std::map<ListenerType, ListenerParams> SnapshotTest::Listener(const std::string& guid,
                                                              std::uint32_t writerPid,
                                                              std::uint32_t readerPid) {
    return {{ListenerType::kLatencyTimeout, ListenerParams{guid, writerPid, readerPid}}};
}

}  // namespace wardend::test
