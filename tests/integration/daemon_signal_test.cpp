#include <gtest/gtest.h>
#include <csignal>

#include "tests/integration/daemon_fixture.h"

namespace {

using wardend::test::DaemonTest;

class DaemonSignalTest : public DaemonTest, public ::testing::WithParamInterface<int> {};

// The wait loop sleeps 250 ms at a time, so a stop signal ends the daemon well within a second.
TEST_P(DaemonSignalTest, StopsWithExitCodeZeroWithinASecond) {
    auto daemon = StartDaemon();
    ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();
    ASSERT_TRUE(daemon->Signal(GetParam()));
    const auto exitCode = daemon->WaitExit(std::chrono::seconds(1));
    ASSERT_TRUE(exitCode.has_value()) << "still running a second after the signal";
    EXPECT_EQ(*exitCode, 0);
    const std::string log = daemon->Stderr();
    for (const char* line : {"Wardend is exiting...", "Wardend stops offering service.",
                             "Wardend stops offering service finished.", "Wardend exits."}) {
        EXPECT_NE(log.find(line), std::string::npos) << line << "\n" << log;
    }
}

INSTANTIATE_TEST_SUITE_P(TermAndInt, DaemonSignalTest, ::testing::Values(SIGTERM, SIGINT),
                         [](const ::testing::TestParamInfo<int>& param) {
                             return param.param == SIGTERM ? "SIGTERM" : "SIGINT";
                         });

}  // namespace
