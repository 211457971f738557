#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <nlohmann/json.hpp>

#include "client/wardend_proxy.h"
#include "platform/driver/dds/dds_driver.h"
#include "tests/integration/daemon_fixture.h"
#include "tests/support/dds_domain.h"
#include "tests/support/record_builders.h"

namespace {

using vesk::wardend::proxy::ProxyOptions;
using vesk::wardend::proxy::VESKWardendAppServiceProxy;
using vesk::wardend::proxy::VESKWardendToolsServiceProxy;
using namespace std::chrono_literals;

// The real daemon started with examples/config/dds.json, on a loopback domain of the test's own,
// reached from this process over DDS.
class DaemonDdsTest : public wardend::test::DaemonTest {
protected:
    void SetUp() override {
        DaemonTest::SetUp();
        WriteExampleConfig("1", "vesk.json");
    }

    void WriteExampleConfig(const std::string& instance, const std::string& name) {
        std::ifstream example(std::string(WARDEND_SOURCE_DIR) + "/examples/config/dds.json");
        auto config = nlohmann::json::parse(example);
        config["Wardend"]["instanceId"] = instance;
        config["Services"]["dds"]["domain"] = domain_.Id();
        // The test's loopback setup, with a discovery tag of its own, comes from CYCLONEDDS_URI.
        config["Services"]["dds"].erase("cycloneConfig");
        if (instance != "1") {
            // A second daemon on the same host shares its network: the SOME/IP ports are the
            // first one's.
            for (const char* service : {"App", "Tools"}) {
                config["Services"][service]["drivers"] = {"proloc", "dds"};
            }
        }
        dir_.WriteFile(name, config.dump());
    }

    std::unique_ptr<wardend::test::ChildProcess> Start(const std::vector<std::string>& command,
                                                       const std::string& configName) {
        if (command[0] == WARDEND_BINARY) {
            WaitNoDaemon();  // the second daemon, in a namespace of its own, runs beside the first
        }
        auto env = domain_.ChildEnv();
        env.push_back("VESK_CONFIG=" + dir_.Path() + "/" + configName);
        return std::make_unique<wardend::test::ChildProcess>(
            command[0], std::vector<std::string>(command.begin() + 1, command.end()), env);
    }

    static ProxyOptions Dds(const std::string& instance) {
        return {lumo::vcc::api::types::DriverType::kDds, instance, 10s};
    }

    template <typename Output>
    static bool Answers(ara::core::Future<Output> future) {
        auto result = future.GetResult();
        if (!result.HasValue()) {
            ADD_FAILURE() << vesk::wardend::proxy::DescribeError(result.Error());
        }
        return result.HasValue();
    }

    wardend::test::DdsTestDomain domain_;
};

TEST_F(DaemonDdsTest, EveryMethodAnswersOverDdsAndTheTopicsAreOnTheDomain) {
    auto daemon = Start({WARDEND_BINARY}, "vesk.json");
    ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();

    VESKWardendAppServiceProxy app(Dds("1"));
    VESKWardendToolsServiceProxy tools(Dds("1"));
    auto registered = app.RegisterAppInfo(wardend::test::NodeApp("ddsNode", getpid())).GetResult();
    ASSERT_TRUE(registered.HasValue()) << vesk::wardend::proxy::DescribeError(registered.Error());
    EXPECT_EQ(registered.Value().result, 0);

    wardend::test::ExpectEveryQueryAnswers(tools);
    EXPECT_TRUE(Answers(tools.SwitchLatencyMode({})));
    auto nodes = tools.QueryNodeInfo("ddsNode").GetResult();
    ASSERT_TRUE(nodes.HasValue());
    ASSERT_EQ(nodes.Value().nodeInfos.size(), 1U);
    EXPECT_EQ(nodes.Value().nodeInfos[0].pid, getpid());

    const std::set<std::string> expected{
        "wardend/App/RegisterAppInfo/Request", "wardend/App/RegisterAppInfo/Reply",
        "wardend/App/LatencySwitch", "wardend/Tools/QueryNodeInfo/Request",
        "wardend/Tools/SwitchLatencyMode/Reply"};
    const auto seen = domain_.WaitForTopics(expected, 10s);
    for (const auto& topic : expected) {
        EXPECT_EQ(seen.count(topic), 1U) << topic;
    }
    StopAndExpectCleanExit(*daemon);
}

// The second daemon runs in a PID namespace of its own, where it is the only wardend.
TEST_F(DaemonDdsTest, TwoDaemonsOnOneDomainAnswerOnlyTheirOwnRequests) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "a PID namespace for the second daemon needs root";
    }
    WriteExampleConfig("2", "second.json");
    // The first counts every wardend of the machine, the second's namespace included: it starts
    // first.
    auto first = Start({WARDEND_BINARY}, "vesk.json");
    ASSERT_TRUE(WaitReady(*first)) << first->Stderr();
    auto second = Start(
        {"/usr/bin/unshare", "--pid", "--fork", "--mount-proc", "--kill-child", WARDEND_BINARY},
        "second.json");
    ASSERT_TRUE(WaitReady(*second)) << second->Stderr();

    VESKWardendAppServiceProxy toSecond(Dds("2"));
    // The second daemon sees the processes of its namespace only: pid 1 there is itself.
    ASSERT_TRUE(Answers(toSecond.RegisterAppInfo(wardend::test::NodeApp("secondOnly", 1))));

    VESKWardendToolsServiceProxy firstTools(Dds("1"));
    VESKWardendToolsServiceProxy secondTools(Dds("2"));
    auto fromFirst = firstTools.QueryNodeInfo("secondOnly").GetResult();
    auto fromSecond = secondTools.QueryNodeInfo("secondOnly").GetResult();
    ASSERT_TRUE(fromFirst.HasValue());
    ASSERT_TRUE(fromSecond.HasValue());
    EXPECT_TRUE(fromFirst.Value().nodeInfos.empty());
    EXPECT_EQ(fromSecond.Value().nodeInfos.size(), 1U);

    const auto daemons = lumo::driver::dds::DdsDriver().ListDaemons(domain_.Id(), 2s);
    std::set<std::string> instances;
    for (const auto& daemon : daemons) {
        instances.insert(daemon.instanceId);
    }
    EXPECT_EQ(instances, (std::set<std::string>{"1", "2"}));

    // unshare waits for the daemon and exits with its code; the signal goes to the daemon.
    std::ifstream children("/proc/" + std::to_string(second->Pid()) + "/task/" +
                           std::to_string(second->Pid()) + "/children");
    pid_t daemonPid = 0;
    ASSERT_TRUE(children >> daemonPid);
    ASSERT_EQ(kill(daemonPid, SIGTERM), 0);
    EXPECT_EQ(second->WaitExit(10s), 0);
    StopAndExpectCleanExit(*first);
}

}  // namespace
