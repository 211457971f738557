#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "client/wardend_proxy.h"
#include "daemon/drivers.h"
#include "daemon/wardend_server.h"
#include "platform/error/com_error_domain.h"
#include "tests/support/memory_log.h"
#include "tests/support/record_builders.h"
#include "tests/support/temp_dir.h"

namespace wardend::test {
namespace {

using vesk::wardend::AppRegisterInfo;
using vesk::wardend::AppRegisterInfoType;
using vesk::wardend::LatencySwitch;
using vesk::wardend::proxy::ProxyOptions;
using vesk::wardend::proxy::VESKWardendAppServiceProxy;
using vesk::wardend::proxy::VESKWardendToolsServiceProxy;
using namespace std::chrono_literals;

const ProxyOptions kInProcess{lumo::vcc::api::types::DriverType::kProloc, "1", 5s};

// Both services built and offered in this process, reached through the in-process driver.
class WholeStackTest : public MemoryLogTest {
protected:
    static void SetUpTestSuite() {
        // In-process only: the sockets of the default drivers belong to the daemon's own tests.
        config_ = new TempDir();
        config_->WriteFile("vesk.json", R"({"Services": {"App": {"drivers": ["proloc"]},
                                                         "Tools": {"drivers": ["proloc"]}}})");
        setenv("VESK_CONFIG", (config_->Path() + "/vesk.json").c_str(), 1);
        vesk::wardend::RegisterDrivers();
        server_ = new vesk::wardend::WardendServer();
        ASSERT_TRUE(server_->StartService());
    }
    static void TearDownTestSuite() {
        server_->StopService();
        delete server_;
        vesk::wardend::UnregisterDrivers();
        unsetenv("VESK_CONFIG");
        delete config_;
    }

    template <typename Output>
    static Output Answer(ara::core::Future<Output> future) {
        auto result = future.GetResult();
        EXPECT_TRUE(result.HasValue()) << (result.HasValue() ? "" : result.Error().Message());
        return result.HasValue() ? result.Value() : Output{};
    }

    std::uint16_t Register(AppRegisterInfoType type,
                           const std::function<void(AppRegisterInfo&)>& fill, bool isPub = true) {
        AppRegisterInfo info;
        info.infoType = type;
        info.isPub = isPub;
        fill(info);
        return Answer(app_.RegisterAppInfo(info)).result;
    }

    static TempDir* config_;
    static vesk::wardend::WardendServer* server_;
    VESKWardendAppServiceProxy app_{kInProcess};
    VESKWardendToolsServiceProxy tools_{kInProcess};
    const std::uint16_t service_ = FreshServiceId();
    const std::int32_t self_ = getpid();
};

TempDir* WholeStackTest::config_ = nullptr;
vesk::wardend::WardendServer* WholeStackTest::server_ = nullptr;

TEST_F(WholeStackTest, EveryRegistrationIsAnsweredAndEveryQuerySeesIt) {
    const std::string node = "stackNode" + std::to_string(service_);
    const std::string type = "/Stack/Pose" + std::to_string(service_);
    const std::string method = "/Stack/Plan" + std::to_string(service_);
    EventShape shape(node, type, self_, service_);

    EXPECT_EQ(Answer(app_.RegisterAppInfo(NodeApp(node, self_))).result, 0);
    EXPECT_EQ(Register(AppRegisterInfoType::EVENT,
                       [&](AppRegisterInfo& i) { i.eventInfo = Event(shape, false, true); }),
              0);
    EventShape subscriber("stackSub" + std::to_string(service_), type, self_, service_);
    EXPECT_EQ(Register(
                  AppRegisterInfoType::EVENT,
                  [&](AppRegisterInfo& i) { i.eventInfo = Event(subscriber, false, true); }, false),
              0);
    EXPECT_EQ(Register(AppRegisterInfoType::METHOD,
                       [&](AppRegisterInfo& i) {
                           i.methodInfo =
                               Method(MethodShape(node, method, self_, service_), false, true);
                       }),
              0);
    EXPECT_EQ(Register(AppRegisterInfoType::FIELD,
                       [&](AppRegisterInfo& i) {
                           i.fieldInfo = Field(node, "/Stack/Mode", self_, 1,
                                               {{vesk::wardend::DriverType::SOMEIP, "mode"}});
                       }),
              0);
    EXPECT_EQ(Register(AppRegisterInfoType::LISTENER, [](AppRegisterInfo&) {}), 0);

    const auto events = Answer(tools_.QueryEventInfo(type)).eventInfos;
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].pubApp, node);
    EXPECT_EQ(events[0].subApps, std::vector<std::string>{subscriber.app});
    EXPECT_EQ(Answer(tools_.QueryEventShow(type)).pubApp, node);
    EXPECT_FALSE(Answer(tools_.QueryMethodInfo(method)).methodInfos.empty());
    const auto nodes = Answer(tools_.QueryNodeInfo(node)).nodeInfos;
    ASSERT_EQ(nodes.size(), 1U);
    EXPECT_EQ(nodes[0].pid, self_);
    EXPECT_NE(std::find(nodes[0].pubEvents.begin(), nodes[0].pubEvents.end(), type),
              nodes[0].pubEvents.end());

    auto index =
        SubEventIndex(service_, vesk::wardend::DriverType::SOMEIP, {}, type, 1, shape.eventId);
    index.source = vesk::wardend::DriverType::DDS;
    // What these answer is the registries' and the catalogue's tests' concern (no .msg file of
    // these types exists); here each one makes the round trip.
    (void)Answer(tools_.QuerySubNodeEventInfo(index));
    (void)Answer(tools_.QueryAllDataType());
    (void)Answer(tools_.QueryDataType(type));
    (void)Answer(tools_.QueryDataTypeRefList());
    (void)Answer(tools_.QueryMethodType(method));
}

