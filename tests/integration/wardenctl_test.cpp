#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <sstream>

#include <nlohmann/json.hpp>

#include "client/wardend_proxy.h"
#include "tests/integration/daemon_fixture.h"
#include "tests/integration/wardenctl_run.h"
#include "tests/support/record_builders.h"
#include "tests/support/wait.h"

namespace {

using nlohmann::json;
using vesk::wardend::proxy::VESKWardendAppServiceProxy;
using vesk::wardend::proxy::VESKWardendToolsServiceProxy;
using wardend::test::AppRegisterInfoType;
using wardend::test::DriverType;
using wardend::test::RunResult;
using namespace std::chrono_literals;

constexpr std::uint16_t kService = 0x4321;
constexpr std::uint16_t kEventId = 0x8001;
constexpr const char* kPose = "/Norvane/AP/Pose";
constexpr const char* kPath = "/Norvane/AP/Path";
constexpr const char* kGear = "/Norvane/AP/GearState";

// The real daemon with the example .msg files, an application registered from this process over
// SOME/IP, and the real wardenctl asking about it.
class WardenctlTest : public wardend::test::DaemonTest {
protected:
    RunResult Ctl(const std::vector<std::string>& args) const {
        return wardend::test::RunWardenctl(WARDENCTL_BINARY, args, Env());
    }
    json CtlJson(const std::vector<std::string>& args) const {
        return wardend::test::RunWardenctlJson(WARDENCTL_BINARY, args, Env());
    }

    static void Register(VESKWardendAppServiceProxy& app,
                         const vesk::wardend::AppRegisterInfo& info) {
        auto result = app.RegisterAppInfo(info).GetResult();
        ASSERT_TRUE(result.HasValue()) << vesk::wardend::proxy::DescribeError(result.Error());
        ASSERT_EQ(result.Value().result, 0);
    }

    // A node that publishes the pose on SOME/IP and serves a method, a subscriber of the path on
    // DDS with an E2E profile, and a latency switch with one acknowledgement and one result.
    void RegisterApplication(VESKWardendAppServiceProxy& app) {
        const std::int32_t pid = getpid();
        Register(app, wardend::test::NodeApp("ctlNode", pid));

        wardend::test::EventShape pose("ctlNode", kPose, pid, kService);
        pose.eventId = kEventId;
        auto pub = wardend::test::App(AppRegisterInfoType::EVENT, true);
        pub.eventInfo = wardend::test::Event(pose, false, true);
        Register(app, pub);

        wardend::test::EventShape path("ctlSub", kPath, pid, kService);
        path.topic = "ctl/path";
        path.profile = vesk::wardend::E2EProfile::kProfile5;
        auto sub = wardend::test::App(AppRegisterInfoType::EVENT, false);
        sub.eventInfo = wardend::test::Event(path, true, false);
        Register(app, sub);

        auto method = wardend::test::App(AppRegisterInfoType::METHOD, true);
        method.methodInfo = wardend::test::Method(
            wardend::test::MethodShape("ctlNode", "ctlMethod", pid, kService), false, true);
        method.methodInfo.inputDatatypes = {kPath};
        method.methodInfo.replyDatatypes = {kGear};
        Register(app, method);
    }

    void ReportLatency(VESKWardendAppServiceProxy& app) {
        auto info = wardend::test::App(AppRegisterInfoType::LATENCY);
        info.latencyInfo.applicationName = "ctlNode";
        info.latencyInfo.index.drivers = {DriverType::SOMEIP};
        info.latencyInfo.index.serviceId = kService;
        info.latencyInfo.index.instanceId = 1;
        info.latencyInfo.index.eventId = kEventId;
        info.latencyInfo.kind = 0;
        info.latencyInfo.status = {vesk::wardend::LatencyMode::kOn, true, false};
        Register(app, info);
        info.latencyInfo.kind = 1;
        info.latencyInfo.result = {10, 20, 5};
        Register(app, info);
    }

