#include <gtest/gtest.h>

#include <algorithm>

#include "catalogue/msg_file_store.h"
#include "registry/e2e_info_manage.h"
#include "registry/field_info_manage.h"
#include "registry/node_info_manage.h"
#include "tests/support/process.h"
#include "tests/unit/service/service_fixture.h"

namespace wardend::test {
namespace {

using AppSkeletonTest = ServiceTest;

// The road of one registration: the handler stores the record, the reader thread loads its
// type, and the tools find both.
TEST_F(AppSkeletonTest, AnEventRegistrationReachesTheRegistryTheCatalogueAndTheTools) {
    EXPECT_EQ(Register(EventRegistration("roadApp", "RoadEvent", 0x1001, true)), 0);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Start to register event info"));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend register event info finished"));
    DrainReader();

    const auto events = tools_->QueryEventInfo("RoadEvent").get().eventInfos;
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].pubApp, "roadApp");
    EXPECT_TRUE(events[0].isOnline);

    const auto show = tools_->QueryEventShow("RoadEvent").get();
    EXPECT_EQ(show.pubApp, "roadApp");
    EXPECT_EQ(show.pubState, "ON");
    // /Norvane/AP/Speed is an alias; the answer is the end of its chain.
    EXPECT_NE(show.dataTypeDescription.find("/Norvane/AP/Float32"), String::npos)
        << show.dataTypeDescription;

    const auto refs = tools_->QueryDataTypeRefList().get().refList;
    ASSERT_EQ(refs.count("/Norvane/AP/Speed"), 1U);
    EXPECT_FALSE(tools_->QueryDataType("/Norvane/AP/Speed").get().dataType.empty());
}

TEST_F(AppSkeletonTest, RefusedRegistrationsTouchNoRegistryAndQueueNoReadTask) {
    AppRegisterInfo info = EventRegistration("typeSixApp", "TypeSixEvent", 0x1002, true);
    info.infoType = static_cast<AppRegisterInfoType>(6);
    EXPECT_EQ(Register(info), 1);
    EXPECT_TRUE(Logged(LogLevel::kError, "Unknown app register info"));
    EXPECT_EQ(NodeInfoManage::GetInstance().Nodes().count("typeSixApp"), 0U);
    EXPECT_TRUE(tools_->QueryEventInfo("TypeSixEvent").get().eventInfos.empty());

    // A refused event registration queues no read task.
    info = EventRegistration("noDriverApp", "NoDriverEvent", 0x1003, true, "/Norvane/AP/Pose");
    info.eventInfo.eventMap_.clear();
    EXPECT_EQ(Register(info), 1);
    DrainReader();
    EXPECT_EQ(tools_->QueryDataTypeRefList().get().refList.count("/Norvane/AP/Pose"), 0U);
}

TEST_F(AppSkeletonTest, EventUnregistrationAnswersByWhatTheRegistryRemoved) {
    AppRegisterInfo info = EventRegistration("leavingApp", "LeavingEvent", 0x1004, false);
    ASSERT_EQ(Register(info), 0);
    info.eventInfo.isRegister = false;
    EXPECT_EQ(Register(info), 0);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend unregister event info finished"));
    EXPECT_EQ(Register(info), 1);  // nothing left to take off
}

// Input types and error domains are always loaded, the output type only with SOME/IP
// serialization.
TEST_F(AppSkeletonTest, AMethodLoadsItsTypesAndErrorDomains) {
    struct Case {
        SerializationType type;
        bool loadsOutput;
    };
    for (const Case& c :
         {Case{SerializationType::kDefault, false}, Case{SerializationType::kSignalBased, false},
          Case{SerializationType::kSomeip, true}}) {
        const auto number = static_cast<std::uint32_t>(c.type);
        const String name = "MethodOut" + std::to_string(number);
        AppRegisterInfo info = MethodRegistration("methodApp", name, 0x2000 + number, true);
        info.methodInfo.outputSerializeConfig.type = c.type;
        info.methodInfo.methodOutputDatatype = "/Norvane/AP/Trajectory";
        info.methodInfo.inputDatatypes = {"/Norvane/AP/Point3D"};
        info.methodInfo.errorDomains = {ErrorDomainInfo{5, "Speed"}};
        ClearLog();
        ASSERT_EQ(Register(info), 0);
        DrainReader();
        EXPECT_EQ(Logged(LogLevel::kVerbose,
                         "cm serialize type methodOutputDatatype /Norvane/AP/Trajectory"),
                  c.loadsOutput);
        EXPECT_EQ(tools_->QueryDataTypeRefList().get().refList.count("/Norvane/AP/Trajectory"),
                  c.loadsOutput ? 1U : 0U)
            << "serialization type " << number;
        EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend register method info finished"));
    }
    EXPECT_EQ(tools_->QueryDataTypeRefList().get().refList.count("/Norvane/AP/Point3D"), 1U);
    EXPECT_FALSE(tools_->QueryDataType("5").get().dataType.empty());
}

