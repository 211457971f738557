#include "registry/event_info_manage.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "registry/e2e_info_manage.h"
#include "registry/node_info_manage.h"
#include "tests/support/memory_log.h"
#include "tests/support/process.h"
#include "tests/unit/registry/registry_builders.h"

namespace {

using namespace vesk::wardend;  // NOLINT(google-build-using-namespace): the records under test
using wardend::test::Event;
using wardend::test::EventSpec;
using wardend::test::FreshServiceId;
using wardend::test::LogLevel;
using wardend::test::MakeDeadPid;
using wardend::test::MemoryLogTest;

class EventInfoManageTest : public MemoryLogTest {
protected:
    EventSpec Spec(const std::string& app, std::int32_t pid) const {
        EventSpec spec;
        spec.app = app;
        spec.type = "Type" + std::to_string(service_);
        spec.pid = pid;
        spec.serviceId = service_;
        return spec;
    }
    DDSEventKey DdsKey(std::uint16_t instance = 1) const {
        return DDSEventKey{service_, instance, "topic", 0};
    }
    SomeipEventKey SomeipKey(std::uint16_t instance = 1) const {
        return SomeipEventKey{service_, instance, 7, 0};
    }
    EventRecord DdsRecord() const { return sut_.DdsEvents().at(DdsKey()); }
    EventRecord SomeipRecord() const { return sut_.SomeipEvents().at(SomeipKey()); }

    EventInfoManage& sut_ = EventInfoManage::GetInstance();
    const std::uint16_t service_ = FreshServiceId();
    const std::int32_t self_ = getpid();
};

TEST_F(EventInfoManageTest, AnEmptyEventMapRegistersOnlyTheNode) {
    const EventRegisterInfo info = Event(Spec("evEmptyApp", self_), false, false);
    EXPECT_FALSE(sut_.RegisterEventInfo(info, true));
    EXPECT_EQ(NodeInfoManage::GetInstance().Nodes().at("evEmptyApp"), self_);
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Wardend register event DDS:0 SOMEIP:0"));
    EXPECT_FALSE(sut_.UnregisterEventInfo(info, true));
}

// The driver words of the new-record lines stand crossed.
TEST_F(EventInfoManageTest, NewRecordLinesCrossTheDriverWords) {
    struct Case {
        bool dds;
        bool isPub;
        const char* line;
    };
    const Case cases[] = {
        {true, true, "Wardend SOMEIP pub app crossApp is registered, online"},
        {true, false, "Wardend SOMEIP sub app crossApp is registered, online"},
        {false, true, "Wardend DDS pub app crossApp is registered, online"},
        {false, false, "Wardend DDS sub app crossApp is registered, online"},
    };
    for (const auto& c : cases) {
        ClearLog();
        EventSpec spec = Spec("crossApp", self_);
        spec.serviceId = FreshServiceId();
        EXPECT_TRUE(sut_.RegisterEventInfo(Event(spec, c.dds, !c.dds), c.isPub));
        EXPECT_TRUE(Logged(LogLevel::kInfo, c.line)) << c.line << "\n" << LogDump();
    }
}

TEST_F(EventInfoManageTest, ARepeatedPublisherCoversTheRegisterPart) {
    EventRegisterInfo info = Event(Spec("pubTwice", self_), true, false);
    ASSERT_TRUE(sut_.RegisterEventInfo(info, true));
    info.serializeText = "later";
    EXPECT_TRUE(sut_.RegisterEventInfo(info, true));
    EXPECT_TRUE(Logged(LogLevel::kInfo,
                       "Wardend register pub app pubTwicerepeated, cover old eventregisterinfo."));
    const EventRecord record = DdsRecord();
    EXPECT_EQ(record.info.registerInfo.serializeText, "later");
    EXPECT_TRUE(record.info.isOnline);
    // Only the record's own driver stays, with the generated name filled in.
    ASSERT_EQ(record.info.registerInfo.eventMap_.size(), 1U);
    EXPECT_EQ(record.info.registerInfo.eventMap_.at(DriverType::DDS).dds.instanceShortName,
              "/UnnamedDDSServiceInstance_" + std::to_string(service_) + "_1");
}

TEST_F(EventInfoManageTest, ASecondPublisherTakesTheRecordOver) {
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Spec("pubFirst", self_), true, false), true));
    EXPECT_TRUE(sut_.RegisterEventInfo(Event(Spec("pubSecond", self_), true, false), true));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend pub app pubSecond update"));
    EXPECT_EQ(DdsRecord().info.pubApp, "pubSecond");
}

