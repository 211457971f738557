#include <gtest/gtest.h>
#include <unistd.h>

#include "registry/event_info_manage.h"
#include "registry/field_info_manage.h"
#include "registry/method_info_manage.h"
#include "registry/node_info_manage.h"
#include "tests/support/memory_log.h"
#include "tests/support/process.h"
#include "tests/unit/registry/registry_builders.h"

namespace {

using namespace vesk::wardend;  // NOLINT(google-build-using-namespace): the records under test
using wardend::test::Event;
using wardend::test::EventSpec;
using wardend::test::Field;
using wardend::test::FreshServiceId;
using wardend::test::LogLevel;
using wardend::test::MakeDeadPid;
using wardend::test::MemoryLogTest;
using wardend::test::Method;
using wardend::test::MethodSpec;

class NodeQueryTest : public MemoryLogTest {
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
    const std::uint16_t service_ = FreshServiceId();
    const std::int32_t self_ = getpid();
};

TEST_F(NodeQueryTest, ANodeAnswersWithEveryListAndUniqueServiceInstances) {
    EventSpec pub;
    pub.app = "fullNode";
    pub.type = "PubType";
    pub.pid = self_;
    pub.serviceId = service_;
    pub.shortName = "/svc/a";
    ASSERT_TRUE(EventInfoManage::GetInstance().RegisterEventInfo(Event(pub, true, false), true));
    EventSpec sub = pub;
    sub.type = "SubType";
    sub.instanceId = 2;
    sub.shortName = "/svc/b";
    ASSERT_TRUE(EventInfoManage::GetInstance().RegisterEventInfo(Event(sub, false, true), false));
    MethodSpec method;
    method.app = "fullNode";
    method.name = "Method";
    method.pid = self_;
    method.serviceId = service_;
    method.shortName = "/svc/a";
    ASSERT_TRUE(
        MethodInfoManage::GetInstance().RegisterMethodInfo(Method(method, true, false), true));
    const String fieldType = "NodeField" + std::to_string(service_);
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

TEST_F(NodeQueryTest, AllGivesLiveNamesOnlyAndANodeNamedAllCannotBeAskedFor) {
    ASSERT_TRUE(sut_.UpdateNodeInfo("ALL", self_, true));
    EventSpec spec;
    spec.app = "ALL";
    spec.type = "AllType";
    spec.pid = self_;
    spec.serviceId = service_;
    ASSERT_TRUE(EventInfoManage::GetInstance().RegisterEventInfo(Event(spec, true, false), true));
    ASSERT_TRUE(sut_.UpdateNodeInfo("deadForAll", MakeDeadPid(), true));

    const auto rows = sut_.QueryNodeInfo("ALL");
    const NodeInfo* all = Row(rows, "ALL");
    ASSERT_NE(all, nullptr);
    EXPECT_EQ(all->pid, self_);
    EXPECT_TRUE(all->pubEvents.empty());
    EXPECT_TRUE(all->serviceInstances.empty());
    EXPECT_EQ(Row(rows, "deadForAll"), nullptr);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Node name is ALL pid is " + std::to_string(self_)));
}

TEST_F(NodeQueryTest, ADeadNodeIsGoneUntilItsNameComesBackWithANewPid) {
    ASSERT_TRUE(sut_.UpdateNodeInfo("phoenix", MakeDeadPid(), true));
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
    const String fieldType = "DeadField" + std::to_string(service_);
    ASSERT_TRUE(FieldInfoManage::GetInstance().RegisterFieldInfo(
        Field("reborn", fieldType, MakeDeadPid(), 1, {{DriverType::DDS, "/f"}}), true));
    ASSERT_TRUE(sut_.UpdateNodeInfo("reborn", self_, true));
    const auto rows = sut_.QueryNodeInfo("reborn");
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_TRUE(rows[0].fields.empty());
    EXPECT_TRUE(FieldInfoManage::GetInstance().DdsFields().at(fieldType).at(1).isOnline);
}

}  // namespace
