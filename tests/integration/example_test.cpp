#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <thread>

#include "client/wardend_proxy.h"
#include "tests/integration/daemon_fixture.h"

namespace {

using vesk::wardend::DriverType;
using vesk::wardend::LatencyIndex;
using vesk::wardend::LatencyMode;
using vesk::wardend::proxy::VESKWardendToolsServiceProxy;
using wardend::test::ChildProcess;
using namespace std::chrono_literals;

constexpr auto kSettle = 15s;

// The daemon with the example types, the sample application, and a tool's view over SOME/IP.
class ExampleTest : public wardend::test::DaemonTest {
protected:
    void SetUp() override {
        DaemonTest::SetUp();
        setenv("VESK_CONFIG", (dir_.Path() + "/vesk.json").c_str(), 1);
        daemon_ = StartDaemon({"-p", WARDEND_SOURCE_DIR "/examples/msg"});
        ASSERT_TRUE(WaitReady(*daemon_)) << daemon_->Stderr();
        example_ = std::make_unique<ChildProcess>(
            WARDEND_EXAMPLE_BINARY,
            std::vector<std::string>{"--node", "example", "--report", "200"}, Env());
        ASSERT_TRUE(WaitForStdout(*example_, "node example registered with wardend"))
            << example_->Stdout() << example_->Stderr();
    }
    void TearDown() override {
        example_.reset();
        unsetenv("VESK_CONFIG");
    }

    static bool WaitForStdout(const ChildProcess& child, const std::string& text,
                              std::size_t times = 1) {
        return Eventually([&] {
            const auto out = child.Stdout();
            std::size_t found = 0;
            for (auto at = out.find(text); at != std::string::npos; at = out.find(text, at + 1)) {
                ++found;
            }
            return found >= times;
        });
    }

    static bool Eventually(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + kSettle;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(100ms);
        }
        return true;
    }

    // The example's node as the daemon reports it, or nothing.
    std::optional<vesk::wardend::NodeInfo> ExampleNode() {
        auto result = tools_.QueryNodeInfo("ALL").GetResult();
        if (!result.HasValue()) {
            return std::nullopt;
        }
        for (const auto& node : result.Value().nodeInfos) {
            if (node.nodeName == "example") {
                return node;
            }
        }
        return std::nullopt;
    }

    // The published event /Norvane/AP/Pose, on both drivers.
    static LatencyIndex PoseIndex() {
        LatencyIndex index;
        index.drivers = {DriverType::SOMEIP, DriverType::DDS};
        index.serviceId = 0x1234;
        index.instanceId = 1;
        index.topicName = "example/pose";
        index.eventId = 0x8001;
        return index;
    }

    std::unique_ptr<ChildProcess> daemon_;
    std::unique_ptr<ChildProcess> example_;
    VESKWardendToolsServiceProxy tools_;
};

TEST_F(ExampleTest, ItsNodeIsListedWithWhatItDeclaredAndGoesWithSigkill) {
    const auto listed = ExampleNode();
    ASSERT_TRUE(listed.has_value());
    EXPECT_EQ(listed->pid, example_->Pid());
    // The lists come with a query by name only.
    auto detail = tools_.QueryNodeInfo("example").GetResult();
    ASSERT_TRUE(detail.HasValue());
    ASSERT_EQ(detail.Value().nodeInfos.size(), 1U);
    const auto* node = &detail.Value().nodeInfos[0];
    auto has = [](const std::vector<std::string>& names, const std::string& name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    EXPECT_TRUE(has(node->pubEvents, "/Norvane/AP/Pose"));
    EXPECT_TRUE(has(node->pubEvents, "/Norvane/AP/Trajectory"));
    EXPECT_TRUE(has(node->subEvents, "/Norvane/AP/VehicleSpeed"));
    EXPECT_FALSE(node->methods.empty());
    EXPECT_FALSE(node->fields.empty());

    ASSERT_TRUE(example_->Signal(SIGKILL));
    (void)example_->WaitExit(5s);
    EXPECT_TRUE(Eventually([&] { return !ExampleNode().has_value(); }))
        << "a killed application's node is still listed";
    StopAndExpectCleanExit(*daemon_);
}

TEST_F(ExampleTest, ALatencySwitchIsAcknowledgedReportedAndSwitchedOff) {
    vesk::wardend::LatencySwitch on;
    on.mode = LatencyMode::kOn;
    on.index = PoseIndex();
    // The example subscribes asynchronously: switch until it acknowledges.
    ASSERT_TRUE(Eventually([&] {
        (void)tools_.SwitchLatencyMode(on).GetResult();
        return WaitForStdout(*example_, "latency mode 1 acknowledged");
    })) << example_->Stdout();

    auto status = tools_.QueryLatencyStatus(PoseIndex()).GetResult();
    ASSERT_TRUE(status.HasValue());
    ASSERT_EQ(status.Value().pubStatus.count("example"), 1U);
    EXPECT_EQ(status.Value().pubStatus.at("example"), LatencyMode::kOn);

    vesk::wardend::LatencyQueryInfo query;
    query.period = 60;
    query.index = PoseIndex();
    std::optional<vesk::wardend::LatencyResult> measured;
    ASSERT_TRUE(Eventually([&] {
        auto result = tools_.QueryLatencyResult(query).GetResult();
        if (result.HasValue() && result.Value().results.count("example") != 0) {
            measured = result.Value().results.at("example");
        }
        return measured.has_value();
    })) << "no latency result of the example";
    EXPECT_LE(measured->minimum, measured->average);
    EXPECT_LE(measured->average, measured->maximum);

    vesk::wardend::LatencySwitch off = on;
    off.mode = LatencyMode::kOff;
    ASSERT_TRUE(tools_.SwitchLatencyMode(off).GetResult().HasValue());
    EXPECT_TRUE(Eventually([&] {
        auto after = tools_.QueryLatencyStatus(PoseIndex()).GetResult();
        return after.HasValue() && after.Value().pubStatus.count("example") == 1 &&
               after.Value().pubStatus.at("example") == LatencyMode::kOff;
    }));
    StopAndExpectCleanExit(*daemon_);
}

TEST_F(ExampleTest, ItRegistersAgainWhenTheDaemonRestarts) {
    ASSERT_TRUE(daemon_->Signal(SIGKILL));
    (void)daemon_->WaitExit(5s);
    daemon_ = StartDaemon({"-p", WARDEND_SOURCE_DIR "/examples/msg"});
    ASSERT_TRUE(WaitReady(*daemon_)) << daemon_->Stderr();

    EXPECT_TRUE(WaitForStdout(*example_, "node example registered with wardend", 2))
        << example_->Stdout() << example_->Stderr();
    EXPECT_TRUE(Eventually([&] { return ExampleNode().has_value(); }));

    // A clean stop of the example unregisters its node.
    ASSERT_TRUE(example_->Signal(SIGTERM));
    EXPECT_EQ(example_->WaitExit(10s), 0);
    EXPECT_FALSE(ExampleNode().has_value());
    StopAndExpectCleanExit(*daemon_);
}

}  // namespace
