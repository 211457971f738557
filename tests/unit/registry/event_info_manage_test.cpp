#include "registry/event_info_manage.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "binding/serialize/someip_serializer.h"
#include "records/service_outputs.h"
#include "registry/e2e_info_manage.h"
#include "registry/node_info_manage.h"
#include "tests/support/process.h"
#include "tests/support/record_builders.h"
#include "tests/unit/serialize/sample_records.h"

namespace {

using namespace vesk::wardend;  // NOLINT(google-build-using-namespace): the records under test
using wardend::test::Event;
using wardend::test::EventShape;
using wardend::test::FreshServiceId;
using wardend::test::LogLevel;
using wardend::test::MakeDeadPid;

class EventInfoManageTest : public wardend::test::RegistryTest {
protected:
    EventShape Shape(const std::string& app, std::int32_t pid) const {
        return EventShape{app, type_, pid, service_};
    }
    bool Register(const std::string& app, bool dds, bool someip, bool isPub) {
        return sut_.RegisterEventInfo(Event(Shape(app, self_), dds, someip), isPub);
    }
    bool Unregister(const std::string& app, bool dds, bool someip, bool isPub) {
        return sut_.UnregisterEventInfo(Event(Shape(app, self_), dds, someip), isPub);
    }
    DDSEventKey DdsKey() const { return DDSEventKey{service_, 1, "topic", 0}; }
    SomeipEventKey SomeipKey() const { return SomeipEventKey{service_, 1, 7, 0}; }
    EventRecord DdsRecord() const { return sut_.DdsEvents().at(DdsKey()); }
    EventRecord SomeipRecord() const { return sut_.SomeipEvents().at(SomeipKey()); }
    static const String& ShortName(const EventRecord& record, DriverType driver) {
        const EventInfo& entry = record.info.registerInfo.eventMap_.at(driver);
        return driver == DriverType::DDS ? entry.dds.instanceShortName
                                         : entry.someip.instanceShortName;
    }

