#include <gtest/gtest.h>

#include <functional>
#include <sstream>

#include "platform/error/com_error_domain.h"
#include "tools/wardenctl/record_json.h"
#include "tools/wardenctl/runner.h"
#include "tools/wardenctl/views.h"

namespace {

using namespace vesk::wardend;
using namespace vesk::wardenctl;
using nlohmann::json;

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(WardenctlTable, ColumnsAlignToTheWidestCellWithoutTrailingBlanks) {
    const Table table{{"NAME", "PID"}, {{"a", "1"}, {"longer", "22"}, {"b", ""}}};
    EXPECT_EQ(FormatTable(table),
              "NAME    PID\n"
              "a       1\n"
              "longer  22\n"
              "b\n");
}

TEST(WardenctlTable, ControlCharactersAreEscapedAndUtf8CountsByCharacter) {
    const Table table{{}, {{"\x1b[2Jx", "v"}, {"\xc3\xa4\xc3\xa4", "w"}}};
    EXPECT_EQ(FormatTable(table),
              "\\x1B[2Jx  v\n"
              "\xc3\xa4\xc3\xa4        w\n");
}

// Every command says so in one line when the answer is empty.
struct EmptyCase {
    const char* what;
    std::function<View()> view;
    const char* line;
};

TEST(WardenctlViews, EmptyAnswersSayWhatIsMissing) {
    const std::vector<EmptyCase> cases = {
        {"node list", [] { return NodeListView({}); }, "No live node is registered.\n"},
        {"node info", [] { return NodeInfoView({}, "n"); },
         "Node n is not registered, or its process has ended.\n"},
        {"event list", [] { return EventListView({}); }, "No event is registered.\n"},
        {"event info", [] { return EventInfoView({}, "/T"); },
         "Event type /T has no live publisher or subscriber.\n"},
        {"event show", [] { return EventShowView({}, "/T"); },
         "Event type /T is not registered.\n"},
        {"event sub", [] { return EventSubView({}); }, "No answer: "},
        {"e2e", [] { return E2eView({}); }, "No live subscriber declared an E2E"},
        {"method list", [] { return MethodListView({}); },
         "No method with a live server is registered.\n"},
        {"method info", [] { return MethodInfoView({}, "m"); }, "Method m has no live server.\n"},
        {"method type", [] { return MethodTypeView({}, "m"); }, "Method m has no live server"},
        {"type list", [] { return TypeListView({}); }, "The daemon has read no data type.\n"},
        {"type show", [] { return TypeShowView({}, "/T"); },
         "Data type /T is not known to the daemon.\n"},
        {"type refs", [] { return TypeRefsView({}); }, "The daemon has read no data type.\n"},
        {"latency status", [] { return LatencyStatusView({}); },
         "No application of this event is known.\n"},
        {"latency result", [] { return LatencyResultView({}, 7); },
         "No application reported a result in the last 7 seconds.\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const View view = c.view();
        EXPECT_EQ(view.text.rfind(c.line, 0), 0U) << view.text;
        EXPECT_EQ(view.exitCode, kExitAnswer);
    }
}

// The document of an empty answer is its empty output record: lists as [], maps as {}.
TEST(WardenctlDocuments, EmptyAnswersKeepTheirMembers) {
    const json none = json::array();
    const std::vector<std::pair<json, json>> cases = {
        {QueryNodeInfoOutput{}, {{"nodeInfos", none}}},
        {QueryEventInfoOutput{}, {{"eventInfos", none}}},
        {QueryEventShowOutput{}, {{"dataTypeDescription", ""}, {"pubApp", ""}, {"pubState", ""}}},
        {QueryMethodInfoOutput{}, {{"methodInfos", none}}},
        {QueryMethodTypeOutput{}, {{"requestTypes", none}, {"replyTypes", none}}},
        {QueryAllDataTypeOutput{}, {{"dataTypes", json::object()}}},
        {QueryDataTypeOutput{}, {{"dataType", ""}}},
        {QueryDataTypeRefListOutput{}, {{"refList", json::object()}}},
        {QueryLatencyStatusOutput{},
         {{"pubStatus", json::object()}, {"subStatus", json::object()}}},
        {QueryLatencyResultOutput{}, {{"results", json::object()}}},
    };
    for (const auto& [document, expected] : cases) {
        EXPECT_EQ(document, expected);
    }
}

EventInfoWithPubSub SomeipEvent() {
    EventInfoWithPubSub event;
    event.registerInfo.eventType = "/A/Pose";
    event.registerInfo.text = "/A/Pose";
    event.registerInfo.appName = "pub";
    event.registerInfo.pid = 42;
    auto& someip = event.registerInfo.eventMap_[DriverType::SOMEIP].someip;
    someip.serviceId = 0x1234;
    someip.instanceId = 1;
    someip.eventId = 0x8001;
    someip.e2eConfig.profile = E2EProfile::kProfile4;
    event.pubApp = "pub";
    event.isOnline = true;
    event.subApps = {"s1", "s2"};
    return event;
}

EventInfoWithPubSub DdsEvent() {
    EventInfoWithPubSub event;
    event.registerInfo.eventType = "/A/Path";
    auto& dds = event.registerInfo.eventMap_[DriverType::DDS].dds;
    dds.serviceId = 0xE002;
    dds.instanceId = 3;
    dds.topicName = "path/topic";
    dds.e2eConfig.profile = E2EProfile::kNone;
    dds.e2eConfig.dataIdList = {7, 8};
    return event;
}

TEST(WardenctlViews, EventListAndDocumentShowEachRecordOnItsOwnDriver) {
    QueryEventInfoOutput output;
    output.eventInfos = {DdsEvent(), SomeipEvent()};
    const View view = EventListView(output);
    EXPECT_EQ(view.text,
              "EVENT TYPE  DRIVER  SERVICE  INSTANCE  EVENT/TOPIC  PUBLISHER  ONLINE  SUBSCRIBERS\n"
              "/A/Path     DDS     0xE002   0x0003    path/topic   -          no      -\n"
              "/A/Pose     SOMEIP  0x1234   0x0001    0x8001       pub        yes     s1, s2\n");

    // The document keys the map by driver name, with only that driver's member.
    const json document = output;
    const json& dds = document["eventInfos"][0]["registerInfo"]["eventMap_"];
    ASSERT_EQ(dds.size(), 1U) << dds;
    EXPECT_EQ(dds["DDS"]["topicName"], "path/topic");
    EXPECT_EQ(dds["DDS"]["e2eConfig"]["profile"], 255);
    EXPECT_EQ(dds["DDS"]["e2eConfig"]["dataIdList"], json::array({7, 8}));
    const json& someip = document["eventInfos"][1];
    EXPECT_EQ(someip["registerInfo"]["eventMap_"]["SOMEIP"]["eventId"], 0x8001);
    EXPECT_EQ(someip["subApps"], json::array({"s1", "s2"}));
    EXPECT_EQ(someip["isOnline"], true);
    // A driver value the record does not name is written as its number.
    MethodRegisterInfo method;
    method.methodMap_[static_cast<DriverType>(7)].someip.methodId = 3;
    EXPECT_EQ(json(method)["methodMap_"]["7"]["methodId"], 3);
}

TEST(WardenctlViews, InfoBlocksListEveryItemOnARowOfItsOwn) {
    QueryNodeInfoOutput nodes;
    NodeInfo node;
    node.nodeName = "app";
    node.pid = 12;
    node.pubEvents = {"/A", "/B"};
    nodes.nodeInfos = {node};
    EXPECT_EQ(NodeInfoView(nodes, "app").text,
              "node               app\n"
              "pid                12\n"
              "service instances  -\n"
              "publishes          /A\n"
              "                   /B\n"
              "subscribes         -\n"
              "methods            -\n"
              "fields             -\n");

    QueryEventInfoOutput events;
    events.eventInfos = {SomeipEvent(), DdsEvent()};
    const std::string text = EventInfoView(events, "x").text;
    EXPECT_TRUE(Has(text, "event id       0x8001\n")) << text;
    EXPECT_TRUE(Has(text, "e2e profile    4\n")) << text;
    EXPECT_TRUE(Has(text, "subscribers    s1\n               s2\n")) << text;
    EXPECT_TRUE(Has(text, "\n\nevent type     /A/Path\n")) << "a blank line between records\n"
                                                           << text;
    EXPECT_TRUE(Has(text, "topic          path/topic\n")) << text;
    EXPECT_TRUE(Has(text, "e2e profile    none\n")) << text;
}

TEST(WardenctlViews, MethodsShowTheirIdOrTopicsAndTheirTypes) {
    MethodRegisterInfo someip;
    someip.name = "calc";
    someip.appName = "server";
    someip.pid = 9;
    someip.serviceId = 0x10;
    someip.instanceId = 2;
    someip.methodMap_[DriverType::SOMEIP].someip.methodId = 3;
    someip.inputDatatypes = {"/In"};
    someip.errorDomains = {{5, "Calc"}};
    MethodRegisterInfo dds = someip;
    dds.methodMap_.clear();
    dds.methodMap_[DriverType::DDS].dds.requestTopicName = "req";
    dds.methodMap_[DriverType::DDS].dds.replyTopicName = "rep";
    QueryMethodInfoOutput output;
    output.methodInfos = {dds, someip};
    EXPECT_EQ(MethodListView(output).text,
              "METHOD  DRIVER  SERVICE  INSTANCE  METHOD/TOPICS  SERVER  PID\n"
              "calc    DDS     0x0010   0x0002    req / rep      server  9\n"
              "calc    SOMEIP  0x0010   0x0002    0x0003         server  9\n");
    const std::string info = MethodInfoView(output, "calc").text;
    EXPECT_TRUE(Has(info, "topics         req / rep\n")) << info;
    EXPECT_TRUE(Has(info, "method id      0x0003\n")) << info;
    EXPECT_TRUE(Has(info, "request types  /In\n")) << info;
    EXPECT_TRUE(Has(info, "error domains  5 Calc\n")) << info;
}

TEST(WardenctlViews, DescriptionsArePrettyPrintedAndOtherTextShownAsItIs) {
    QueryMethodTypeOutput types;
    types.requestTypes = {R"({"Name":"/In","Type":"TYPE_STRUCT"})", ""};
    types.replyTypes = {"not json\x07"};
    EXPECT_EQ(MethodTypeView(types, "m").text,
              "request types:\n"
              "{\n  \"Name\": \"/In\",\n  \"Type\": \"TYPE_STRUCT\"\n}\n"
              "(not known to the daemon)\n"
              "reply types:\n"
              "not json\\x07\n");

    QueryAllDataTypeOutput all;
    all.dataTypes = {{"/A", R"({"Type":"TYPE_ENUM"})"}, {"/B", ""}, {"/C", "[1]"}};
    EXPECT_EQ(TypeListView(all).text,
              "DATA TYPE  KIND\n"
              "/A         TYPE_ENUM\n"
              "/B         (no .msg file)\n"
              "/C         (not a type description)\n");

    QueryEventShowOutput show{R"({"Name":"/A"})", "pub", "OFF"};
    EXPECT_EQ(EventShowView(show, "/A").text,
              "publisher  pub\nstate      OFF\ndata type:\n{\n  \"Name\": \"/A\"\n}\n");
}

TEST(WardenctlViews, ReferenceListsPutEachReferenceOnItsOwnRow) {
    QueryDataTypeRefListOutput refs;
    refs.refList = {{"/Root", {"/Root", "/Leaf"}}, {"/Alone", {}}};
    EXPECT_EQ(TypeRefsView(refs).text,
              "DATA TYPE  REFERS TO\n"
              "/Alone     -\n"
              "/Root      /Root\n"
              "           /Leaf\n");
}

TEST(WardenctlViews, LatencyModesShowAsOnOffOrTheirNumber) {
    QueryLatencyStatusOutput status;
    status.pubStatus = {{"pub", LatencyMode::kOn}};
    status.subStatus = {{"sub", LatencyMode::kOff}, {"odd", static_cast<LatencyMode>(7)}};
    EXPECT_EQ(LatencyStatusView(status).text,
              "ROLE        APPLICATION  MODE\n"
              "publisher   pub          on\n"
              "subscriber  odd          7\n"
              "subscriber  sub          off\n");
    EXPECT_EQ(json(status)["subStatus"]["odd"], 7);
}

TEST(WardenctlViews, ANonZeroSwitchResultIsAnAnswerWithExitThree) {
    EXPECT_EQ(LatencySwitchView({0}, true).exitCode, kExitAnswer);
    EXPECT_EQ(LatencySwitchView({0}, false).text, "Latency measurement switched off.\n");
    const View refused = LatencySwitchView({1}, true);
    EXPECT_EQ(refused.exitCode, kExitRefused);
    EXPECT_EQ(refused.text, "The daemon refused the switch: result 1.\n");
    EXPECT_EQ(ExitCodeOf(SwitchLatencyModeOutput{1}), kExitRefused);
    EXPECT_EQ(json(SwitchLatencyModeOutput{1}), (json{{"result", 1}}));
}

TEST(WardenctlOutput, JsonIsOneLineAndSurvivesTextThatIsNotUtf8) {
    QueryDataTypeOutput output{"bad \xff byte"};
    std::ostringstream out;
    WriteDocument(out, output);
    EXPECT_EQ(out.str().find('\n'), out.str().size() - 1);
    const json document = json::parse(out.str());
    EXPECT_EQ(document["dataType"], "bad \xef\xbf\xbd byte");
}

// Lists written record by record read as the whole document would: none, one, several, and
// text that is not UTF-8.
TEST(WardenctlOutput, ListsWrittenRecordByRecordAreTheWholeDocument) {
    EventInfoWithPubSub odd = SomeipEvent();
    odd.pubApp = "bad \xff byte";
    QueryEventInfoOutput events;
    QueryMethodInfoOutput methods;
    QueryNodeInfoOutput nodes;
    const auto same = [](const auto& output) {
        std::ostringstream out;
        WriteDocument(out, output);
        EXPECT_EQ(out.str(), RenderJson(output));
    };
    for (int round = 0; round < 3; ++round) {
        same(events);
        same(methods);
        same(nodes);
        events.eventInfos.push_back(round == 1 ? odd : DdsEvent());
        methods.methodInfos.emplace_back().name = "m" + std::to_string(round);
        nodes.nodeInfos.emplace_back().nodeName = "n" + std::to_string(round);
    }
}

TEST(WardenctlOutput, ACallErrorIsOneLineOnStandardErrorAndExitOne) {
    Command command;
    command.instance = "4";
    command.timeout = std::chrono::milliseconds(250);
    std::ostringstream err;
    EXPECT_EQ(ReportCallError(lumo::vcc::api::types::MakeErrorCode(
                                  lumo::vcc::api::types::ComErrc::kServiceNotAvailable, 0),
                              command, err),
              kExitUnreachable);
    EXPECT_EQ(err.str(), "wardenctl: daemon not reachable (SOMEIP, instance 4, timeout 250 ms)\n");
}

}  // namespace
