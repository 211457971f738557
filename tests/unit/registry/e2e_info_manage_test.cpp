#include "registry/e2e_info_manage.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/process.h"
#include "tests/support/record_builders.h"

namespace {

using namespace vesk::wardend;  // NOLINT(google-build-using-namespace): the records under test
using wardend::test::LogLevel;
using wardend::test::MakeDeadPid;

class E2EInfoManageTest : public wardend::test::RegistryTest {
protected:
    EventE2EInfo Declaration(DriverType driver, std::uint32_t dataId,
                             E2EProfile profile = E2EProfile::kProfile4) const {
        EventE2EInfo info;
        info.serviceId = service_;
        info.instanceId = 2;
        info.driver = driver;
        info.eventId = 9;
        info.eventTopicName = "t";
        info.e2eConfig.profile = profile;
        info.e2eConfig.dataIdList = {dataId};
        return info;
    }
    QuerySubEventInfoIndex Index(DriverType driver) const {
        return wardend::test::SubEventIndex(service_, driver, "t", {}, 2, 9);
    }
    E2EEventEntry DdsEntry() const { return sut_->DdsEntries().at(DdsE2EKey{service_, 2, "t"}); }
    bool HasDdsEntry() const { return sut_->DdsEntries().count(DdsE2EKey{service_, 2, "t"}) != 0; }

    NodeRegisterInfo Node(const String& name, std::vector<EventE2EInfo> declarations) const {
        NodeRegisterInfo node;
        node.nodeName = name;
        node.pid = self_;
        node.infoKind = 1;
        node.e2eList.eventE2EInfos = std::move(declarations);
        return node;
    }

    std::shared_ptr<E2EInfoManage> sut_ = E2EInfoManage::GetInstance();
    const std::int32_t parent_ = getppid();
    const String selfText_ = std::to_string(self_);
    const String parentText_ = std::to_string(parent_);
    const String ddsKey_ = "serviceId=" + svc_ + ", instanceId=2, eventTopicName=t";
    const String someipKey_ = "serviceId=" + svc_ + ", instanceId=2, eventId=9";
};

TEST_F(E2EInfoManageTest, TheNewestDeclarationWinsForAllSubNodes) {
    sut_->UpdateDdsE2EInfo("nodeA", self_, Declaration(DriverType::DDS, 1));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Keep new dds event e2e info of sub node[" + ddsKey_ +
                                            ", newAppName=nodeA, pid=" + selfText_ + "]"));
    sut_->UpdateDdsE2EInfo("nodeB", parent_, Declaration(DriverType::DDS, 2));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Update old dds event e2e info of sub node[" + ddsKey_ +
                                            ", newAppName=nodeB, pid= " + parentText_ + "]"));
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "New sub node with the same dds event e2e info"));
    EXPECT_EQ(DdsEntry().subNodes.size(), 2U);

    const auto answer = sut_->QuerySubNodeE2EInfo(Index(DriverType::DDS));
    EXPECT_EQ(answer.registerInfo.eventMap_.at(DriverType::DDS).dds.e2eConfig.dataIdList,
              std::vector<std::uint32_t>{2});
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Query sub node dds E2E config info success"));

    // B leaves; A stays with B's configuration.
    sut_->UnregisterE2EInfo("nodeB", parent_);
    const E2EEventEntry entry = DdsEntry();
    EXPECT_EQ(entry.subNodes, (std::map<String, std::int32_t>{{"nodeA", self_}}));
    EXPECT_EQ(entry.info.e2eConfig.dataIdList, std::vector<std::uint32_t>{2});
}

