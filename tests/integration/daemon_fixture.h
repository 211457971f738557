#ifndef TESTS_INTEGRATION_DAEMON_FIXTURE_H
#define TESTS_INTEGRATION_DAEMON_FIXTURE_H

#include <gtest/gtest.h>
#include <csignal>
#include <cstdlib>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait.h"

namespace wardend::test {

constexpr std::chrono::seconds kStartTimeout{20};

// Starts the real wardend binary with a vesk.json of the test's own (info level on the
// console, unless the test writes another).
class DaemonTest : public ::testing::Test {
protected:
    // The client library in this process reads the same vesk.json as the daemon.
    void SetUp() override {
        WriteConfig(R"({"Log": {"level": "info"}})");
        setenv("VESK_CONFIG", (dir_.Path() + "/vesk.json").c_str(), 1);
    }
    void TearDown() override { unsetenv("VESK_CONFIG"); }

    void WriteConfig(const std::string& json) { dir_.WriteFile("vesk.json", json); }

    std::vector<std::string> Env() const { return {"VESK_CONFIG=" + dir_.Path() + "/vesk.json"}; }

    std::unique_ptr<ChildProcess> StartDaemon(const std::vector<std::string>& args = {}) {
        WaitNoDaemon();
        return std::make_unique<ChildProcess>(WARDEND_BINARY, args, Env());
    }

    // A daemon that the previous test killed may take a moment to be gone; the new one's
    // single-instance check would count it.
    static void WaitNoDaemon() {
        WaitUntil([] { return !DaemonRuns(); }, std::chrono::seconds(10));
    }

    static bool DaemonRuns() {
        for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
            std::ifstream comm(entry.path() / "comm");
            std::string name;
            if (std::getline(comm, name) && name == "wardend") {
                return true;
            }
        }
        return false;
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

// Every tools query but the node query and the switch, on names nobody registered: each answers.
template <typename Tools>
void ExpectEveryQueryAnswers(Tools& tools) {
    const auto answers = [](auto future) { return future.GetResult().HasValue(); };
    EXPECT_TRUE(answers(tools.QueryAllDataType()));
    EXPECT_TRUE(answers(tools.QueryDataType("/None")));
    EXPECT_TRUE(answers(tools.QueryDataTypeRefList()));
    EXPECT_TRUE(answers(tools.QueryEventInfo("ALL")));
    EXPECT_TRUE(answers(tools.QueryEventShow("/None")));
    EXPECT_TRUE(answers(tools.QueryLatencyResult({})));
    EXPECT_TRUE(answers(tools.QueryLatencyStatus({})));
    EXPECT_TRUE(answers(tools.QueryMethodInfo("ALL")));
    EXPECT_TRUE(answers(tools.QueryMethodType("/None")));
    EXPECT_TRUE(answers(tools.QuerySubNodeEventInfo({})));
}

}  // namespace wardend::test

#endif
