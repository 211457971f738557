#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "snapshot/sys_info_manage.h"
#include "tests/unit/snapshot/snapshot_fixture.h"

namespace {

using wardend::test::kWallText;
using wardend::test::LogLevel;
using wardend::test::ReadFile;
using wardend::test::SnapshotTest;

constexpr int kThreads = 6;
constexpr int kTriggersPerThread = 20;

// Triggers from several threads at once: each snapshot must stand whole in the file, with the
// guid of the trigger that made it, and every trigger is either recorded or dropped by the
// ten-second rule.
TEST_F(SnapshotTest, ConcurrentTriggersWriteWholeSnapshots) {
    dir_.WriteFile("proc/net/dev", "line one\nline two\n");
    ConfigureOn(false, true, false, true);

    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t, &failures] {
            for (int i = 0; i < kTriggersPerThread; ++i) {
                Advance(10000);  // each trigger sees a later clock than any before it
                if (Trigger(Listener("thread" + std::to_string(t), t, t)) != 0) {
                    failures.fetch_add(1);
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(failures.load(), 0);

    const std::string snapshot = std::string("#snapshot time: ") + kWallText + "\n";
    std::istringstream file(ReadFile(SnapshotPath(0)));
    std::string line;
    ASSERT_TRUE(std::getline(file, line));
    EXPECT_EQ(line, "#WRDNSNAPSHOT V100");
    std::size_t recorded = 0;
    while (std::getline(file, line)) {
        ASSERT_EQ(line + "\n", snapshot);
        std::string block[5];
        for (auto& part : block) {
            ASSERT_TRUE(std::getline(file, part));
        }
        EXPECT_EQ(block[0], "------/proc/net/dev------");
        EXPECT_EQ(block[1], "line one");
        EXPECT_EQ(block[2], "line two");
        EXPECT_EQ(block[3], "------vesktlog------");
        const std::string prefix = "#guid:thread";
        ASSERT_EQ(block[4].compare(0, prefix.size(), prefix), 0) << block[4];
        const std::string id = block[4].substr(prefix.size(), 1);
        std::string expected = prefix;
        expected.append(id).append("_writerPid:").append(id).append("_readerPid:").append(id);
        EXPECT_EQ(block[4], expected);
        ++recorded;
    }
    const std::size_t dropped =
        LogCount(LogLevel::kVerbose, "[SysInfoManage][The time difference is within ten seconds]");
    EXPECT_GT(recorded, 0U);
    EXPECT_EQ(recorded + dropped, static_cast<std::size_t>(kThreads * kTriggersPerThread));
}

}  // namespace