TEST_F(E2EInfoManageTest, ALateUnregisterOfTheOldProcessRemovesNothing) {
    sut_->UpdateSomeipE2EInfo("restarted", parent_, Declaration(DriverType::SOMEIP, 1));
    sut_->UpdateSomeipE2EInfo("restarted", self_, Declaration(DriverType::SOMEIP, 1));
    EXPECT_TRUE(Logged(LogLevel::kVerbose,
                       "App already register someip event e2e info, cover old[appName=restarted, "
                       "oldAppPid=" +
                           parentText_ + ", newAppPid=" + selfText_ + "]"));
    sut_->UnregisterE2EInfo("restarted", parent_);
    const auto entries = sut_->SomeipEntries();
    ASSERT_EQ(entries.count(SomeipE2EKey{service_, 2, 9}), 1U);
    EXPECT_EQ(entries.at(SomeipE2EKey{service_, 2, 9}).subNodes.at("restarted"), self_);

    sut_->UnregisterE2EInfo("restarted", self_);
    EXPECT_EQ(sut_->SomeipEntries().count(SomeipE2EKey{service_, 2, 9}), 0U);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Unregister someip event e2e info of sub node[" +
                                            someipKey_ + ", appName=restarted, pid=" + selfText_ +
                                            "]"));
}

TEST_F(E2EInfoManageTest, AQueryClearsADeadOnlySubNodeAndFindsNothing) {
    const pid_t dead = MakeDeadPid();
    sut_->UpdateDdsE2EInfo("gone", dead, Declaration(DriverType::DDS, 1));
    const auto answer = sut_->QuerySubNodeE2EInfo(Index(DriverType::DDS));
    EXPECT_EQ(answer, EventInfoWithPubSub{});
    EXPECT_FALSE(HasDdsEntry());
    EXPECT_TRUE(Logged(LogLevel::kVerbose,
                       "Clear offline app's dds event e2e info of sub node[offLineAppName=gone, "
                       "nodePid=" +
                           std::to_string(dead) + ", nodeCount=0]"));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Clear offline dds event e2e info[" + ddsKey_ + "]"));
    EXPECT_FALSE(Logged(LogLevel::kVerbose, "Query sub node dds E2E config info success"));
}

TEST_F(E2EInfoManageTest, AnUnprotectedDeclarationLeavesNoTrace) {
    const NodeRegisterInfo node =
        Node("plain", {Declaration(DriverType::DDS, 5, E2EProfile::kNone)});
    sut_->RegisterNodeE2EInfo(node);
    EXPECT_FALSE(HasDdsEntry());

    sut_->UpdateDdsE2EInfo("protected", self_, Declaration(DriverType::DDS, 1));
    sut_->RegisterNodeE2EInfo(node);
    DDSEventInfo event;
    event.serviceId = service_;
    event.instanceId = 2;
    event.topicName = "t";
    event.e2eConfig.profile = E2EProfile::kNone;
    sut_->UpdateDdsEventE2EInfo("plainEvent", self_, event);
    const E2EEventEntry entry = DdsEntry();
    EXPECT_EQ(entry.subNodes.size(), 1U);
    EXPECT_EQ(entry.info.e2eConfig.dataIdList, std::vector<std::uint32_t>{1});
}

TEST_F(E2EInfoManageTest, DriversAreSeparateEntriesAndTheSomeipQueryLineHasNoBracket) {
    sut_->RegisterNodeE2EInfo(
        Node("twoDrivers", {Declaration(DriverType::DDS, 1), Declaration(DriverType::SOMEIP, 2)}));
    EXPECT_TRUE(HasDdsEntry());
    EXPECT_EQ(sut_->SomeipEntries().count(SomeipE2EKey{service_, 2, 9}), 1U);

    const auto answer = sut_->QuerySubNodeE2EInfo(Index(DriverType::SOMEIP));
    EXPECT_EQ(answer.registerInfo.eventMap_.at(DriverType::SOMEIP).someip.e2eConfig.dataIdList,
              std::vector<std::uint32_t>{2});
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Query sub node someip E2E config info[" + someipKey_));
    sut_->QuerySubNodeE2EInfo(Index(DriverType::DDS));
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Query sub node dds E2E config info[" + ddsKey_ + "]"));
}

}  // namespace
