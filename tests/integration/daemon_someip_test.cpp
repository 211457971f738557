#include <gtest/gtest.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>

#include "client/wardend_proxy.h"
#include "tests/integration/daemon_fixture.h"

namespace {

using vesk::wardend::proxy::VESKWardendAppServiceProxy;
using vesk::wardend::proxy::VESKWardendToolsServiceProxy;
using namespace std::chrono_literals;

// The real daemon with its built-in configuration, reached over SOME/IP from this process.
class DaemonSomeipTest : public wardend::test::DaemonTest {
protected:
    template <typename Output>
    static Output Answer(ara::core::Future<Output> future) {
        auto result = future.GetResult();
        EXPECT_TRUE(result.HasValue())
            << (result.HasValue() ? "" : vesk::wardend::proxy::DescribeError(result.Error()));
        return result.HasValue() ? result.Value() : Output{};
    }
};

TEST_F(DaemonSomeipTest, EveryMethodAnswersAndTheLatencySwitchReachesASubscriber) {
    auto daemon = StartDaemon();
    ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();
    VESKWardendAppServiceProxy app;
    VESKWardendToolsServiceProxy tools;
    ASSERT_TRUE(app.WaitForService(10s));

    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<vesk::wardend::LatencySwitch> seen;
    ASSERT_TRUE(app.SubscribeLatencySwitch([&](const vesk::wardend::LatencySwitch& sample) {
        std::lock_guard<std::mutex> lock(mutex);
        seen.push_back(sample);
        arrived.notify_all();
    }));

    vesk::wardend::AppRegisterInfo info;
    info.infoType = vesk::wardend::AppRegisterInfoType::NODE;
    info.nodeInfo.pid = getpid();
    info.nodeInfo.nodeName = "someipNode";
    info.nodeInfo.registerState.isRegister = true;
    EXPECT_EQ(Answer(app.RegisterAppInfo(info)).result, 0);
    const auto nodes = Answer(tools.QueryNodeInfo("someipNode")).nodeInfos;
    ASSERT_EQ(nodes.size(), 1U);
    EXPECT_EQ(nodes[0].pid, getpid());
    (void)Answer(tools.QueryAllDataType());
    (void)Answer(tools.QueryDataType("/None"));
    (void)Answer(tools.QueryDataTypeRefList());
    (void)Answer(tools.QueryEventInfo("ALL"));
    (void)Answer(tools.QueryEventShow("/None"));
    (void)Answer(tools.QueryLatencyResult({}));
    (void)Answer(tools.QueryLatencyStatus({}));
    (void)Answer(tools.QueryMethodInfo("ALL"));
    (void)Answer(tools.QueryMethodType("/None"));
    (void)Answer(tools.QuerySubNodeEventInfo({}));

    // The subscription is acknowledged asynchronously: switch until a sample arrives.
    vesk::wardend::LatencySwitch latencySwitch;
    latencySwitch.mode = vesk::wardend::LatencyMode::kOn;
    latencySwitch.index.serviceId = 0x4242;
    std::unique_lock<std::mutex> lock(mutex);
    for (int i = 0; i < 50 && seen.empty(); ++i) {
        lock.unlock();
        EXPECT_EQ(Answer(tools.SwitchLatencyMode(latencySwitch)).result, 0);
        lock.lock();
        arrived.wait_for(lock, 200ms, [&] { return !seen.empty(); });
    }
    ASSERT_FALSE(seen.empty()) << "no latency switch reached the SOME/IP subscriber";
    EXPECT_EQ(seen[0].index.serviceId, 0x4242);
    lock.unlock();
    app.UnsubscribeLatencySwitch();
    StopAndExpectCleanExit(*daemon);
}

TEST_F(DaemonSomeipTest, NoDaemonGivesServiceNotAvailableWithinTheTimeout) {
    VESKWardendToolsServiceProxy tools({lumo::vcc::api::types::DriverType::kSomeip, "1", 500ms});
    const auto start = std::chrono::steady_clock::now();
    auto result = tools.QueryNodeInfo("ALL").GetResult();
    ASSERT_FALSE(result.HasValue());
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    EXPECT_NE(vesk::wardend::proxy::DescribeError(result.Error()), "");
}

}  // namespace
