#include <gtest/gtest.h>

#include "tools/wardenctl/command_line.h"

namespace {

using vesk::wardenctl::Command;
using vesk::wardenctl::CommandKind;
using vesk::wardenctl::ParseCommandLine;
using vesk::wardenctl::ParseOutcome;
using DriverType = vesk::wardend::DriverType;
using Transport = lumo::vcc::api::types::DriverType;
using namespace std::chrono_literals;

Command Parsed(const std::vector<std::string>& args) {
    const ParseOutcome outcome = ParseCommandLine(args);
    EXPECT_TRUE(outcome.command.has_value()) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    return outcome.command.value_or(Command{});
}

TEST(WardenctlCommandLine, GlobalOptionsWorkBeforeAndAfterTheSubcommand) {
    const std::vector<std::string> global = {"--json", "--driver",  "dds", "--instance",
                                             "7",      "--timeout", "300"};
    std::vector<std::string> before = global;
    before.insert(before.end(), {"event", "info", "/T"});
    std::vector<std::string> after = {"event", "info", "/T"};
    after.insert(after.end(), global.begin(), global.end());
    std::vector<std::string> between = {"event",      "--json", "--driver", "dds",       "info",
                                        "--instance", "7",      "/T",       "--timeout", "300"};
    for (const auto& args : {before, after, between}) {
        const Command command = Parsed(args);
        EXPECT_EQ(command.kind, CommandKind::kEventInfo);
        EXPECT_EQ(command.name, "/T");
        EXPECT_TRUE(command.json);
        EXPECT_EQ(command.driver, Transport::kDds);
        EXPECT_EQ(command.instance, "7");
        EXPECT_EQ(command.timeout, 300ms);
    }
    const Command defaults = Parsed({"node", "list"});
    EXPECT_FALSE(defaults.json);
    EXPECT_EQ(defaults.driver, Transport::kSomeip);
    EXPECT_EQ(defaults.instance, "1");
    EXPECT_EQ(defaults.timeout, 2000ms);
    EXPECT_FALSE(defaults.watch.has_value());
    // --watch takes an optional interval in seconds.
    EXPECT_EQ(Parsed({"node", "list", "--watch"}).watch, 2000ms);
    EXPECT_EQ(Parsed({"event", "list", "--watch", "0.5"}).watch, 500ms);
}

TEST(WardenctlCommandLine, IdsAreDecimalOrHexadecimalAndBecomeTheDaemonsIndexes) {
    const Command command =
        Parsed({"latency", "result", "--service", "0x1F", "--instance-id", "010", "--event-id",
                "65535", "--topic", "t", "--period", "60"});
    EXPECT_EQ(command.key.serviceId, 0x1F);
    EXPECT_EQ(command.key.instanceId, 10) << "a leading zero is not octal";
    EXPECT_EQ(command.key.eventId, 65535);
    EXPECT_EQ(command.key.topic, "t");
    EXPECT_EQ(command.period, 60);
    EXPECT_EQ(Parsed({"e2e", "--service", "1", "--topic", "t"}).key.instanceId, 1);

    // Event keys become the indexes the daemon expects.
    Command sub = Parsed({"event", "sub", "--service", "5", "--topic", "t", "--event-type", "/X"});
    auto index = vesk::wardenctl::SubEventIndex(sub);
    EXPECT_EQ(index.driver, DriverType::DDS);
    EXPECT_EQ(index.topicName, "t");
    EXPECT_EQ(index.eventType, "/X");
    EXPECT_EQ(index.source, DriverType::DDS) << "the event registry answers source 0";

    Command e2e = Parsed({"e2e", "--service", "5", "--instance-id", "2", "--event-id", "9"});
    index = vesk::wardenctl::SubEventIndex(e2e);
    EXPECT_EQ(index.driver, DriverType::SOMEIP);
    EXPECT_EQ(index.serviceId, 5);
    EXPECT_EQ(index.instanceId, 2);
    EXPECT_EQ(index.eventId, 9);
    EXPECT_NE(index.source, DriverType::DDS) << "any other source asks the E2E registry";

    const auto latency = vesk::wardenctl::LatencyIndexOf(
        Parsed({"latency", "on", "--service", "5", "--event-id", "9", "--topic", "t"}).key);
    EXPECT_EQ(latency.drivers, (std::vector<DriverType>{DriverType::DDS, DriverType::SOMEIP}));
    EXPECT_EQ(latency.eventId, 9);
    EXPECT_EQ(latency.topicName, "t");
}

TEST(WardenctlCommandLine, UsageErrorsExitTwoWithTheUsageTextOfTheSubcommand) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, "Usage: wardenctl [OPTIONS] SUBCOMMAND"},
        {{"bogus"}, "Usage: wardenctl [OPTIONS] SUBCOMMAND"},
        {{"node"}, "Usage: wardenctl node [OPTIONS] SUBCOMMAND"},
        {{"node", "info"}, "Usage: wardenctl node info [OPTIONS] NAME"},
        {{"node", "list", "extra"}, "Usage: wardenctl node list"},
        {{"--driver", "tcp", "node", "list"}, "Usage: wardenctl"},
        {{"node", "list", "--timeout", "0"}, "Usage: wardenctl"},
        {{"node", "list", "--watch", "0"}, "Usage: wardenctl node list"},
        {{"event", "info", "/T", "--watch"}, "Usage: wardenctl event info"},
        {{"event", "sub", "--service", "1"}, "Usage: wardenctl event sub"},
        {{"e2e", "--service", "1", "--event-id", "2", "--topic", "t"}, "Usage: wardenctl e2e"},
        {{"latency", "on", "--event-id", "2"}, "Usage: wardenctl latency on"},
        {{"latency", "on", "--service", "0x10000", "--event-id", "2"},
         "Usage: wardenctl latency on"},
        {{"latency", "on", "--service", "-1", "--event-id", "2"}, "Usage: wardenctl latency on"},
        {{"latency", "on", "--service", "0x", "--event-id", "2"}, "Usage: wardenctl latency on"},
        {{"latency", "result", "--service", "1", "--topic", "t", "--period", "0"},
         "Usage: wardenctl latency result"},
    };
    for (const auto& [args, usage] : cases) {
        std::string line;
        for (const auto& arg : args) {
            line += arg + " ";
        }
        SCOPED_TRACE(line);
        const ParseOutcome outcome = ParseCommandLine(args);
        EXPECT_FALSE(outcome.command.has_value());
        EXPECT_EQ(outcome.exitCode, vesk::wardenctl::kExitUsage);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err.rfind("wardenctl: ", 0), 0U) << outcome.err;
        EXPECT_NE(outcome.err.find(usage), std::string::npos) << outcome.err;
    }
}

TEST(WardenctlCommandLine, HelpOnEveryLevelGoesToStandardOutputWithExitZero) {
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"--help"}, {"latency", "--help"}, {"latency", "result", "--help"}, {"e2e", "-h"}}) {
        const ParseOutcome outcome = ParseCommandLine(args);
        EXPECT_FALSE(outcome.command.has_value());
        EXPECT_EQ(outcome.exitCode, vesk::wardenctl::kExitAnswer);
        EXPECT_EQ(outcome.err, "");
        EXPECT_NE(outcome.out.find("Usage: wardenctl"), std::string::npos) << outcome.out;
    }
    EXPECT_NE(ParseCommandLine({"--help"}).out.find("Exit status:"), std::string::npos);
}

}  // namespace