    EventInfoManage& sut_ = EventInfoManage::GetInstance();
    const String type_ = "Type" + svc_;
};

TEST_F(EventInfoManageTest, AnEmptyEventMapRegistersOnlyTheNode) {
    EXPECT_FALSE(Register("evEmptyApp", false, false, true));
    EXPECT_EQ(NodeInfoManage::GetInstance().Nodes().at("evEmptyApp"), self_);
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Wardend register event DDS:0 SOMEIP:0"));
    EXPECT_FALSE(Unregister("evEmptyApp", false, false, true));
}

// The driver words of the new-record lines stand crossed.
TEST_F(EventInfoManageTest, NewRecordLinesCrossTheDriverWords) {
    const struct {
        bool dds;
        bool isPub;
        const char* line;
    } cases[] = {
        {true, true, "Wardend SOMEIP pub app crossApp is registered, online"},
        {true, false, "Wardend SOMEIP sub app crossApp is registered, online"},
        {false, true, "Wardend DDS pub app crossApp is registered, online"},
        {false, false, "Wardend DDS sub app crossApp is registered, online"},
    };
    for (const auto& c : cases) {
        ClearLog();
        EventShape shape = Shape("crossApp", self_);
        shape.serviceId = FreshServiceId();
        EXPECT_TRUE(sut_.RegisterEventInfo(Event(shape, c.dds, !c.dds), c.isPub));
        EXPECT_TRUE(Logged(LogLevel::kInfo, c.line)) << c.line << "\n" << LogDump();
    }
}

TEST_F(EventInfoManageTest, RepeatedPublishersAndSubscribers) {
    EventRegisterInfo info = Event(Shape("pubTwice", self_), true, false);
    ASSERT_TRUE(sut_.RegisterEventInfo(info, true));
    info.serializeText = "later";
    EXPECT_TRUE(sut_.RegisterEventInfo(info, true));
    EXPECT_TRUE(Logged(LogLevel::kInfo,
                       "Wardend register pub app pubTwicerepeated, cover old eventregisterinfo."));
    EventRecord record = DdsRecord();
    EXPECT_EQ(record.info.registerInfo.serializeText, "later");
    EXPECT_TRUE(record.info.isOnline);
    // Only the record's own driver stays, with the generated name filled in.
    ASSERT_EQ(record.info.registerInfo.eventMap_.size(), 1U);
    EXPECT_EQ(ShortName(record, DriverType::DDS), "/UnnamedDDSServiceInstance_" + svc_ + "_1");

    // A second publisher takes the record over.
    EXPECT_TRUE(Register("pubSecond", true, false, true));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend pub app pubSecond update"));
    EXPECT_EQ(DdsRecord().info.pubApp, "pubSecond");

    // A subscriber registered twice is listed once, with the later pid.
    ASSERT_TRUE(Register("subTwice", true, false, false));
    EXPECT_TRUE(sut_.RegisterEventInfo(Event(Shape("subTwice", getppid()), true, false), false));
    record = DdsRecord();
    EXPECT_EQ(record.info.subApps, std::vector<String>{"subTwice"});
    EXPECT_EQ(record.subPids.at("subTwice"), getppid());
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend register sub app subTwice repeated, do nothing"));
}

// Both drivers: the subscriber makes a record without publisher; the publisher's registration
// then replaces the register part and with it the short name.
TEST_F(EventInfoManageTest, TheSubscriberThatComesFirst) {
    ASSERT_TRUE(Register("earlySub", true, true, false));
    const struct {
        DriverType driver;
        const char* suffix;
        const char* subName;
    } drivers[] = {{DriverType::DDS, "_DDS", "/UnnamedDDSServiceInstance_"},
                   {DriverType::SOMEIP, "_SOMEIP", "/UnnamedSOMEIPServiceInstance_"}};
    for (const auto& d : drivers) {
        const EventRecord record = d.driver == DriverType::DDS ? DdsRecord() : SomeipRecord();
        EXPECT_TRUE(record.info.pubApp.empty());
        EXPECT_FALSE(record.info.isOnline);
        EXPECT_EQ(ShortName(record, d.driver), "/UnknownPubEvent_" + svc_ + "_1" + d.suffix);
        EXPECT_EQ(record.subInstanceShortNames.at("earlySub"), d.subName + svc_ + "_1");
    }

    EventShape pub = Shape("latePub", self_);
    pub.shortName = "/late/pub";
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(pub, true, true), true));
    const EventRecord dds = DdsRecord();
    EXPECT_EQ(dds.info.pubApp, "latePub");
    EXPECT_TRUE(dds.info.isOnline);
    EXPECT_EQ(dds.info.subApps, std::vector<String>{"earlySub"});
    EXPECT_EQ(ShortName(dds, DriverType::DDS), "/late/pub");
    EXPECT_EQ(ShortName(SomeipRecord(), DriverType::SOMEIP), "/late/pub");
}

TEST_F(EventInfoManageTest, TheExemptDdsServiceKeepsAnEmptyShortNameOnEveryPath) {
    EventShape shape = Shape("exemptSub", self_);
    shape.serviceId = 0xE002;
    shape.instanceId = FreshServiceId();  // the service is shared by every test
    const String instance = std::to_string(shape.instanceId);
    const DDSEventKey key{0xE002, shape.instanceId, "topic", 0};
    const auto shortName = [&] { return ShortName(sut_.DdsEvents().at(key), DriverType::DDS); };
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(shape, true, false), false));
    EXPECT_EQ(shortName(), "");
    // The subscriber's own name has no exemption.
    EXPECT_EQ(sut_.DdsEvents().at(key).subInstanceShortNames.at("exemptSub"),
              "/UnnamedDDSServiceInstance_57346_" + instance);
    shape.app = "exemptPub";
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(shape, true, false), true));
    EXPECT_EQ(shortName(), "");
    ASSERT_TRUE(sut_.UnregisterEventInfo(Event(shape, true, false), true));
    EXPECT_EQ(shortName(), "");

    // SOME/IP has no exemption.
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(shape, false, true), true));
    EXPECT_EQ(ShortName(sut_.SomeipEvents().at(SomeipEventKey{0xE002, shape.instanceId, 7, 0}),
                        DriverType::SOMEIP),
              "/UnnamedSOMEIPServiceInstance_57346_" + instance);
}

