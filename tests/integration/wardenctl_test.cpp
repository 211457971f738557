#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

#include "client/wardend_proxy.h"
#include "tests/integration/daemon_fixture.h"
#include "tests/integration/wardenctl_run.h"
#include "tests/support/record_builders.h"

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
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (std::chrono::steady_clock::now() < deadline) {
            auto types = tools.QueryAllDataType().GetResult();
            if (types.HasValue() && types.Value().dataTypes.count(kPose) != 0 &&
                types.Value().dataTypes.count(kPath) != 0 &&
                types.Value().dataTypes.count(kGear) != 0) {
                return true;
            }
            std::this_thread::sleep_for(50ms);
        }
        return false;
    }
};

struct Case {
    std::vector<std::string> args;
    std::vector<std::string> tableHas;  // texts the table shows
    std::function<void(const json&)> check;
};

bool Contains(const json& array, const json& value) {
    return array.is_array() && std::find(array.begin(), array.end(), value) != array.end();
}

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
        {{"node", "list"},
         {"NODE", "ctlNode", pid},
         [&](const json& j) {
             EXPECT_TRUE(Contains(j["nodeInfos"], json{{"nodeName", "ctlNode"},
                                                       {"pid", getpid()},
                                                       {"serviceInstances", json::array()},
                                                       {"pubEvents", json::array()},
                                                       {"subEvents", json::array()},
                                                       {"methods", json::array()},
                                                       {"fields", json::array()}}))
                 << j;
         }},
        {{"node", "info", "ctlNode"},
         {"publishes", kPose, "methods", "ctlMethod"},
         [&](const json& j) {
             ASSERT_EQ(j["nodeInfos"].size(), 1U) << j;
             EXPECT_TRUE(Contains(j["nodeInfos"][0]["pubEvents"], kPose)) << j;
             EXPECT_TRUE(Contains(j["nodeInfos"][0]["methods"], "ctlMethod")) << j;
         }},
        {{"event", "list"},
         {"EVENT TYPE", kPose, "SOMEIP", "0x4321", "0x8001", "ctlNode", "yes", kPath, "ctlSub"},
         [&](const json& j) {
             bool found = false;
             for (const auto& event : j["eventInfos"]) {
                 if (event["registerInfo"]["eventType"] == kPose) {
                     found = true;
                     EXPECT_EQ(event["pubApp"], "ctlNode");
                     EXPECT_EQ(event["isOnline"], true);
                     EXPECT_EQ(event["registerInfo"]["eventMap_"]["SOMEIP"]["eventId"], kEventId);
                 }
             }
             EXPECT_TRUE(found) << j;
         }},
        {{"event", "info", kPose},
         {"event type", kPose, "event id", "0x8001", "publisher", "ctlNode"},
         [&](const json& j) {
             ASSERT_EQ(j["eventInfos"].size(), 1U) << j;
             EXPECT_EQ(j["eventInfos"][0]["registerInfo"]["appName"], "ctlNode");
         }},
        {{"event", "show", kPose},
         {"publisher", "ctlNode", "ON", R"("Name": "/Norvane/AP/Pose")"},
         [&](const json& j) {
             EXPECT_EQ(j["pubApp"], "ctlNode");
             EXPECT_EQ(j["pubState"], "ON");
             EXPECT_EQ(json::parse(j["dataTypeDescription"].get<std::string>())["Name"], kPose);
         }},
        {{"event", "sub", "--service", "0x4321", "--topic", "ctl/path"},
         {"subscribers", "ctlSub", "online", "no"},
         [&](const json& j) {
             EXPECT_EQ(j["subApps"], json::array({"ctlSub"}));
             EXPECT_EQ(j["registerInfo"]["eventType"], kPath);
             EXPECT_EQ(j["registerInfo"]["eventMap_"]["DDS"]["topicName"], "ctl/path");
         }},
        {{"e2e", "--service", "17185", "--instance-id", "1", "--topic", "ctl/path"},
         {"driver", "DDS", "profile", "5"},
         [&](const json& j) {
             EXPECT_EQ(j["registerInfo"]["eventMap_"]["DDS"]["e2eConfig"]["profile"], 5) << j;
         }},
        {{"method", "list"},
         {"METHOD", "ctlMethod", "SOMEIP", "0x4321", "ctlNode", pid},
         [&](const json& j) {
             ASSERT_EQ(j["methodInfos"].size(), 1U) << j;
             EXPECT_EQ(j["methodInfos"][0]["name"], "ctlMethod");
             EXPECT_EQ(j["methodInfos"][0]["serviceId"], kService);
         }},
        {{"method", "info", "ctlMethod"},
         {"server", "ctlNode", "request types", kPath, "reply types", kGear},
         [&](const json& j) {
             ASSERT_EQ(j["methodInfos"].size(), 1U) << j;
             EXPECT_EQ(j["methodInfos"][0]["inputDatatypes"], json::array({kPath}));
         }},
        {{"method", "type", "ctlMethod"},
         {"request types:", "TYPE_VECTOR", "reply types:", "TYPE_ENUM"},
         [&](const json& j) {
             ASSERT_EQ(j["requestTypes"].size(), 1U) << j;
             EXPECT_EQ(json::parse(j["requestTypes"][0].get<std::string>())["Name"], kPath);
             EXPECT_EQ(json::parse(j["replyTypes"][0].get<std::string>())["Name"], kGear);
         }},
        {{"type", "list"},
         {"DATA TYPE", kPose, "TYPE_STRUCT", kGear, "TYPE_ENUM"},
         [&](const json& j) { EXPECT_TRUE(j["dataTypes"].contains(kPose)) << j; }},
        {{"type", "show", kPath},
         {R"("Element": "/Norvane/AP/Pose")"},
         [&](const json& j) {
             EXPECT_EQ(json::parse(j["dataType"].get<std::string>())["Name"], kPath);
         }},
        {{"type", "refs"},
         {"REFERS TO", kPose, "/Norvane/AP/Point3D"},
         [&](const json& j) {
             EXPECT_TRUE(Contains(j["refList"][kPose], "/Norvane/AP/Point3D")) << j;
         }},
        {with({"latency", "status"}),
         {"ROLE", "publisher", "ctlNode", "on"},
         [&](const json& j) { EXPECT_EQ(j["pubStatus"]["ctlNode"], 1) << j; }},
        {with({"latency", "result", "--period", "600"}),
         {"AVERAGE", "ctlNode", "10", "20", "5"},
         [&](const json& j) {
             EXPECT_EQ(j["results"]["ctlNode"],
                       (json{{"average", 10}, {"maximum", 20}, {"minimum", 5}}))
                 << j;
         }},
        {with({"latency", "off"}),
         {"switched off"},
         [&](const json& j) {
             EXPECT_EQ(j, (json{{"result", 0}}));
         }},
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
        c.check(CtlJson(c.args));
    }
    StopAndExpectCleanExit(*daemon);
}

TEST_F(WardenctlTest, WatchRedrawsUntilInterrupted) {
    auto daemon = StartDaemon();
    ASSERT_TRUE(WaitReady(*daemon)) << daemon->Stderr();
    wardend::test::ChildProcess watch(WARDENCTL_BINARY,
                                      {"node", "list", "--watch", "0.1", "--json"}, Env());
    // Three documents show that it redraws; each line is one document.
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    std::size_t lines = 0;
    while (lines < 3 && std::chrono::steady_clock::now() < deadline) {
        const std::string out = watch.Stdout();
        lines = static_cast<std::size_t>(std::count(out.begin(), out.end(), '\n'));
        std::this_thread::sleep_for(20ms);
    }
    ASSERT_GE(lines, 3U) << watch.Stderr();
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
