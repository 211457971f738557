// The sample application against the real daemon, seen through the real wardenctl.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <thread>

#include "tests/integration/daemon_fixture.h"
#include "tests/integration/wardenctl_run.h"
#include "tests/support/wait.h"

namespace {

using nlohmann::json;
using wardend::test::ChildProcess;
using wardend::test::RunResult;
using wardend::test::RunWardenctl;
using wardend::test::RunWardenctlJson;
using wardend::test::WaitUntil;
using namespace std::chrono_literals;

constexpr auto kSettle = 15s;
// The example's published /Norvane/AP/Pose on both drivers.
const std::vector<std::string> kPose = {"--service", "0x1234",  "--event-id",
                                        "0x8001",    "--topic", "example/pose"};

class ExampleTest : public wardend::test::DaemonTest {
protected:
    void SetUp() override {
        DaemonTest::SetUp();
        daemon_ = StartDaemon({"-p", WARDEND_SOURCE_DIR "/examples/msg"});
        ASSERT_TRUE(WaitReady(*daemon_)) << daemon_->Stderr();
        example_ = std::make_unique<ChildProcess>(
            WARDEND_EXAMPLE_BINARY, std::vector<std::string>{"--report", "200"}, Env());
        ASSERT_TRUE(WaitForStdout("node example registered with wardend"))
            << example_->Stdout() << example_->Stderr();
    }

    // Whether the example has printed text at least `times` times.
    bool Printed(const std::string& text, std::size_t times = 1) const {
        const auto out = example_->Stdout();
        std::size_t found = 0;
        for (auto at = out.find(text); at != std::string::npos; at = out.find(text, at + 1)) {
            ++found;
        }
        return found >= times;
    }
    bool WaitForStdout(const std::string& text, std::size_t times = 1) const {
        return WaitUntil([&] { return Printed(text, times); }, kSettle);
    }

    RunResult Ctl(const std::vector<std::string>& args) const {
        return RunWardenctl(WARDENCTL_BINARY, args, Env());
    }
    json CtlJson(const std::vector<std::string>& args) const {
        return RunWardenctlJson(WARDENCTL_BINARY, args, Env());
    }

    static std::vector<std::string> With(std::vector<std::string> args,
                                         const std::vector<std::string>& more) {
        args.insert(args.end(), more.begin(), more.end());
        return args;
    }

    // The example's row of `node list`, or null.
    json ListedExample() const {
        const json list = CtlJson({"node", "list"});
        if (!list.is_object()) {
            return json();
        }
        for (const auto& node : list.value("nodeInfos", json::array())) {
            if (node.value("nodeName", "") == "example") {
                return node;
            }
        }
        return json();
    }

    std::unique_ptr<ChildProcess> daemon_;
    std::unique_ptr<ChildProcess> example_;
};

TEST_F(ExampleTest, WardenctlSeesWhatItDeclaredAndItsNodeGoesWithSigkill) {
    EXPECT_EQ(ListedExample().value("pid", 0), example_->Pid());
    const RunResult table = Ctl({"node", "list"});
    EXPECT_NE(table.out.find("example"), std::string::npos) << table.out;

    const json node = CtlJson({"node", "info", "example"})["nodeInfos"][0];
    for (const auto& [list, name] : {std::pair{"pubEvents", "/Norvane/AP/Pose"},
                                     std::pair{"pubEvents", "/Norvane/AP/Trajectory"},
                                     std::pair{"subEvents", "/Norvane/AP/VehicleSpeed"},
                                     std::pair{"methods", ""}, std::pair{"fields", ""}}) {
        const auto& names = node[list];
        EXPECT_TRUE(*name == '\0' ? !names.empty()
                                  : std::find(names.begin(), names.end(), name) != names.end())
            << list << " " << name << " in " << node;
    }
    // Its types were read from examples/msg.
    const json types = CtlJson({"type", "list"});
    EXPECT_TRUE(types["dataTypes"].contains("/Norvane/AP/Trajectory")) << types;

    ASSERT_TRUE(example_->Signal(SIGKILL));
    (void)example_->WaitExit(5s);
    EXPECT_TRUE(WaitUntil([&] { return ListedExample().is_null(); }, kSettle))
        << "a killed application's node is still listed";
    StopAndExpectCleanExit(*daemon_);
}

TEST_F(ExampleTest, LatencyOnReachesItAndItsAcknowledgementAndReportsShow) {
    // The example subscribes asynchronously: switch until it acknowledges.
    ASSERT_TRUE(WaitUntil(
        [&] {
            EXPECT_EQ(Ctl(With({"latency", "on"}, kPose)).exitCode, 0);
            return WaitUntil([&] { return Printed("latency mode 1 acknowledged"); }, 1s);
        },
        kSettle))
        << example_->Stdout();

    const json status = CtlJson(With({"latency", "status"}, kPose));
    EXPECT_EQ(status["pubStatus"]["example"], 1) << status;
    const RunResult table = Ctl(With({"latency", "status"}, kPose));
    EXPECT_NE(table.out.find("example"), std::string::npos) << table.out;

    json result;
    ASSERT_TRUE(WaitUntil(
        [&] {
            result =
                CtlJson(With({"latency", "result", "--period", "60"}, kPose))["results"]["example"];
            return !result.is_null();
        },
        kSettle))
        << "no latency result of the example";
    EXPECT_LE(result["minimum"], result["average"]);
    EXPECT_LE(result["average"], result["maximum"]);

    ASSERT_EQ(Ctl(With({"latency", "off"}, kPose)).exitCode, 0);
    EXPECT_TRUE(WaitUntil(
        [&] {
            return CtlJson(With({"latency", "status"}, kPose))["pubStatus"]["example"] == 0;
        },
        kSettle));
    StopAndExpectCleanExit(*daemon_);
}

TEST_F(ExampleTest, ItRegistersAgainWhenTheDaemonRestarts) {
    ASSERT_TRUE(daemon_->Signal(SIGKILL));
    (void)daemon_->WaitExit(5s);
    daemon_ = StartDaemon({"-p", WARDEND_SOURCE_DIR "/examples/msg"});
    ASSERT_TRUE(WaitReady(*daemon_)) << daemon_->Stderr();

    EXPECT_TRUE(WaitForStdout("node example registered with wardend", 2))
        << example_->Stdout() << example_->Stderr();
    EXPECT_TRUE(WaitUntil([&] { return !ListedExample().is_null(); }, kSettle));

    // A clean stop of the example unregisters its node.
    ASSERT_TRUE(example_->Signal(SIGTERM));
    EXPECT_EQ(example_->WaitExit(10s), 0);
    EXPECT_TRUE(ListedExample().is_null());
    StopAndExpectCleanExit(*daemon_);
}

}  // namespace