TEST_F(EventInfoManageTest, UnregisteringAPublisher) {
    ASSERT_TRUE(Register("offPub", true, true, true));
    EXPECT_FALSE(Unregister("strangerPub", false, true, true));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend unregister event pub app is not found."));

    // With both drivers only DDS is acted on.
    EXPECT_TRUE(Unregister("offPub", true, true, true));
    EXPECT_FALSE(DdsRecord().info.isOnline);
    EXPECT_TRUE(SomeipRecord().info.isOnline);
    // An unknown DDS key fails even though the SOME/IP key is known.
    EventShape other = Shape("offPub", self_);
    other.topic = "unknownTopic";
    EXPECT_FALSE(sut_.UnregisterEventInfo(Event(other, true, true), true));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend unregister event-DDS does not exist"));
    EXPECT_TRUE(SomeipRecord().info.isOnline);

    ClearLog();
    EXPECT_TRUE(Unregister("offPub", false, true, true));
    const EventRecord record = SomeipRecord();
    EXPECT_FALSE(record.info.isOnline);
    EXPECT_EQ(record.info.pubApp, "offPub");
    EXPECT_EQ(ShortName(record, DriverType::SOMEIP), "/OfflinePubEvent_" + svc_ + "_1_SOMEIP");
    EXPECT_TRUE(Logged(LogLevel::kInfo,
                       "Event type " + type_ + " InstanceId 1 the pub app offPub is offline."));
}

TEST_F(EventInfoManageTest, TheLastSubscriberWithoutPublisherErasesTheRecord) {
    for (const char* app : {"subA", "subB", "subC"}) {
        ASSERT_TRUE(Register(app, true, false, false));
    }
    EXPECT_FALSE(Unregister("subX", true, false, false));
    EXPECT_TRUE(
        Logged(LogLevel::kWarn, "Wardend unregister DDS event sub app is not found.[sub=subX]"));

    EXPECT_TRUE(Unregister("subB", true, false, false));
    const EventRecord record = DdsRecord();
    EXPECT_EQ(record.info.subApps, (std::vector<String>{"subA", "subC"}));
    EXPECT_EQ(record.subPids.count("subB"), 0U);
    EXPECT_TRUE(
        Logged(LogLevel::kInfo, "Wardend unregister DDS event sub app is removed.[sub=subB]"));

    EXPECT_TRUE(Unregister("subA", true, false, false));
    EXPECT_TRUE(Unregister("subC", true, false, false));
    EXPECT_EQ(sut_.DdsEvents().count(DdsKey()), 0U);
    EXPECT_TRUE(Logged(LogLevel::kInfo,
                       "Wardend event sub apps are null and subC is removed successfully."));
}

// A dead publisher is reported offline; dead subscribers without publisher are not reported.
TEST_F(EventInfoManageTest, DeadProcessesInAQuery) {
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Shape("deadPub", MakeDeadPid()), true, false), true));
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Shape("deadSub", MakeDeadPid()), false, true), false));
    for (int round = 0; round < 2; ++round) {
        const auto result = sut_.QueryEventInfo(type_);
        ASSERT_EQ(result.size(), 1U);
        EXPECT_FALSE(result[0].isOnline);
        EXPECT_EQ(result[0].pubApp, "deadPub");
        EXPECT_EQ(result[0].registerInfo.eventMap_.at(DriverType::DDS).dds.instanceShortName,
                  "/OfflinePubEvent_" + svc_ + "_1_DDS");
    }
    EXPECT_TRUE(Logged(LogLevel::kInfo, "DDS pub is offline"));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Not no pub event.[pub=deadPub]"));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "SOMEIP sub is erased"));
    EXPECT_EQ(LogCount(LogLevel::kWarn, "SOMEIP eventinfo is gone"), 2U);
    const EventRecord record = SomeipRecord();
    EXPECT_TRUE(record.info.subApps.empty());
    // Only an unregistration cleans the subscriber maps.
    EXPECT_EQ(record.subPids.count("deadSub"), 1U);
}

