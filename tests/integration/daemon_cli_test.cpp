#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "tests/integration/daemon_fixture.h"

namespace {

using wardend::test::DaemonTest;

const std::string kShortUsage =
    "Usage: wardend [-p] [.msg path]           \n"
    "\n"
    "Options:                                    \n"
    "    -p,   set an additional .msg files path \n";

const std::string kLongUsage =
    "wardend is a daemon for providing CM maintenance services.\n"
    "\n"
    "Options:                                                    \n"
    "    -p,   set an additional .msg files path                 \n";

struct BadCommandLine {
    const char* name;
    std::vector<std::string> args;
    std::string out;  // standard output, exactly
    std::string log;  // a line the error log must have
};

class DaemonCommandLineTest : public DaemonTest,
                              public ::testing::WithParamInterface<BadCommandLine> {};

TEST_P(DaemonCommandLineTest, PrintsExactlyItsTextAndExitsWithOne) {
    const auto result = Run(GetParam().args);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, GetParam().out);
    EXPECT_NE(result.err.find(GetParam().log), std::string::npos) << result.err;
    EXPECT_EQ(result.err.find("Wardend server init finished."), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    BadOptions, DaemonCommandLineTest,
    ::testing::Values(
        BadCommandLine{"Help",
                       {"--help"},
                       "[ERROR]: Unknown Option: '--help'\n" + kLongUsage,
                       "Wardend unknown option: '--help'"},
        BadCommandLine{"UnknownOption",
                       {"-x"},
                       "[ERROR]: Unknown Option: '-x'\n" + kLongUsage,
                       "Wardend unknown option: '-x'"},
        BadCommandLine{"PathMissing",
                       {"-p"},
                       "[ERROR]: User must specify a .msg path\n" + kShortUsage,
                       "Wardend user must specify a .msg path"},
        BadCommandLine{"TwoPaths",
                       {"-p", "/a", "/b"},
                       "[ERROR]: User may only specify one .msg path\n" + kShortUsage,
                       "Wardend user may only specify one .msg path"},
        BadCommandLine{"RelativePath",
                       {"-p", "rel/dir"},
                       "",
                       "Msg file path name must start with /, otherwise wardend will exit"},
        BadCommandLine{"DotInPath",
                       {"-p", "/tmp/v1.2"},
                       "",
                       "Msg file path name must be a string of a-z, 0-9, A-Z, -, _, [, ], /, "
                       "otherwise wardend will exit"},
        BadCommandLine{"MissingDirectory",
                       {"-p", "/no/such/dir"},
                       "",
                       "Msg file path /no/such/dir unexisted, so wardend exits"}),
    [](const ::testing::TestParamInfo<BadCommandLine>& param) { return param.param.name; });

// An existing -p directory is taken with a trailing slash; the instance id is 1 unless
// vesk.json gives one. SIGINT stops the daemon as SIGTERM does, well within a second, as the wait
// loop sleeps 250 ms at a time.
TEST_F(DaemonTest, StartsWithTheDirectoryAndInstanceIdItWasGivenAndStopsOnEitherSignal) {
    for (const bool configured : {false, true}) {
        if (configured) {
            WriteConfig(R"({"Log": {"level": "info"}, "Wardend": {"instanceId": "3"}})");
        }
        auto daemon = StartDaemon({"-p", dir_.Path()});
        ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();
        const std::string log = daemon->Stderr();
        EXPECT_NE(log.find("User set msg file path to " + dir_.Path() + "/"), std::string::npos);
        EXPECT_NE(log.find(configured ? "Wardend the instance id is 3."
                                      : "Wardend the instance id is 1."),
                  std::string::npos)
            << log;
        ASSERT_TRUE(daemon->Signal(configured ? SIGTERM : SIGINT));
        const auto exitCode = daemon->WaitExit(std::chrono::seconds(1));
        ASSERT_TRUE(exitCode.has_value()) << "still running a second after the signal";
        EXPECT_EQ(*exitCode, 0);
        for (const char* line : {"Wardend is exiting...", "Wardend stops offering service.",
                                 "Wardend stops offering service finished.", "Wardend exits."}) {
            EXPECT_NE(daemon->Stderr().find(line), std::string::npos) << line;
        }
        EXPECT_EQ(daemon->Stdout(), "");
    }
}

// The running check comes before the options, so even a bad option reports the running daemon.
TEST_F(DaemonTest, ASecondDaemonRefusesToRunBeforeLookingAtItsOptions) {
    auto first = StartDaemon();
    ASSERT_TRUE(WaitReady(*first)) << first->Stderr();
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{}, {"-x"}, {"-p", "/no/such/dir"}}) {
        const auto second = Run(args);
        EXPECT_EQ(second.exitCode, 1);
        EXPECT_EQ(second.out, "[ERROR]: Wardend process is running already\n");
    }
    StopAndExpectCleanExit(*first);
}

// Only the first character of the count is read: a binary under another name counts no
// wardend at all, "0", and takes that for a running daemon.
TEST_F(DaemonTest, ACountOfZeroIsTakenForARunningDaemon) {
    const std::string renamed = dir_.Path() + "/wardend_renamed";
    std::filesystem::copy_file(WARDEND_BINARY, renamed);
    std::filesystem::permissions(renamed, std::filesystem::perms::owner_exec,
                                 std::filesystem::perm_options::add);
    const auto result = wardend::test::RunToEnd(renamed, {}, Env());
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "[ERROR]: Wardend process is running already\n");
}

}  // namespace
