#include <gtest/gtest.h>
#include <unistd.h>
#include <csignal>

#include "tests/integration/daemon_fixture.h"
#include "tests/support/wait.h"

namespace {

using wardend::test::ChildProcess;
using wardend::test::DaemonTest;

bool Executable(const char* path) {
    return access(path, X_OK) == 0;
}

// Waits up to ten seconds for text on a running program's standard output.
bool WaitForStdout(const ChildProcess& process, const std::string& text) {
    return wardend::test::WaitUntil(
        [&] { return process.Stdout().find(text) != std::string::npos; }, std::chrono::seconds(10));
}

// A line the daemon logs reaches a running dlt-daemon, as read back by dlt-receive.
TEST_F(DaemonTest, LogLinesReachTheDltDaemon) {
    if (!Executable("/usr/bin/dlt-daemon") || !Executable("/usr/bin/dlt-receive")) {
        GTEST_SKIP()
            << "dlt-daemon or dlt-receive is not installed (scripts/bootstrap installs them)";
    }
    ChildProcess dltDaemon("/usr/bin/dlt-daemon", {});
    if (!dltDaemon.WaitForStderr("Listening on ip", std::chrono::seconds(5)) &&
        dltDaemon.Stdout().find("Listening on ip") == std::string::npos) {
        GTEST_SKIP() << "dlt-daemon could not start here: " << dltDaemon.Stdout()
                     << dltDaemon.Stderr();
    }
    // Line-buffered, so that its output can be read while it runs.
    ChildProcess receiver("/usr/bin/stdbuf", {"-oL", "/usr/bin/dlt-receive", "-a", "127.0.0.1"});
    ASSERT_TRUE(WaitForStdout(receiver, "New client connection"))
        << "dlt-receive did not connect: " << receiver.Stdout() << receiver.Stderr();

    WriteConfig(R"({"Log": {"level": "info", "sinks": ["dlt", "console"]}})");
    auto daemon = StartDaemon();
    ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();

    EXPECT_TRUE(WaitForStdout(receiver, "WRDN WRDN log info V 1 [Wardend server init finished.]"))
        << receiver.Stdout();
    EXPECT_NE(receiver.Stdout().find("ApplicationID 'WRDN' registered"), std::string::npos);

    StopAndExpectCleanExit(*daemon);
    dltDaemon.Signal(SIGTERM);
    dltDaemon.WaitExit(std::chrono::seconds(5));
}

}  // namespace
