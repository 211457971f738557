#include <gtest/gtest.h>

#include "tests/unit/service/service_fixture.h"

namespace wardend::test {
namespace {

using ToolsSkeletonTest = ServiceTest;

TEST_F(ToolsSkeletonTest, EachQueryLogsItsFinishedLineEvenForUnknownNames) {
    struct Row {
        std::function<void(WardendToolsSkeleton&)> call;
        const char* line;
    };
    const Row rows[] = {
        {[](auto& t) { (void)t.QueryAllDataType().get(); }, "Wardend query all datatype finished"},
        {[](auto& t) { EXPECT_EQ(t.QueryDataType("/No/Such").get().dataType, ""); },
         "Wardend query datatype finished"},
        {[](auto& t) { (void)t.QueryDataTypeRefList().get(); },
         "Wardend query datatype list finished"},
        {[](auto& t) { EXPECT_TRUE(t.QueryEventInfo("NoSuchEvent").get().eventInfos.empty()); },
         "Wardend query event info finished"},
        {[](auto& t) {
             const auto show = t.QueryEventShow("NoSuchEvent").get();
             EXPECT_EQ(show.pubApp, "");
             EXPECT_EQ(show.pubState, "");
         },
         "Wardend query event show finished"},
        {[](auto& t) { EXPECT_TRUE(t.QueryMethodInfo("NoSuchMethod").get().methodInfos.empty()); },
         "Wardend query method info finished"},
        {[](auto& t) { EXPECT_TRUE(t.QueryNodeInfo("NoSuchNode").get().nodeInfos.empty()); },
         "Wardend query node info finished"},
    };
    for (const Row& row : rows) {
        ClearLog();
        row.call(*tools_);
        EXPECT_EQ(LogCount(LogLevel::kInfo, row.line), 1U) << row.line;
    }
}

TEST_F(ToolsSkeletonTest, QueryMethodTypeLogsTheEventShowLine) {
    AppRegisterInfo info = MethodRegistration("typesApp", "TypedMethod", 0x5000, true);
    info.methodInfo.inputDatatypes = {"/Norvane/AP/Point3D", "/Not/In/Catalogue"};
    info.methodInfo.replyDatatypes = {"/Norvane/AP/Pose"};
    ASSERT_EQ(Register(info), 0);
    DrainReader();
    ClearLog();
    const auto types = tools_->QueryMethodType("TypedMethod").get();
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend query event show finished"));
    ASSERT_EQ(types.requestTypes.size(), 2U);
    EXPECT_FALSE(types.requestTypes[0].empty());
    EXPECT_EQ(types.requestTypes[1], "");  // keeps its position
    ASSERT_EQ(types.replyTypes.size(), 1U);
    EXPECT_NE(types.replyTypes[0].find("TYPE_STRUCT"), String::npos);
}

// The event branch answers for an event without an online publisher whose type differs from
// the one asked about; the E2E branch logs nothing here.
TEST_F(ToolsSkeletonTest, SubNodeQueryLogsOnlyOnTheEventBranch) {
    ASSERT_EQ(Register(EventRegistration("lonelySub", "SubQueryEvent", 0x5200, false)), 0);
    QuerySubEventInfoIndex index =
        SubEventIndex(0x5200, DriverType::DDS, "SubQueryEventTopic", "AnotherType");
    index.source = DriverType::DDS;
    ClearLog();
    const auto fromEvents = tools_->QuerySubNodeEventInfo(index).get();
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend query sub event info finished"));
    EXPECT_EQ(fromEvents.subApps, std::vector<String>{"lonelySub"});
    EXPECT_FALSE(fromEvents.isOnline);

    index.source = DriverType::SOMEIP;
    ClearLog();
    (void)tools_->QuerySubNodeEventInfo(index).get();
    EXPECT_FALSE(Logged(LogLevel::kInfo, "Wardend query sub event info finished"));
}

}  // namespace
}  // namespace wardend::test
