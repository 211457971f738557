#include <gtest/gtest.h>

#include <csignal>
#include <set>
#include <string>

#include "tests/integration/daemon_fixture.h"

namespace {

using wardend::test::DaemonTest;

// The names of the threads of a process, as ps -L shows them.
std::multiset<std::string> ThreadNames(pid_t pid) {
    std::multiset<std::string> names;
    for (const auto& thread : wardend::test::Threads(pid)) {
        names.insert(thread.name);
    }
    return names;
}

// Expects every line in order in the log.
void ExpectInOrder(const std::string& log, const std::vector<std::string>& lines) {
    std::size_t at = 0;
    for (const auto& line : lines) {
        const auto found = log.find(line, at);
        ASSERT_NE(found, std::string::npos) << "missing or out of order: " << line << "\n" << log;
        at = found + line.size();
    }
}

TEST_F(DaemonTest, StartsBothServicesInOrderWithTheirThreadsAndStopsInOrder) {
    WriteConfig(R"({"Log": {"level": "verbose", "sinks": ["console"]}})");
    auto daemon = StartDaemon();
    ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();
    const std::string started = daemon->Stderr();
    ExpectInOrder(started,
                  {"Wardend starts to offer service.",
                   "[SKELETON][Create method][UUID=22272.1.RegisterAppInfo.60621.PROLOC]",
                   "[SKELETON][Create method][UUID=22273.1.QueryAllDataType.56963.PROLOC]",
                   "[SKELETON][Create method][UUID=22273.1.SwitchLatencyMode.63267.PROLOC]",
                   "Wardend start to offer app service.", "Wardend has offered app service.",
                   "Wardend start to offer tools service.", "Wardend has offered tools service.",
                   "Wardend has offered two service.", "Wardend server init finished."});
    std::size_t uuidLines = 0;
    for (std::size_t at = started.find("[SKELETON][Create method][UUID="); at != std::string::npos;
         at = started.find("[SKELETON][Create method][UUID=", at + 1)) {
        ++uuidLines;
    }
    EXPECT_EQ(uuidLines, 26U) << "one line per method and driver (in-process and SOME/IP)";

    const auto threads = ThreadNames(daemon->Pid());
    EXPECT_EQ(threads.count("wrdn_rdmsg"), 1U);
    EXPECT_EQ(threads.count("someip_io"), 1U);
    EXPECT_GE(threads.count("WardendApp_m"), 1U);
    EXPECT_GE(threads.count("WardendTools_m"), 1U);

    ASSERT_TRUE(daemon->Signal(SIGTERM));
    const auto exitCode = daemon->WaitExit(std::chrono::seconds(1));
    ASSERT_TRUE(exitCode.has_value()) << "still running a second after SIGTERM";
    EXPECT_EQ(*exitCode, 0);
    ExpectInOrder(daemon->Stderr(),
                  {"Wardend stops offering service.", "Wardend stops thread pool.",
                   "Wardend stops offering service finished.", "Wardend exits."});
}

TEST_F(DaemonTest, AServicesSectionThatCannotBeAssembledFailsTheStart) {
    struct Case {
        const char* config;
        const char* reason;
    };
    const Case cases[] = {
        {R"({"Services": {"App": {"drivers": ["carrier-pigeon"]}}})",
         "unknown driver \"carrier-pigeon\""},
        // A misspelt service would otherwise be offered on the defaults.
        {R"({"Services": {"Toolz": {"drivers": ["proloc"]}}})", "unknown service \"Toolz\""},
        // Not the defaults, which would open sockets the file may have meant to keep closed.
        {R"({"Services": {"App": {"drivers": ["proloc"]}})", "the file is not a valid JSON object"},
    };
    for (const auto& c : cases) {
        WriteConfig(c.config);
        const auto result = Run({});
        EXPECT_EQ(result.exitCode, 1) << c.config;
        EXPECT_NE(result.err.find(c.reason), std::string::npos) << result.err;
        EXPECT_NE(result.err.find("Wardend wardendAppSkeleton creates failed."), std::string::npos)
            << result.err;
        EXPECT_EQ(result.err.find("Wardend has offered two service."), std::string::npos);
    }
}

}  // namespace