    // The .msg files are read after the registration's answer: wait until they are there.
    static bool WaitForTypes(VESKWardendToolsServiceProxy& tools) {
        return wardend::test::WaitUntil(
            [&] {
                auto types = tools.QueryAllDataType().GetResult();
                return types.HasValue() && types.Value().dataTypes.count(kPose) != 0 &&
                       types.Value().dataTypes.count(kPath) != 0 &&
                       types.Value().dataTypes.count(kGear) != 0;
            },
            10s);
    }
};

struct Case {
    std::vector<std::string> args;
    std::vector<std::string> tableHas;  // texts the table shows
    // JSON pointers into the --json document and their values; a null value: only present.
    std::vector<std::pair<std::string, json>> jsonHas;
};

TEST_F(WardenctlTest, EveryCommandAnswersAsATableAndAsJson) {
    auto daemon = StartDaemon({"-p", WARDEND_SOURCE_DIR "/examples/msg"});
    ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();
    VESKWardendAppServiceProxy app;
    VESKWardendToolsServiceProxy tools;
    ASSERT_TRUE(app.WaitForService(10s));
    RegisterApplication(app);
    ASSERT_TRUE(WaitForTypes(tools));
    const std::vector<std::string> key = {"--service", "0x4321", "--event-id", "0x8001"};
    const auto with = [&key](std::vector<std::string> args) {
        args.insert(args.end(), key.begin(), key.end());
        return args;
    };
    // The switch first, so that the status has an entry for the acknowledgement.
    const RunResult on = Ctl(with({"latency", "on"}));
    ASSERT_EQ(on.exitCode, 0) << on.err;
    EXPECT_NE(on.out.find("switched on"), std::string::npos);
    ReportLatency(app);
    const std::string pid = std::to_string(getpid());

    const std::vector<Case> cases = {
        // DDS records come before SOME/IP ones, nodes and map keys in name order.
        {{"node", "list"},
         {"NODE", "ctlNode", pid},
         {{"/nodeInfos/0", json{{"nodeName", "ctlNode"},
                                {"pid", getpid()},
                                {"serviceInstances", json::array()},
                                {"pubEvents", json::array()},
                                {"subEvents", json::array()},
                                {"methods", json::array()},
                                {"fields", json::array()}}}}},
        {{"node", "info", "ctlNode"},
         {"publishes", kPose, "methods", "ctlMethod"},
         {{"/nodeInfos/0/pubEvents", json::array({kPose})},
          {"/nodeInfos/0/methods", json::array({"ctlMethod"})}}},
        {{"event", "list"},
         {"EVENT TYPE", kPose, "SOMEIP", "0x4321", "0x8001", "ctlNode", "yes", kPath, "ctlSub"},
         {{"/eventInfos/1/pubApp", "ctlNode"},
          {"/eventInfos/1/isOnline", true},
          {"/eventInfos/1/registerInfo/eventMap_/SOMEIP/eventId", kEventId}}},
        {{"event", "info", kPose},
         {"event type", kPose, "event id", "0x8001", "publisher", "ctlNode"},
         {{"/eventInfos/0/registerInfo/appName", "ctlNode"}}},
        {{"event", "show", kPose},
         {"publisher", "ctlNode", "ON", R"("Name": "/Norvane/AP/Pose")"},
         {{"/pubApp", "ctlNode"}, {"/pubState", "ON"}, {"/dataTypeDescription", nullptr}}},
        {{"event", "sub", "--service", "0x4321", "--topic", "ctl/path"},
         {"subscribers", "ctlSub", "online", "no"},
         {{"/subApps", json::array({"ctlSub"})},
          {"/registerInfo/eventType", kPath},
          {"/registerInfo/eventMap_/DDS/topicName", "ctl/path"}}},
        {{"e2e", "--service", "17185", "--instance-id", "1", "--topic", "ctl/path"},
         {"driver", "DDS", "profile", "5"},
         {{"/registerInfo/eventMap_/DDS/e2eConfig/profile", 5}}},
        {{"method", "list"},
         {"METHOD", "ctlMethod", "SOMEIP", "0x4321", "ctlNode", pid},
         {{"/methodInfos/0/name", "ctlMethod"}, {"/methodInfos/0/serviceId", kService}}},
        {{"method", "info", "ctlMethod"},
         {"server", "ctlNode", "request types", kPath, "reply types", kGear},
         {{"/methodInfos/0/inputDatatypes", json::array({kPath})}}},
        {{"method", "type", "ctlMethod"},
         {"request types:", "TYPE_VECTOR", "reply types:", "TYPE_ENUM"},
         {{"/requestTypes/0", nullptr}, {"/replyTypes/0", nullptr}}},
        {{"type", "list"},
         {"DATA TYPE", kPose, "TYPE_STRUCT", kGear, "TYPE_ENUM"},
         {{"/dataTypes/~1Norvane~1AP~1Pose", nullptr}}},
        {{"type", "show", kPath}, {R"("Element": "/Norvane/AP/Pose")"}, {{"/dataType", nullptr}}},
        {{"type", "refs"},
         {"REFERS TO", kPose, "/Norvane/AP/Point3D"},
         {{"/refList/~1Norvane~1AP~1Pose", nullptr}}},
        {with({"latency", "status"}),
         {"ROLE", "publisher", "ctlNode", "on"},
         {{"/pubStatus/ctlNode", 1}}},
        {with({"latency", "result", "--period", "600"}),
         {"AVERAGE", "ctlNode", "10", "20", "5"},
         {{"/results/ctlNode", json{{"average", 10}, {"maximum", 20}, {"minimum", 5}}}}},
        {with({"latency", "off"}), {"switched off"}, {{"", json{{"result", 0}}}}},
    };
    for (const auto& c : cases) {
        std::string command;
        for (const auto& arg : c.args) {
            command += arg + " ";
        }
        SCOPED_TRACE(command);
        const RunResult table = Ctl(c.args);
        EXPECT_EQ(table.exitCode, 0) << table.err;
        EXPECT_EQ(table.err, "");
        for (const auto& text : c.tableHas) {
            EXPECT_NE(table.out.find(text), std::string::npos) << text << " not in\n" << table.out;
        }
        const json document = CtlJson(c.args);
        for (const auto& [pointer, value] : c.jsonHas) {
            const json::json_pointer at(pointer);
            ASSERT_TRUE(document.contains(at)) << pointer << " not in " << document;
            if (!value.is_null()) {
                EXPECT_EQ(document.at(at), value) << pointer;
            }
        }
    }
    StopAndExpectCleanExit(*daemon);
}

TEST_F(WardenctlTest, WatchRedrawsUntilInterrupted) {
    auto daemon = StartDaemon();
    ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();
    wardend::test::ChildProcess watch(WARDENCTL_BINARY,
                                      {"node", "list", "--watch", "0.1", "--json"}, Env());
    // Three documents show that it redraws; each line is one document.
    ASSERT_TRUE(wardend::test::WaitUntil(
        [&] {
            const std::string out = watch.Stdout();
            return std::count(out.begin(), out.end(), '\n') >= 3;
        },
        20s))
        << watch.Stderr();
    ASSERT_TRUE(watch.Signal(SIGINT));
    EXPECT_EQ(watch.WaitExit(10s), 0);
    std::istringstream out(watch.Stdout());
    for (std::string line; std::getline(out, line);) {
        EXPECT_EQ(json::parse(line, nullptr, false), (json{{"nodeInfos", json::array()}}));
    }
    StopAndExpectCleanExit(*daemon);
}

// No daemon runs in these: the lock keeps the others' daemons away.
TEST_F(WardenctlTest, NoDaemonExitsOneWithOneLineWithinTheTimeout) {
    for (const auto& driver : {"someip", "dds"}) {
        SCOPED_TRACE(driver);
        const RunResult run = wardend::test::RunToEnd(
            WARDENCTL_BINARY, {"--driver", driver, "--timeout", "500", "event", "list"}, Env(),
            std::chrono::seconds(10));
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err.rfind("wardenctl: ", 0), 0U) << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    }
}

TEST_F(WardenctlTest, BadUsageExitsTwoWithTheUsageText) {
    for (const auto& args : std::vector<std::vector<std::string>>{
             {}, {"node", "info"}, {"--timeout", "soon", "node", "list"}}) {
        const RunResult run = Ctl(args);
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err.rfind("wardenctl: ", 0), 0U) << run.err;
        EXPECT_NE(run.err.find("Usage: wardenctl"), std::string::npos) << run.err;
    }
}

}  // namespace