TEST_F(AppSkeletonTest, FieldsRegisterAndUnregisterWithoutTheReader) {
    AppRegisterInfo info = FieldRegistration("fieldApp", "SpeedField", DriverType::SOMEIP, 3);
    EXPECT_EQ(Register(info), 0);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Start to register field info"));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend register field info finished"));
    EXPECT_EQ(pool_->QueuedCount(), 0U);

    info.fieldInfo.isRegister = false;
    EXPECT_EQ(Register(info), 0);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend unregister field info finished"));
}

// A node record with E2E entries files them and leaves the node table alone; unregistering a node
// that never registered still clears its entries, and fails.
TEST_F(AppSkeletonTest, NodeRecordsWithE2EEntries) {
    EventE2EInfo entry;
    entry.serviceId = 0x3000;
    entry.instanceId = 1;
    entry.driver = DriverType::SOMEIP;
    entry.eventId = 0x8001;
    entry.e2eConfig.profile = E2EProfile::kProfile4;
    EXPECT_EQ(Register(NodeRegistration("e2eOnlyNode", false, &entry)), 0);
    EXPECT_EQ(NodeInfoManage::GetInstance().Nodes().count("e2eOnlyNode"), 0U);
    EXPECT_FALSE(Logged(LogLevel::kInfo, "Wardend register node info finished"));
    EXPECT_FALSE(E2EInfoManage::GetInstance()->SomeipEntries().empty());

    entry.serviceId = 0x3100;
    entry.driver = DriverType::DDS;
    entry.eventId = 0;
    entry.eventTopicName = "GhostTopic";
    entry.e2eConfig.profile = E2EProfile::kProfile5;
    ASSERT_EQ(Register(NodeRegistration("ghostNode", false, &entry)), 0);
    const auto hasGhost = [] {
        const auto entries = E2EInfoManage::GetInstance()->DdsEntries();
        return std::any_of(entries.begin(), entries.end(), [](const auto& item) {
            return item.first.eventTopicName == "GhostTopic";
        });
    };
    ASSERT_TRUE(hasGhost());
    EXPECT_EQ(Register(NodeRegistration("ghostNode", false)), 1);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend unregister node info finished"));
    EXPECT_FALSE(hasGhost());
}

// An acknowledgement, then a result the tools find per application, then neither kind.
TEST_F(AppSkeletonTest, LatencyReportsAnswerByKind) {
    AppRegisterInfo info =
        LatencyRegistration("latencyApp", LatencyInfoKind::kAcknowledge, 0x4000, "LatencyTopic");
    EXPECT_EQ(Register(info), 0);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend notify latency mode finished"));
    info.latencyInfo.kind = static_cast<std::uint8_t>(LatencyInfoKind::kResult);
    info.latencyInfo.result = LatencyResult{100, 300, 50};
    EXPECT_EQ(Register(info), 0);
    LatencyQueryInfo query;
    query.period = 60;
    query.index = info.latencyInfo.index;
    const auto results = tools_->QueryLatencyResult(query).get().results;
    ASSERT_EQ(results.count("latencyApp"), 1U);
    EXPECT_EQ(results.at("latencyApp"), (LatencyResult{100, 300, 50}));
    info.latencyInfo.kind = 2;  // neither kind
    ClearLog();
    EXPECT_EQ(Register(info), 1);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Start to notify latency result"));
    EXPECT_FALSE(Logged(LogLevel::kInfo, "Wardend notify latency mode finished"));
}

TEST_F(AppSkeletonTest, AListenerReportQueuesASnapshotTrigger) {
    AppRegisterInfo info;
    info.infoType = AppRegisterInfoType::LISTENER;
    info.listenerResult[ListenerType::kLatencyTimeout] = ListenerParams{"guid-1", 10, 20};
    EXPECT_EQ(Register(info), 0);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend get sys snapshot finished"));
    DrainReader();
    // Without a configuration the snapshot function is off, and the trigger says so.
    EXPECT_TRUE(Logged(LogLevel::kWarn, "[Snapshot function in vesk.json is not enabled]"))
        << LogDump();
}

}  // namespace
}  // namespace wardend::test