TEST_F(EventInfoManageTest, ASubscriberRegisteredTwiceIsListedOnceWithTheLaterPid) {
    const std::int32_t parent = getppid();
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Spec("subTwice", self_), true, false), false));
    EXPECT_TRUE(sut_.RegisterEventInfo(Event(Spec("subTwice", parent), true, false), false));
    const EventRecord record = DdsRecord();
    EXPECT_EQ(record.info.subApps, std::vector<String>{"subTwice"});
    EXPECT_EQ(record.subPids.at("subTwice"), parent);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend register sub app subTwice repeated, do nothing"));
}

// Both drivers: the subscriber makes a record without publisher; the publisher's registration
// then replaces the register part and with it the short name.
TEST_F(EventInfoManageTest, TheSubscriberThatComesFirst) {
    const String svc = std::to_string(service_);
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Spec("earlySub", self_), true, true), false));
    const struct {
        EventRecord record;
        const char* suffix;
        const char* subName;
    } before[] = {{DdsRecord(), "_DDS", "/UnnamedDDSServiceInstance_"},
                  {SomeipRecord(), "_SOMEIP", "/UnnamedSOMEIPServiceInstance_"}};
    for (const auto& b : before) {
        EXPECT_TRUE(b.record.info.pubApp.empty());
        EXPECT_FALSE(b.record.info.isOnline);
        const EventInfo& entry = b.record.info.registerInfo.eventMap_.begin()->second;
        const String& name = b.record.info.registerInfo.eventMap_.begin()->first == DriverType::DDS
                                 ? entry.dds.instanceShortName
                                 : entry.someip.instanceShortName;
        EXPECT_EQ(name, "/UnknownPubEvent_" + svc + "_1" + b.suffix);
        EXPECT_EQ(b.record.subInstanceShortNames.at("earlySub"), b.subName + svc + "_1");
    }

    EventSpec pub = Spec("latePub", self_);
    pub.shortName = "/late/pub";
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(pub, true, true), true));
    const EventRecord dds = DdsRecord();
    EXPECT_EQ(dds.info.pubApp, "latePub");
    EXPECT_TRUE(dds.info.isOnline);
    EXPECT_EQ(dds.info.subApps, std::vector<String>{"earlySub"});
    EXPECT_EQ(dds.info.registerInfo.eventMap_.at(DriverType::DDS).dds.instanceShortName,
              "/late/pub");
    EXPECT_EQ(
        SomeipRecord().info.registerInfo.eventMap_.at(DriverType::SOMEIP).someip.instanceShortName,
        "/late/pub");
}

TEST_F(EventInfoManageTest, TheExemptDdsServiceKeepsAnEmptyShortNameOnEveryPath) {
    EventSpec spec = Spec("exemptSub", self_);
    spec.serviceId = 0xE002;
    spec.instanceId = FreshServiceId();  // the service is shared by every test
    const DDSEventKey key{0xE002, spec.instanceId, "topic", 0};
    const auto shortName = [&] {
        return sut_.DdsEvents()
            .at(key)
            .info.registerInfo.eventMap_.at(DriverType::DDS)
            .dds.instanceShortName;
    };
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(spec, true, false), false));
    EXPECT_EQ(shortName(), "");
    // The subscriber's own name has no exemption.
    EXPECT_EQ(sut_.DdsEvents().at(key).subInstanceShortNames.at("exemptSub"),
              "/UnnamedDDSServiceInstance_57346_" + std::to_string(spec.instanceId));
    spec.app = "exemptPub";
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(spec, true, false), true));
    EXPECT_EQ(shortName(), "");
    ASSERT_TRUE(sut_.UnregisterEventInfo(Event(spec, true, false), true));
    EXPECT_EQ(shortName(), "");

    // SOME/IP has no exemption.
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(spec, false, true), true));
    EXPECT_EQ(sut_.SomeipEvents()
                  .at(SomeipEventKey{0xE002, spec.instanceId, 7, 0})
                  .info.registerInfo.eventMap_.at(DriverType::SOMEIP)
                  .someip.instanceShortName,
              "/UnnamedSOMEIPServiceInstance_57346_" + std::to_string(spec.instanceId));
}

