#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "client/wardend_proxy.h"
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
    // Another instance than the default one, so that the configured instance must reach the DDS
    // driver; that a daemon leaves other instances' requests alone is the driver tests' concern.
    void SetUp() override {
        DaemonTest::SetUp();
        std::ifstream example(std::string(WARDEND_SOURCE_DIR) + "/examples/config/dds.json");
        auto config = nlohmann::json::parse(example);
        config["Wardend"]["instanceId"] = "3";
        config["Services"]["dds"]["domain"] = domain_.Id();
        // The test's loopback setup, with a discovery tag of its own, comes from CYCLONEDDS_URI.
        config["Services"]["dds"].erase("cycloneConfig");
        dir_.WriteFile("vesk.json", config.dump());
    }

    std::unique_ptr<wardend::test::ChildProcess> Start() {
        WaitNoDaemon();
        auto env = domain_.ChildEnv();
        env.push_back("VESK_CONFIG=" + dir_.Path() + "/vesk.json");
        return std::make_unique<wardend::test::ChildProcess>(WARDEND_BINARY,
                                                             std::vector<std::string>{}, env);
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
    auto daemon = Start();
    ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();

    VESKWardendAppServiceProxy app(Dds("3"));
    VESKWardendToolsServiceProxy tools(Dds("3"));
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

}  // namespace
