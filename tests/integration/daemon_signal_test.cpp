#include <gtest/gtest.h>
#include <csignal>

#include "tests/integration/daemon_fixture.h"

namespace {

using wardend::test::DaemonTest;

// SIGTERM is the assembly test's stop; SIGINT must stop the daemon the same way, well within a
// second, as the wait loop sleeps 250 ms at a time.
TEST_F(DaemonTest, SigintStopsWithExitCodeZeroWithinASecond) {
    auto daemon = StartDaemon();
    ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();
    ASSERT_TRUE(daemon->Signal(SIGINT));
    const auto exitCode = daemon->WaitExit(std::chrono::seconds(1));
    ASSERT_TRUE(exitCode.has_value()) << "still running a second after the signal";
    EXPECT_EQ(*exitCode, 0);
    const std::string log = daemon->Stderr();
    for (const char* line : {"Wardend is exiting...", "Wardend stops offering service.",
                             "Wardend stops offering service finished.", "Wardend exits."}) {
        EXPECT_NE(log.find(line), std::string::npos) << line << "\n" << log;
    }
}

}  // namespace
