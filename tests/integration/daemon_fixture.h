#ifndef TESTS_INTEGRATION_DAEMON_FIXTURE_H
#define TESTS_INTEGRATION_DAEMON_FIXTURE_H

#include <gtest/gtest.h>
#include <csignal>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/temp_dir.h"

namespace wardend::test {

constexpr std::chrono::seconds kStartTimeout{20};

// Starts the real wardend binary with a vesk.json of the test's own (info level on the
// console, unless the test writes another).
class DaemonTest : public ::testing::Test {
protected:
    void SetUp() override { WriteConfig(R"({"Log": {"level": "info"}})"); }

    void WriteConfig(const std::string& json) { dir_.WriteFile("vesk.json", json); }

    std::vector<std::string> Env() const { return {"VESK_CONFIG=" + dir_.Path() + "/vesk.json"}; }

    std::unique_ptr<ChildProcess> StartDaemon(const std::vector<std::string>& args = {}) {
        return std::make_unique<ChildProcess>(WARDEND_BINARY, args, Env());
    }

    // Waits for the daemon's "Wardend server init finished." line.
    static bool WaitReady(const ChildProcess& daemon) {
        return daemon.WaitForStderr("Wardend server init finished.", kStartTimeout);
    }

    static void StopAndExpectCleanExit(ChildProcess& daemon) {
        ASSERT_TRUE(daemon.Signal(SIGTERM));
        EXPECT_EQ(daemon.WaitExit(std::chrono::seconds(10)), 0);
    }

    RunResult Run(const std::vector<std::string>& args) {
        return RunToEnd(WARDEND_BINARY, args, Env());
    }

    TempDir dir_;
};

}  // namespace wardend::test

#endif
