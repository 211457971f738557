#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "tests/integration/daemon_fixture.h"

namespace {

using wardend::test::ChildProcess;
using wardend::test::DaemonTest;

bool Executable(const char* path) {
    return access(path, X_OK) == 0;
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
    ChildProcess receiver("/usr/bin/stdbuf", {"-oL", "/usr/bin/dlt-receive", "-a", "localhost"});
    ASSERT_TRUE([&] {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < deadline) {
            if (receiver.Stdout().find("New client connection") != std::string::npos) {
                return true;
            }
            usleep(10000);
        }
        return false;
    }()) << "dlt-receive did not connect: "
         << receiver.Stdout() << receiver.Stderr();

    WriteConfig(R"({"Log": {"level": "info", "sinks": ["dlt", "console"]}})");
    configWritten_ = true;
    auto daemon = StartDaemon();
    ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::string received;
    while (std::chrono::steady_clock::now() < deadline) {
        received = receiver.Stdout();
        if (received.find("WRDN WRDN log info V 1 [Wardend server init finished.]") !=
            std::string::npos) {
            break;
        }
        usleep(10000);
    }
    EXPECT_NE(received.find("WRDN WRDN log info V 1 [Wardend server init finished.]"),
              std::string::npos)
        << received;
    EXPECT_NE(received.find("ApplicationID 'WRDN' registered"), std::string::npos);

    ASSERT_TRUE(daemon->Signal(SIGTERM));
    EXPECT_EQ(daemon->WaitExit(std::chrono::seconds(10)), 0);
    dltDaemon.Signal(SIGTERM);
    dltDaemon.WaitExit(std::chrono::seconds(5));
}

}  // namespace
