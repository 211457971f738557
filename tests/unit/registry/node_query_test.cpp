#include <gtest/gtest.h>
#include <unistd.h>

#include "registry/event_info_manage.h"
#include "registry/field_info_manage.h"
#include "registry/method_info_manage.h"
#include "registry/node_info_manage.h"
#include "tests/support/process.h"
#include "tests/support/record_builders.h"

namespace {

using namespace vesk::wardend;  // NOLINT(google-build-using-namespace): the records under test
using wardend::test::Event;
using wardend::test::EventShape;
using wardend::test::Field;
using wardend::test::LogLevel;
using wardend::test::MakeDeadPid;
using wardend::test::Method;
using wardend::test::MethodShape;

class NodeQueryTest : public wardend::test::RegistryTest {
protected:
    static const NodeInfo* Row(const std::vector<NodeInfo>& rows, const String& name) {
        for (const auto& row : rows) {
            if (row.nodeName == name) {
                return &row;
            }
        }
        return nullptr;
    }

    NodeInfoManage& sut_ = NodeInfoManage::GetInstance();
};

TEST_F(NodeQueryTest, ANodeAnswersWithEveryListAndUniqueServiceInstances) {
    auto& events = EventInfoManage::GetInstance();
    EventShape event{"fullNode", "PubType", self_, service_};
    event.shortName = "/svc/a";
    ASSERT_TRUE(events.RegisterEventInfo(Event(event, true, false), true));
    event.type = "SubType";
    event.instanceId = 2;
    event.shortName = "/svc/b";
    ASSERT_TRUE(events.RegisterEventInfo(Event(event, false, true), false));
    MethodShape method{"fullNode", "Method", self_, service_};
    method.shortName = "/svc/a";
    ASSERT_TRUE(
        MethodInfoManage::GetInstance().RegisterMethodInfo(Method(method, true, false), true));
    const String fieldType = "NodeField" + svc_;
    ASSERT_TRUE(FieldInfoManage::GetInstance().RegisterFieldInfo(
        Field("fullNode", fieldType, self_, 1, {{DriverType::SOMEIP, "/svc/c"}}), true));

    const auto rows = sut_.QueryNodeInfo("fullNode");
    ASSERT_EQ(rows.size(), 1U);
    const NodeInfo& node = rows[0];
    EXPECT_EQ(node.pid, self_);
    EXPECT_EQ(node.pubEvents, std::vector<String>{"PubType"});
    EXPECT_EQ(node.subEvents, std::vector<String>{"SubType"});
    EXPECT_EQ(node.methods, std::vector<String>{"Method"});
    EXPECT_EQ(node.fields, std::vector<String>{fieldType});
    EXPECT_EQ(node.serviceInstances,
              (std::vector<String>{"/svc/a[DDS]", "/svc/b[SOME/IP]", "/svc/c[SOME/IP]"}));
    EXPECT_EQ(LogCount(LogLevel::kInfo, "Node fullNode add serviceInstance: /svc/a[DDS]"), 1U);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Node fullNode add feild: " + fieldType));
}

TEST_F(NodeQueryTest, AllGivesLiveNamesOnlyAndADeadNodeIsGoneUntilItComesBack) {
    ASSERT_TRUE(sut_.UpdateNodeInfo("ALL", self_, true));
    const EventShape shape{"ALL", "AllType", self_, service_};
    ASSERT_TRUE(EventInfoManage::GetInstance().RegisterEventInfo(Event(shape, true, false), true));
    ASSERT_TRUE(sut_.UpdateNodeInfo("phoenix", MakeDeadPid(), true));

    const auto rows = sut_.QueryNodeInfo("ALL");
    const NodeInfo* all = Row(rows, "ALL");
    ASSERT_NE(all, nullptr);
    EXPECT_EQ(all->pid, self_);
    EXPECT_TRUE(all->pubEvents.empty());
    EXPECT_TRUE(all->serviceInstances.empty());
    EXPECT_EQ(Row(rows, "phoenix"), nullptr);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Node name is ALL pid is " + std::to_string(self_)));

    // A dead node is gone until its name comes back with a new pid.
    EXPECT_TRUE(sut_.QueryNodeInfo("phoenix").empty());
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend node phoenix is gone"));
    ASSERT_TRUE(sut_.UpdateNodeInfo("phoenix", self_, true));
    EXPECT_EQ(sut_.QueryNodeInfo("phoenix").size(), 1U);
    EXPECT_NE(Row(sut_.QueryNodeInfo("ALL"), "phoenix"), nullptr);

    EXPECT_TRUE(sut_.QueryNodeInfo("neverSeen").empty());
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend node neverSeen is not existed"));
}

// The field registry has no liveness check: only the pid test hides the old server.
TEST_F(NodeQueryTest, AFieldOfADeadServerIsNotShownForANewProcessOfTheName) {
    const String fieldType = "DeadField" + svc_;
    ASSERT_TRUE(FieldInfoManage::GetInstance().RegisterFieldInfo(
        Field("reborn", fieldType, MakeDeadPid(), 1, {{DriverType::DDS, "/f"}}), true));
    ASSERT_TRUE(sut_.UpdateNodeInfo("reborn", self_, true));
    const auto rows = sut_.QueryNodeInfo("reborn");
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_TRUE(rows[0].fields.empty());
    EXPECT_TRUE(FieldInfoManage::GetInstance().DdsFields().at(fieldType).at(1).isOnline);
}

}  // namespace