TEST_F(WholeStackTest, ALatencySwitchReachesASubscriberWhoseAcknowledgementShows) {
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<LatencySwitch> seen;
    ASSERT_TRUE(app_.SubscribeLatencySwitch([&](const LatencySwitch& sample) {
        std::lock_guard<std::mutex> lock(mutex);
        seen.push_back(sample);
        arrived.notify_all();
    }));

    LatencySwitch latencySwitch;
    latencySwitch.mode = vesk::wardend::LatencyMode::kOn;
    latencySwitch.index.drivers = {vesk::wardend::DriverType::SOMEIP};
    latencySwitch.index.serviceId = service_;
    latencySwitch.index.instanceId = 1;
    latencySwitch.index.eventId = 7;
    EXPECT_EQ(Answer(tools_.SwitchLatencyMode(latencySwitch)).result, 0);
    {
        std::unique_lock<std::mutex> lock(mutex);
        ASSERT_TRUE(arrived.wait_for(lock, 10s, [&] { return !seen.empty(); }));
        EXPECT_EQ(seen[0].mode, latencySwitch.mode);
        EXPECT_EQ(seen[0].index.serviceId, service_);
    }

    EXPECT_EQ(Register(AppRegisterInfoType::LATENCY,
                       [&](AppRegisterInfo& i) {
                           i.latencyInfo.kind = 0;
                           i.latencyInfo.applicationName = "stackApp";
                           i.latencyInfo.index = latencySwitch.index;
                           i.latencyInfo.status.mode = vesk::wardend::LatencyMode::kOn;
                           i.latencyInfo.status.isPub = true;
                       }),
              0);
    const auto status = Answer(tools_.QueryLatencyStatus(latencySwitch.index));
    EXPECT_FALSE(status.pubStatus.empty()) << "the acknowledgement is not in the status";
    app_.UnsubscribeLatencySwitch();
}

TEST_F(WholeStackTest, TrafficControlRefusesPastTheCountOfAWindow) {
    // QueryNodeInfo lets 500 calls through in each second. The calls are all sent before any
    // answer is awaited, so that even a slow build sends them within one window.
    std::vector<ara::core::Future<vesk::wardend::QueryNodeInfoOutput>> calls;
    calls.reserve(600);
    for (int i = 0; i < 600; ++i) {
        calls.push_back(tools_.QueryNodeInfo("/None"));
    }
    int refused = 0;
    for (auto& call : calls) {
        auto result = call.GetResult();
        refused += static_cast<int>(
            !result.HasValue() &&
            result.Error().Value() ==
                static_cast<int>(lumo::vcc::api::types::ComErrc::kMaxSamplesExceeded));
    }
    EXPECT_GE(refused, 100);
}

TEST_F(WholeStackTest, TheDaemonFoundHandlerRegistersAtOnceAndAgainAfterARestart) {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::uint16_t> results;
    VESKWardendAppServiceProxy app(kInProcess);
    // The handler waits for the answer of its own call, as an application's would.
    ASSERT_TRUE(app.SetDaemonFoundHandler([&] {
        auto answer = app.RegisterAppInfo(NodeApp("foundNode", self_)).GetResult();
        std::lock_guard<std::mutex> lock(mutex);
        results.push_back(answer.HasValue() ? answer.Value().result : 0xFFFF);
        changed.notify_all();
    }));
    auto waitFor = [&](std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, 10s, [&] { return results.size() >= count; });
    };
    ASSERT_TRUE(waitFor(1));

    server_->StopService();
    delete server_;
    server_ = new vesk::wardend::WardendServer();
    ASSERT_TRUE(server_->StartService());
    ASSERT_TRUE(waitFor(2));
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(results, (std::vector<std::uint16_t>{0, 0}));
}

TEST_F(WholeStackTest, AServiceThatIsNotOfferedGivesTheComError) {
    VESKWardendToolsServiceProxy elsewhere({lumo::vcc::api::types::DriverType::kProloc, "2", 1s});
    auto result = elsewhere.QueryNodeInfo("ALL").GetResult();
    ASSERT_FALSE(result.HasValue());
    EXPECT_EQ(result.Error().Value(),
              static_cast<int>(lumo::vcc::api::types::ComErrc::kServiceNotAvailable));
    EXPECT_EQ(vesk::wardend::proxy::DescribeError(result.Error()), "daemon not reachable");
}

}  // namespace
}  // namespace wardend::test
