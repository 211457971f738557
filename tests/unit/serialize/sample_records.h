#ifndef TESTS_UNIT_SERIALIZE_SAMPLE_RECORDS_H
#define TESTS_UNIT_SERIALIZE_SAMPLE_RECORDS_H

// Records filled with non-default values in every field, for round trips, fuzz seeds and the
// benchmark. Each builder takes a seed so that two samples differ.

#include <cstdint>
#include <string>

#include "records/service_outputs.h"
#include "records/wardend_records.h"

namespace wardend::test {

using namespace vesk::wardend;  // NOLINT(google-build-using-namespace): test data builders

inline String Text(const char* base, int seed) {
    return String(base) + "_" + std::to_string(seed);
}

inline E2EConfigInfo MakeE2EConfig(int seed) {
    E2EConfigInfo e;
    e.profile = E2EProfile::kProfile4;
    e.dataIdList = {0x01020304U + static_cast<std::uint32_t>(seed), 7, 0xFFFFFFFFU};
    e.flagA = true;
    e.flagB = true;
    e.valueA = 0xA1A2A3A4U;
    e.valueB = 17U + static_cast<std::uint32_t>(seed);
    e.valueC = 0xC1C2;
    e.valueD = 4000000000U;
    e.dataIdMode = E2EDataIDMode::kNibble;
    e.stateParam1 = 1;
    e.stateParam2 = 2;
    e.stateParam3 = 3;
    e.stateParam4 = 4;
    e.stateParam5 = 5;
    e.stateParam6 = 6;
    e.stateParam7 = 7;
    e.stateParam8 = 8;
    e.stateParam9 = 0xFF;
    e.stateFlag = true;
    e.valueE = 99;
    return e;
}

inline DDSEventInfo MakeDdsEvent(int seed, int properties = 2) {
    DDSEventInfo d;
    d.serviceId = 0xE002;
    d.instanceId = static_cast<std::uint16_t>(3 + seed);
    d.shortValue = 0x8001;
    d.topicName = Text("/Norvane/AP/Pose/Topic", seed);
    d.text = "pose text";
    d.valueA = 11;
    d.valueB = 0x80000000U;
    d.durability = DurabilityQos::kTransientLocal;
    d.history = HistoryQos::kKeepAll;
    d.transports = {TransportQos::kShm, TransportQos::kUdp};
    d.valueC = 12;
    d.valueD = 13;
    d.instanceShortName = Text("/pose/instance", seed);
    for (int i = 0; i < properties; ++i) {
        d.properties[Text("property.key", i)] = Text("value of the property", i * 7 + seed);
    }
    d.scheduleMode = ScheduleMode::kQueued;
    d.e2eConfig = MakeE2EConfig(seed);
    d.reliability = ReliabilityKind::kReliable;
    d.flag = true;
    return d;
}

inline SomeipEventInfo MakeSomeipEvent(int seed) {
    SomeipEventInfo s;
    s.serviceId = 0x5700;
    s.instanceId = static_cast<std::uint16_t>(1 + seed);
    s.wideValue = 0xDEADBEEFU;
    s.eventId = 0x8001;
    s.eventGroupIds = {1, 0x0102, 0xFFFF};
    s.instanceShortName = Text("/someip/instance", seed);
    s.valueA = 21;
    s.valueB = 22;
    s.valueC = 23;
    s.flag = true;
    s.e2eConfig = MakeE2EConfig(seed + 1);
    s.bytes = {0, 1, 0xFE, 0xFF};
    s.pduConfig.pduName = "PoseFrame";
    s.pduConfig.length = 0x0102030405060708ULL;
    s.pduConfig.flag = true;
    IsignalInfo signal;
    signal.name = "speed";
    signal.typeName = "uint16";
    signal.flag = true;
    signal.valueA = 4;
    signal.valueB = 12;
    signal.text = "Intel";
    s.pduConfig.isignals = {signal, signal};
    s.pduConfig.isignals[1].name = "heading";
    return s;
}

inline SerializeConfig MakeRecordSerializeConfig(int seed) {
    SerializeConfig c;
    c.type = SerializationType::kSomeip;
    c.structPolicy = StructSerializationPolicy::kAligned;
    c.name = Text("config", seed);
    return c;
}

inline EventRegisterInfo MakeEventRegister(int seed, int properties = 2) {
    EventRegisterInfo e;
    e.name = Text("PoseEvent", seed);
    e.appName = Text("navigation", seed);
    EventInfo dds;
    dds.dds = MakeDdsEvent(seed, properties);
    EventInfo someip;
    someip.someip = MakeSomeipEvent(seed);
    e.eventMap_[DriverType::DDS] = dds;
    e.eventMap_[DriverType::SOMEIP] = someip;
    e.text = "/Norvane/AP/Pose";
    e.eventType = Text("PoseEventType", seed);
    e.pid = -12345 - seed;
    e.serializeConfig = MakeRecordSerializeConfig(seed);
    e.serializeText = "someip";
    e.isRegister = true;
    return e;
}

inline MethodRegisterInfo MakeMethodRegister(int seed) {
    MethodRegisterInfo m;
    m.appName = Text("planner", seed);
    m.name = Text("PlanRoute", seed);
    MethodInfo dds;
    dds.dds.text = "dds method";
    dds.dds.instanceShortName = "/plan/dds";
    dds.dds.requestTopicName = "plan/request";
    dds.dds.replyTopicName = "plan/reply";
    dds.dds.shortValue = 5;
    dds.dds.valueA = 6;
    dds.dds.valueB = 7;
    dds.dds.requestDurability = DurabilityQos::kPersistent;
    dds.dds.replyDurability = DurabilityQos::kTransient;
    dds.dds.requestHistory = HistoryQos::kKeepAll;
    dds.dds.replyHistory = HistoryQos::kKeepAll;
    dds.dds.transports = {TransportQos::kIceoryx};
    dds.dds.valueC = 8;
    dds.dds.valueD = 9;
    dds.dds.valueE = 10;
    dds.dds.valueF = 11;
    dds.dds.e2eConfig = MakeE2EConfig(seed + 2);
    dds.dds.reliability = ReliabilityKind::kReliable;
    MethodInfo someip;
    someip.someip.methodId = 0x0001;
    someip.someip.instanceShortName = "/plan/someip";
    someip.someip.wideValue = 0x01020304;
    someip.someip.valueA = 3;
    someip.someip.flag = true;
    someip.someip.e2eConfig = MakeE2EConfig(seed + 3);
    someip.someip.requestBytes = {1, 2, 3};
    someip.someip.replyBytes = {4};
    m.methodMap_[DriverType::DDS] = dds;
    m.methodMap_[DriverType::SOMEIP] = someip;
    m.instanceId = 2;
    m.serviceId = 0x5701;
    m.inputDatatypes = {"/Norvane/AP/Route", "uint32"};
    m.replyDatatypes = {"/Norvane/AP/Path"};
    m.pid = 4242 + seed;
    m.inputSerializeConfig = MakeRecordSerializeConfig(seed);
    m.outputSerializeConfig = MakeRecordSerializeConfig(seed + 1);
    m.methodOutputDatatype = "/Norvane/AP/PlanOutput";
    m.errorDomains = {ErrorDomainInfo{0x8000000000000001ULL, "PlanErrors"}};
    m.text = "method text";
    m.flag = true;
    m.isRegister = true;
    return m;
}

inline LatencyIndex MakeLatencyIndex(int seed) {
    LatencyIndex i;
    i.drivers = {DriverType::SOMEIP, DriverType::DDS};
    i.serviceId = 0x1234;
    i.instanceId = static_cast<std::uint16_t>(seed + 1);
    i.topicName = Text("latency/topic", seed);
    i.eventId = 0x8002;
    return i;
}

inline NodeRegisterInfo MakeNodeRegister(int seed) {
    NodeRegisterInfo n;
    n.pid = 777 + seed;
    n.nodeName = Text("node", seed);
    n.infoKind = 1;
    n.registerState.isRegister = true;
    EventE2EInfo e2e;
    e2e.serviceId = 0x10;
    e2e.instanceId = 0x20;
    e2e.driver = DriverType::SOMEIP;
    e2e.eventId = 0x8003;
    e2e.eventTopicName = "e2e/topic";
    e2e.e2eConfig = MakeE2EConfig(seed + 4);
    n.e2eList.eventE2EInfos = {e2e, e2e};
    n.e2eList.eventE2EInfos[1].driver = DriverType::DDS;
    return n;
}

inline LatencyAppInfo MakeLatencyAppInfo(int seed) {
    LatencyAppInfo l;
    l.kind = 1;
    l.applicationName = Text("latency app", seed);
    l.index = MakeLatencyIndex(seed);
    l.status = LatencyStatus{LatencyMode::kOn, true, true};
    l.result = LatencyResult{100, 0xFFFFFFFFFFFFFFFFULL, 1};
    l.sampleCount = 1000000;
    return l;
}

// Every member filled, although infoType selects only one of them.
inline AppRegisterInfo MakeAppRegisterInfo(int seed) {
    AppRegisterInfo a;
    a.isPub = true;
    a.infoType = AppRegisterInfoType::LATENCY;
    a.eventInfo = MakeEventRegister(seed);
    a.methodInfo = MakeMethodRegister(seed);
    a.fieldInfo.appName = Text("field app", seed);
    a.fieldInfo.fieldType = "FieldType";
    a.fieldInfo.drivers = {{DriverType::DDS, "/field/dds"}, {DriverType::SOMEIP, "/field/someip"}};
    a.fieldInfo.instanceId = 9;
    a.fieldInfo.isRegister = true;
    a.fieldInfo.pid = 31337;
    a.nodeInfo = MakeNodeRegister(seed);
    a.latencyInfo = MakeLatencyAppInfo(seed);
    a.listenerResult[ListenerType::kLatencyTimeout] = ListenerParams{"guid-0001", 10, 20};
    a.listenerResult[static_cast<ListenerType>(7)] = ListenerParams{"guid-0007", 70, 80};
    return a;
}

// The benchmark's realistic registration: one event on both drivers, E2E, 5 properties.
inline AppRegisterInfo MakeEventRegistration() {
    AppRegisterInfo a;
    a.isPub = true;
    a.infoType = AppRegisterInfoType::EVENT;
    a.eventInfo = MakeEventRegister(1, 5);
    return a;
}

inline QuerySubEventInfoIndex MakeSubEventIndex(int seed) {
    QuerySubEventInfoIndex q;
    q.serviceId = 0x5700;
    q.instanceId = 1;
    q.driver = DriverType::SOMEIP;
    q.eventId = 0x8001;
    q.topicName = Text("sub/topic", seed);
    q.eventType = "PoseEventType";
    q.source = static_cast<DriverType>(2);
    return q;
}

inline LatencySwitch MakeLatencySwitch(int seed) {
    return LatencySwitch{LatencyMode::kOn, MakeLatencyIndex(seed)};
}

inline LatencyQueryInfo MakeLatencyQueryInfo(int seed) {
    return LatencyQueryInfo{static_cast<std::uint16_t>(500 + seed), MakeLatencyIndex(seed)};
}

inline EventInfoWithPubSub MakeEventWithPubSub(int seed) {
    EventInfoWithPubSub e;
    e.registerInfo = MakeEventRegister(seed);
    e.subApps = {"sub-a", "sub-b", ""};
    e.pubApp = "pub";
    e.isOnline = true;
    return e;
}

inline NodeInfo MakeNodeInfo(int seed) {
    NodeInfo n;
    n.nodeName = Text("node", seed);
    n.serviceInstances = {"/svc/1", "/svc/2"};
    n.pubEvents = {"PoseEvent"};
    n.subEvents = {"SpeedEvent", "PathEvent"};
    n.methods = {"PlanRoute"};
    n.fields = {"Mode"};
    n.pid = 555;
    return n;
}

}  // namespace wardend::test

#endif
