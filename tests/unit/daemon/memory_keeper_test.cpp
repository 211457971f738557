#include "daemon/memory_keeper.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using std::chrono::microseconds;
using vesk::wardend::MemoryKeeper;

struct KeeperCase {
    std::string name;
    std::vector<int> cpuPerPeriodUs;  // CPU the process used in each period
    std::vector<int> trimsAfter;      // the periods (from 0) after which it trims
};

// Busy from 2 ms a period (after work: from half its busiest period), quiet for 4 periods
// before a trim.
TEST(MemoryKeeper, TrimsOnceAfterWorkWhenQuietForLong) {
    const std::vector<KeeperCase> cases = {
        {"never busy", {0, 100, 1999, 0, 0, 0, 0, 0}, {}},
        {"busy then quiet", {0, 5000, 0, 0, 0, 0, 0, 0, 0, 0}, {5}},
        {"work resumes before the quiet is long enough", {0, 5000, 0, 0, 0, 9000, 0, 0, 0, 0}, {9}},
        {"busy at exactly the limit", {0, 2000, 0, 0, 0, 0}, {5}},
        {"a long burst trims only at its end", {0, 3000, 3000, 3000, 0, 0, 0, 0}, {7}},
        {"two bursts, two trims", {0, 4000, 0, 0, 0, 0, 4000, 0, 0, 0, 0}, {5, 10}},
        {"steady traffic below half the burst is quiet",
         {1900, 40000, 30000, 3000, 19999, 2500, 3000, 1900},
         {6}},
        {"traffic at half the burst is still work",
         {0, 6000, 3000, 3000, 1000, 1000, 1000, 1000},
         {7}},
    };
    for (const auto& c : cases) {
        std::vector<int> trims;
        int period = 0;
        MemoryKeeper keeper(microseconds(2000), 4, [&] { trims.push_back(period); });
        // The first reading is the CPU that start-up used: large, and not counted as work.
        long cpu = 750000;
        for (; period < static_cast<int>(c.cpuPerPeriodUs.size()); ++period) {
            cpu += c.cpuPerPeriodUs[static_cast<std::size_t>(period)];
            const std::size_t before = trims.size();
            const bool trimmed = keeper.OnPeriod(microseconds(cpu));
            EXPECT_EQ(trimmed, trims.size() != before) << c.name;
        }
        EXPECT_EQ(trims, c.trimsAfter) << c.name;
    }
}

// Spinning 20 ms of wall time: the CPU reading moves by about that much, in microseconds.
TEST(MemoryKeeper, ProcessCpuTimeCountsMicrosecondsOfWork) {
    const microseconds before = vesk::wardend::ProcessCpuTime();
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
    volatile unsigned sink = 0;
    while (std::chrono::steady_clock::now() < end) {
        sink = sink + 1;
    }
    const auto used = (vesk::wardend::ProcessCpuTime() - before).count();
    EXPECT_GE(used, 1000);
    EXPECT_LT(used, 1000000);
}

}  // namespace