TEST_F(EventInfoManageTest, UnregisterWithBothDriversActsOnDdsOnly) {
    const EventRegisterInfo both = Event(Spec("bothPub", self_), true, true);
    ASSERT_TRUE(sut_.RegisterEventInfo(both, true));
    EXPECT_TRUE(sut_.UnregisterEventInfo(both, true));
    EXPECT_FALSE(DdsRecord().info.isOnline);
    EXPECT_TRUE(SomeipRecord().info.isOnline);

    // An unknown DDS key fails even though the SOME/IP key is known.
    EventSpec other = Spec("bothPub", self_);
    other.topic = "unknownTopic";
    ClearLog();
    EXPECT_FALSE(sut_.UnregisterEventInfo(Event(other, true, true), true));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend unregister event-DDS does not exist"));
    EXPECT_TRUE(SomeipRecord().info.isOnline);
}

TEST_F(EventInfoManageTest, UnregisteringThePublisherLeavesAnOfflineRecord) {
    const EventRegisterInfo pub = Event(Spec("offPub", self_), false, true);
    ASSERT_TRUE(sut_.RegisterEventInfo(pub, true));
    EXPECT_FALSE(sut_.UnregisterEventInfo(Event(Spec("strangerPub", self_), false, true), true));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend unregister event pub app is not found."));

    EXPECT_TRUE(sut_.UnregisterEventInfo(pub, true));
    const EventRecord record = SomeipRecord();
    EXPECT_FALSE(record.info.isOnline);
    EXPECT_EQ(record.info.pubApp, "offPub");
    EXPECT_EQ(record.info.registerInfo.eventMap_.at(DriverType::SOMEIP).someip.instanceShortName,
              "/OfflinePubEvent_" + std::to_string(service_) + "_1_SOMEIP");
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Event type Type" + std::to_string(service_) +
                                            " InstanceId 1 the pub app offPub is offline."));
}

TEST_F(EventInfoManageTest, TheLastSubscriberWithoutPublisherErasesTheRecord) {
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Spec("subA", self_), true, false), false));
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Spec("subB", self_), true, false), false));
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Spec("subC", self_), true, false), false));
    EXPECT_FALSE(sut_.UnregisterEventInfo(Event(Spec("subX", self_), true, false), false));
    EXPECT_TRUE(
        Logged(LogLevel::kWarn, "Wardend unregister DDS event sub app is not found.[sub=subX]"));

    EXPECT_TRUE(sut_.UnregisterEventInfo(Event(Spec("subB", self_), true, false), false));
    const EventRecord record = DdsRecord();
    EXPECT_EQ(record.info.subApps, (std::vector<String>{"subA", "subC"}));
    EXPECT_EQ(record.subPids.count("subB"), 0U);
    EXPECT_TRUE(
        Logged(LogLevel::kInfo, "Wardend unregister DDS event sub app is removed.[sub=subB]"));

    EXPECT_TRUE(sut_.UnregisterEventInfo(Event(Spec("subA", self_), true, false), false));
    EXPECT_TRUE(sut_.UnregisterEventInfo(Event(Spec("subC", self_), true, false), false));
    EXPECT_EQ(sut_.DdsEvents().count(DdsKey()), 0U);
    EXPECT_TRUE(Logged(LogLevel::kInfo,
                       "Wardend event sub apps are null and subC is removed successfully."));
}