// The registry keeps records in a compact form of its own: what it hands out is what was
// registered, field for field, reduced to the record's driver. The SOME/IP answer written from
// the packed registrations is, byte for byte, the serialized answer built from records: both
// byte orders, strings with and without their marks, records with every field set and mostly at
// their defaults, with subscribers, and renamed by their publisher's state (offline, unknown).
// Each query looks at /proc once for each process however many records name it.
TEST_F(EventInfoManageTest, QueriesGiveTheRegistrationsBackAndTheSomeipAnswerByteForByte) {
    EventRegisterInfo full = wardend::test::MakeEventRegister(1, 5);
    full.eventType = type_;
    full.pid = self_;
    full.eventMap_.at(DriverType::DDS).dds.serviceId = service_;
    full.eventMap_.at(DriverType::SOMEIP).someip.serviceId = service_;
    full.eventMap_.at(DriverType::SOMEIP).someip.instanceId = 5;
    ASSERT_TRUE(sut_.RegisterEventInfo(full, true));
    ASSERT_TRUE(Register("answerPub", true, true, true));
    ASSERT_TRUE(Register("answerSubA", true, true, false));
    ASSERT_TRUE(Register("answerSubB", false, true, false));
    EventShape offline = Shape("answerGone", MakeDeadPid());
    offline.instanceId = 3;
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(offline, true, true), true));
    EventShape unknown = Shape("answerEarlySub", self_);
    unknown.instanceId = 4;
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(unknown, true, true), false));

    ClearLog();
    QueryEventInfoOutput built;
    built.eventInfos = sut_.QueryEventInfo(type_);
    ASSERT_EQ(built.eventInfos.size(), 8U);
    int fullRows = 0;
    for (const auto& row : built.eventInfos) {
        if (row.pubApp == full.appName) {
            const DriverType driver = row.registerInfo.eventMap_.begin()->first;
            EventRegisterInfo own = full;
            own.eventMap_.erase(driver == DriverType::DDS ? DriverType::SOMEIP : DriverType::DDS);
            EXPECT_EQ(row.registerInfo, own);
            EXPECT_TRUE(row.isOnline);
            ++fullRows;
        }
    }
    EXPECT_EQ(fullRows, 2);
    for (const auto order :
         {lumo::serialize::ByteOrder::kBigEndian, lumo::serialize::ByteOrder::kLittleEndian}) {
        for (const bool raw : {false, true}) {
            lumo::serialize::SerializeConfig config;
            config.byteOrder = order;
            config.isStringRaw = raw;
            lumo::serialize::someip::Serializer<QueryEventInfoOutput> serializer(built, config);
            std::vector<unsigned char> expected(serializer.GetSize());
            serializer.Serialize(expected.data());

            EventInfoSomeipAnswer answer = sut_.QueryEventInfoSomeip(type_, order, raw);
            std::vector<unsigned char> written(answer.Size(), 0xAA);
            EXPECT_TRUE(answer.Write(written.data()));
            EXPECT_EQ(written, expected) << "order " << static_cast<int>(order) << " raw " << raw;
        }
    }
    const std::string alive = "Node is alive.[pid=" + std::to_string(self_) + "]";
    EXPECT_EQ(LogCount(LogLevel::kVerbose, alive), 5U);
    EXPECT_EQ(sut_.QueryEventInfoSomeip("NoSuchType" + svc_, lumo::serialize::ByteOrder::kBigEndian,
                                        false)
                  .Size(),
              4U);
}

TEST_F(EventInfoManageTest, QueriesListDdsBeforeSomeipAndFilterByType) {
    EventShape a = Shape("orderPub", self_);
    a.instanceId = 2;
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(a, true, true), true));
    a.instanceId = 1;
    a.type = "OtherType" + svc_;
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(a, true, false), true));

    const auto result = sut_.QueryEventInfo(type_);
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
    ASSERT_TRUE(Register("qsSub", true, false, false));
    QuerySubEventInfoIndex index =
        wardend::test::SubEventIndex(service_, DriverType::DDS, "topic", type_);
    EXPECT_EQ(sut_.QuerySubEventInfo(index), EventInfoWithPubSub{});
    index.eventType = "different";
    EXPECT_EQ(sut_.QuerySubEventInfo(index).subApps, std::vector<String>{"qsSub"});
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Wardend query sub eventinfo DDS find"));

    ASSERT_TRUE(Register("qsPub", true, false, true));
    EXPECT_EQ(sut_.QuerySubEventInfo(index), EventInfoWithPubSub{});
}

