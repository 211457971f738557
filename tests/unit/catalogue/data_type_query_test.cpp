#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "catalogue/msg_file_store.h"
#include "registry/event_info_manage.h"
#include "registry/method_info_manage.h"
#include "tests/support/record_builders.h"
#include "tests/unit/catalogue/catalogue_fixture.h"

namespace {

using vesk::wardend::EventInfoManage;
using vesk::wardend::EventRegisterInfo;
using vesk::wardend::EventShow;
using vesk::wardend::MethodInfoManage;
using vesk::wardend::MethodRegisterInfo;
using vesk::wardend::ResolveDataType;
using wardend::test::Alias;
using wardend::test::CatalogueTest;
using wardend::test::EventShape;
using wardend::test::LogLevel;
using wardend::test::MethodShape;
using wardend::test::Struct;
using Texts = std::vector<std::string>;

class DataTypeQueryTest : public CatalogueTest {
protected:
    // An event on DDS; a topic of its own per event type keeps tests apart in the process-wide
    // registry.
    static EventRegisterInfo Event(const std::string& eventType, const std::string& app,
                                   const std::string& dataType) {
        EventShape shape{app, eventType, ::getpid(), 0x1234};
        shape.topic = "topic/" + eventType;
        EventRegisterInfo info = wardend::test::Event(shape, true, false);
        info.text = dataType;
        return info;
    }
};

using ResolveDataTypeTest = CatalogueTest;

TEST_F(ResolveDataTypeTest, FollowsAliasesToTheEndOrToTheLastLinkFound) {
    const std::map<std::string, std::string> msgs = {
        {"A", R"({"Type": "TYPE_REFERENCE", "Definition": "B"})"},
        {"B", R"({"Type": "TYPE_REFERENCE", "Definition": "C"})"},
        {"C", R"({"Type": "TYPE_STRUCT"})"},
        {"Broken", R"({"Type": "TYPE_REFERENCE", "Definition": "Gone"})"},
        {"NoDefinition", R"({"Type": "TYPE_REFERENCE"})"},
        {"Empty", ""},
        {"NotJson", "{TYPE_REFERENCE"},
    };
    const struct {
        const char* name;
        std::string text;
        const char* warned;  // the name in the warning, nullptr for none
    } rows[] = {
        {"A", msgs.at("C"), nullptr},
        {"C", msgs.at("C"), nullptr},
        {"Broken", msgs.at("Broken"), "Gone"},
        {"NoDefinition", msgs.at("NoDefinition"), ""},
        {"Empty", "", nullptr},
        {"NotJson", msgs.at("NotJson"), nullptr},
        {"Unknown", "", "Unknown"},
        {"", "", ""},
    };
    for (const auto& row : rows) {
        ClearLog();
        EXPECT_EQ(ResolveDataType(row.name, msgs), row.text) << row.name;
        const auto records = sink_->Records();
        if (row.warned == nullptr) {
            EXPECT_TRUE(records.empty()) << row.name;
        } else {
            ASSERT_EQ(records.size(), 1U) << row.name;
            EXPECT_EQ(records[0].text,
                      std::string("Wardend can't find data type message ") + row.warned);
        }
    }
}

TEST_F(DataTypeQueryTest, EmptyCatalogueAnswersEmptyAndWarns) {
    EXPECT_EQ(store_->QueryDataType("X"), "");
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend can't find data type message X"));
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Datatype X size:0"));
    EXPECT_TRUE(store_->QueryAllDataType().empty());
    EXPECT_TRUE(store_->QueryDataTypeRefList().empty());
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Wardend all datatype size is 0"));
}

TEST_F(DataTypeQueryTest, EventShowGivesTypePublisherAndState) {
    userDir_.WriteFile("ShowType.msg", Alias("ShowType", "ShowTarget"));
    userDir_.WriteFile("ShowTarget.msg", Struct("ShowTarget", {}));
    store_->LoadDataType("ShowType");
    // A publisher gone offline keeps its name; the subscriber keeps the record listed.
    auto& events = EventInfoManage::GetInstance();
    ASSERT_TRUE(events.RegisterEventInfo(Event("show/off", "pubApp", "ShowType"), true));
    ASSERT_TRUE(events.RegisterEventInfo(Event("show/off", "subApp", "ShowType"), false));
    ASSERT_TRUE(events.UnregisterEventInfo(Event("show/off", "pubApp", "ShowType"), true));
    EXPECT_EQ(store_->QueryEventType("show/off"),
              (EventShow{Struct("ShowTarget", {}), "pubApp", "OFF"}));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend query event type"));

    ClearLog();
    EXPECT_EQ(store_->QueryEventType("show/unknown"), EventShow{});
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend can't find data type message ")) << LogDump();
}

TEST_F(DataTypeQueryTest, MethodTypesKeepTheirPositions) {
    userDir_.WriteFile("In2.msg", Struct("In2", {}));
    userDir_.WriteFile("Out.msg", Alias("Out", "In2"));
    store_->LoadDataType("In2");
    store_->LoadDataType("Out");

    MethodRegisterInfo info = wardend::test::Method(
        MethodShape{"server", "QueryMethodTypeTest/Method", ::getpid(), 0x4321}, true, false);
    info.inputDatatypes = {"In1", "In2"};
    info.replyDatatypes = {"Out"};
    info.methodOutputDatatype = "In2";
    ASSERT_TRUE(MethodInfoManage::GetInstance().RegisterMethodInfo(info, true));

    const auto types = store_->QueryMethodType(info.name);
    EXPECT_EQ(types.requestTypes, (Texts{"", Struct("In2", {})}));
    EXPECT_EQ(types.replyTypes, (Texts{Struct("In2", {})}));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend can't find data type message In1"));
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Wardend begin to load replyDatatypes"));

    const auto none = store_->QueryMethodType("QueryMethodTypeTest/Unknown");
    EXPECT_TRUE(none.requestTypes.empty());
    EXPECT_TRUE(none.replyTypes.empty());
}

}  // namespace