TEST_F(EventInfoManageTest, APublisherWhoseProcessDiedIsReportedOffline) {
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Spec("deadPub", MakeDeadPid()), true, false), true));
    const auto result = sut_.QueryEventInfo("Type" + std::to_string(service_));
    ASSERT_EQ(result.size(), 1U);
    EXPECT_FALSE(result[0].isOnline);
    EXPECT_EQ(result[0].pubApp, "deadPub");
    EXPECT_EQ(result[0].registerInfo.eventMap_.at(DriverType::DDS).dds.instanceShortName,
              "/OfflinePubEvent_" + std::to_string(service_) + "_1_DDS");
    EXPECT_TRUE(Logged(LogLevel::kInfo, "DDS pub is offline"));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Not no pub event.[pub=deadPub]"));
}

TEST_F(EventInfoManageTest, DeadSubscribersWithoutPublisherAreNotReported) {
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Spec("deadSub", MakeDeadPid()), false, true), false));
    const String type = "Type" + std::to_string(service_);
    EXPECT_TRUE(sut_.QueryEventInfo(type).empty());
    EXPECT_TRUE(Logged(LogLevel::kInfo, "SOMEIP sub is erased"));
    EXPECT_TRUE(sut_.QueryEventInfo(type).empty());
    EXPECT_EQ(LogCount(LogLevel::kWarn, "SOMEIP eventinfo is gone"), 2U);
    const EventRecord record = SomeipRecord();
    EXPECT_TRUE(record.info.subApps.empty());
    // Only an unregistration cleans the subscriber maps.
    EXPECT_EQ(record.subPids.count("deadSub"), 1U);
}

TEST_F(EventInfoManageTest, QueriesListDdsBeforeSomeipAndFilterByType) {
    EventSpec a = Spec("orderPub", self_);
    a.instanceId = 2;
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(a, true, true), true));
    a.instanceId = 1;
    a.type = "OtherType" + std::to_string(service_);
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(a, true, false), true));

    const auto result = sut_.QueryEventInfo("Type" + std::to_string(service_));
    ASSERT_EQ(result.size(), 2U);
    EXPECT_EQ(result[0].registerInfo.eventMap_.begin()->first, DriverType::DDS);
    EXPECT_EQ(result[1].registerInfo.eventMap_.begin()->first, DriverType::SOMEIP);

    // "ALL" holds the three records of this test in key order, DDS first.
    std::vector<std::pair<DriverType, std::uint16_t>> mine;
    for (const auto& row : sut_.QueryEventInfo("ALL")) {
        const auto& [driver, entry] = *row.registerInfo.eventMap_.begin();
        const bool dds = driver == DriverType::DDS;
        if ((dds ? entry.dds.serviceId : entry.someip.serviceId) == service_) {
            mine.emplace_back(driver, dds ? entry.dds.instanceId : entry.someip.instanceId);
        }
    }
    const std::vector<std::pair<DriverType, std::uint16_t>> expected{
        {DriverType::DDS, 1}, {DriverType::DDS, 2}, {DriverType::SOMEIP, 2}};
    EXPECT_EQ(mine, expected);
}

TEST_F(EventInfoManageTest, QuerySubEventInfoAnswersOnlyWithoutOnlinePublisherAndOtherType) {
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Spec("qsSub", self_), true, false), false));
    QuerySubEventInfoIndex index;
    index.serviceId = service_;
    index.instanceId = 1;
    index.driver = DriverType::DDS;
    index.topicName = "topic";

    index.eventType = "Type" + std::to_string(service_);
    EXPECT_EQ(sut_.QuerySubEventInfo(index), EventInfoWithPubSub{});
    index.eventType = "different";
    EXPECT_EQ(sut_.QuerySubEventInfo(index).subApps, std::vector<String>{"qsSub"});
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Wardend query sub eventinfo DDS find"));

    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Spec("qsPub", self_), true, false), true));
    EXPECT_EQ(sut_.QuerySubEventInfo(index), EventInfoWithPubSub{});
}