TEST_F(EventInfoManageTest, QueryByTypeAndKeyHaveNoLivenessCheck) {
    EventInfoWithPubSub out;
    out.pubApp = "untouched";
    EXPECT_FALSE(sut_.QueryEventInfoByType(type_, out));
    EXPECT_EQ(out.pubApp, "untouched");

    ASSERT_TRUE(sut_.RegisterEventInfo(Event(Shape("kSub", MakeDeadPid()), false, true), false));
    EXPECT_TRUE(sut_.QueryEventInfoByType(type_, out));
    EXPECT_EQ(out.subApps, std::vector<String>{"kSub"});
    EXPECT_EQ(sut_.QuerySomeipEventInfo(SomeipKey()).size(), 1U);
    EXPECT_TRUE(sut_.QueryDDSEventInfo(DdsKey()).empty());
}

TEST_F(EventInfoManageTest, GetNodeEventInfoTestsThePidOfEachSide) {
    EventShape pub = Shape("nodeEv", self_);
    pub.shortName = "/svc/pub";
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(pub, true, false), true));
    EventShape sub{"nodeEv", "SubType", self_, service_};
    sub.instanceId = 2;
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(sub, false, true), false));

    for (const std::int32_t pid : {self_, static_cast<std::int32_t>(getppid())}) {
        const bool own = pid == self_;
        SCOPED_TRACE(own ? "the node's pid" : "another pid");
        NodeInfo node;
        node.pid = pid;
        std::set<String> instances;
        sut_.GetNodeEventInfo("nodeEv", node, instances);
        EXPECT_EQ(node.pubEvents, own ? std::vector<String>{type_} : std::vector<String>{});
        EXPECT_EQ(node.subEvents, own ? std::vector<String>{"SubType"} : std::vector<String>{});
        const std::set<String> expected{"/svc/pub[DDS]",
                                        "/UnnamedSOMEIPServiceInstance_" + svc_ + "_2"};
        EXPECT_EQ(instances, own ? expected : std::set<String>{});
    }
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Node nodeEv get NodeInfo-SOMEIP from EventInfoManage"));
    EXPECT_EQ(LogCount(LogLevel::kInfo, "Node nodeEv add sub: SubType"), 1U);
}

TEST_F(EventInfoManageTest, AHandlerFiresOnEveryRegistrationOfItsKey) {
    std::vector<EventAllDriverIndex> calls;
    const LatencySwitch latencySwitch{{}, {{DriverType::DDS}, service_, 1, "topic", 0}};
    sut_.SetEventRegisterHandler([&calls](const EventAllDriverIndex& i) { calls.push_back(i); },
                                 latencySwitch);

    ASSERT_TRUE(Register("hPub", true, true, true));
    ASSERT_TRUE(Register("hSub", true, false, false));
    ASSERT_EQ(calls.size(), 2U);  // the SOME/IP key has no handler
    EXPECT_EQ(calls[0].drivers, std::vector<DriverType>{DriverType::DDS});
    EXPECT_EQ(calls[0].ddsServiceId, service_);
    EXPECT_EQ(calls[0].topicName, "topic");
    EXPECT_EQ(calls[0].someipServiceId, 0);
}

TEST_F(EventInfoManageTest, OnlyAProtectedSubscriberReachesTheE2ERegistry) {
    EventShape shape = Shape("e2eSub", self_);
    shape.profile = E2EProfile::kProfile4;
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(shape, true, false), false));
    shape.app = "e2ePub";
    ASSERT_TRUE(sut_.RegisterEventInfo(Event(shape, false, true), true));
    const auto e2e = E2EInfoManage::GetInstance();
    const auto entries = e2e->DdsEntries();
    const auto dds = entries.find(DdsE2EKey{service_, 1, "topic"});
    ASSERT_NE(dds, entries.end());
    EXPECT_EQ(dds->second.subNodes, (std::map<String, std::int32_t>{{"e2eSub", self_}}));
    EXPECT_EQ(e2e->SomeipEntries().count(SomeipE2EKey{service_, 1, 7}), 0U);
}

}  // namespace