TEST_F(EventInfoManageTest, QueryByTypeAndKeyHaveNoLivenessCheck) {
    EventInfoWithPubSub out;
    out.pubApp = "untouched";
    EXPECT_FALSE(sut_.QueryEventInfoByType("Type" + std::to_string(service_), out));
    EXPECT_EQ(out.pubApp, "untouched");

    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Spec("kSub", MakeDeadPid()), false, true), false));
    EXPECT_TRUE(sut_.QueryEventInfoByType("Type" + std::to_string(service_), out));
    EXPECT_EQ(out.subApps, std::vector<String>{"kSub"});
    EXPECT_EQ(sut_.QuerySomeipEventInfo(SomeipKey()).size(), 1U);
    EXPECT_TRUE(sut_.QueryDDSEventInfo(DdsKey()).empty());
}

TEST_F(EventInfoManageTest, GetNodeEventInfoTestsThePidOfEachSide) {
    EventSpec pub = Spec("nodeEv", self_);
    pub.shortName = "/svc/pub";
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(pub, true, false), true));
    EventSpec sub = Spec("nodeEv", self_);
    sub.type = "SubType";
    sub.instanceId = 2;
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(sub, false, true), false));

    NodeInfo node;
    node.pid = self_;
    std::set<String> instances;
    sut_.GetNodeEventInfo("nodeEv", node, instances);
    EXPECT_EQ(node.pubEvents, std::vector<String>{"Type" + std::to_string(service_)});
    EXPECT_EQ(node.subEvents, std::vector<String>{"SubType"});
    EXPECT_EQ(instances, (std::set<String>{"/svc/pub[DDS]", "/UnnamedSOMEIPServiceInstance_" +
                                                                std::to_string(service_) + "_2"}));
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Node nodeEv get NodeInfo-SOMEIP from EventInfoManage"));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Node nodeEv add sub: SubType"));

    NodeInfo other;
    other.pid = getppid();
    instances.clear();
    sut_.GetNodeEventInfo("nodeEv", other, instances);
    EXPECT_TRUE(other.pubEvents.empty());
    EXPECT_TRUE(other.subEvents.empty());
    EXPECT_TRUE(instances.empty());
}

TEST_F(EventInfoManageTest, AHandlerFiresOnEveryRegistrationOfItsKey) {
    std::vector<EventAllDriverIndex> calls;
    LatencySwitch latencySwitch;
    latencySwitch.index.drivers = {DriverType::DDS};
    latencySwitch.index.serviceId = service_;
    latencySwitch.index.instanceId = 1;
    latencySwitch.index.topicName = "topic";
    sut_.SetEventRegisterHandler([&calls](const EventAllDriverIndex& i) { calls.push_back(i); },
                                 latencySwitch);

    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Spec("hPub", self_), true, true), true));
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Spec("hSub", self_), true, false), false));
    ASSERT_EQ(calls.size(), 2U);  // the SOME/IP key has no handler
    EXPECT_EQ(calls[0].drivers, std::vector<DriverType>{DriverType::DDS});
    EXPECT_EQ(calls[0].ddsServiceId, service_);
    EXPECT_EQ(calls[0].topicName, "topic");
    EXPECT_EQ(calls[0].someipServiceId, 0);
}

TEST_F(EventInfoManageTest, OnlyAProtectedSubscriberReachesTheE2ERegistry) {
    EventSpec spec = Spec("e2eSub", self_);
    spec.profile = E2EProfile::kProfile4;
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(spec, true, false), false));
    spec.app = "e2ePub";
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(spec, false, true), true));
    const auto e2e = E2EInfoManage::GetInstance();
    const auto entries = e2e->DdsEntries();
    const auto dds = entries.find(DdsE2EKey{service_, 1, "topic"});
    ASSERT_NE(dds, entries.end());
    EXPECT_EQ(dds->second.subNodes, (std::map<String, std::int32_t>{{"e2eSub", self_}}));
    EXPECT_EQ(e2e->SomeipEntries().count(SomeipE2EKey{service_, 1, 7}), 0U);
}

}  // namespace
