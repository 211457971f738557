#ifndef RECORDS_WARDEND_RECORDS_H
#define RECORDS_WARDEND_RECORDS_H

// The records that cross the application and tools services and that more than one registry
// keeps. Field order is wire order: the serializers walk enumerate, so never reorder fields.

#include <cstdint>
#include <map>
#include <vector>

#include "platform/core/string.h"
#include "records/record_fields.h"

namespace vesk::wardend {

using ara::core::String;

enum class DriverType : std::uint16_t { DDS = 0, SOMEIP = 1 };

enum class SerializationType : std::uint32_t {
    kDefault = 0,
    kSomeip = 1,
    kSignalBased = 2,
};
enum class StructSerializationPolicy : std::uint8_t { kPacked = 0, kAligned = 1 };
enum class DurabilityQos : std::uint8_t {
    kVolatile = 0,
    kTransientLocal = 1,
    kTransient = 2,
    kPersistent = 3,
};
enum class HistoryQos : std::uint8_t { kKeepLast = 0, kKeepAll = 1 };
enum class ReliabilityKind : std::uint8_t { kBestEffort = 0, kReliable = 1 };
enum class ScheduleMode : std::uint8_t { kDefault = 0, kDirect = 1, kQueued = 2 };
enum class TransportQos : std::uint8_t { kUdp = 0, kTcp = 1, kShm = 2, kIceoryx = 3 };
// 255 means no E2E protection; lower values are configured profiles.
enum class E2EProfile : std::uint8_t {
    kProfile1 = 1,
    kProfile4 = 4,
    kProfile5 = 5,
    kProfile6 = 6,
    kProfile7 = 7,
    kProfile11 = 11,
    kProfile22 = 22,
    kProfile41 = 41,
    kNone = 255,
};
enum class E2EDataIDMode : std::uint8_t { kBoth = 0, kAlt = 1, kLow = 2, kNibble = 3 };
enum class LatencyMode : std::uint8_t { kOff = 0, kOn = 1 };
enum class ListenerType : std::uint16_t { kLatencyTimeout = 0 };

enum class AppRegisterInfoType : std::uint8_t {
    EVENT = 0,
    METHOD = 1,
    FIELD = 2,
    NODE = 3,
    LATENCY = 4,
    LISTENER = 5,
};

struct SerializeConfig {
    SerializationType type{};
    StructSerializationPolicy structPolicy{};
    String name;

    WARDEND_RECORD_FIELDS(SerializeConfig, type, structPolicy, name)
};

struct E2EConfigInfo {
    E2EProfile profile{};
    std::vector<std::uint32_t> dataIdList;
    bool flagA{};
    bool flagB{};
    std::uint32_t valueA{};
    std::uint32_t valueB{};
    std::uint16_t valueC{};
    std::uint32_t valueD{};
    E2EDataIDMode dataIdMode{};
    std::uint8_t stateParam1{};
    std::uint8_t stateParam2{};
    std::uint8_t stateParam3{};
    std::uint8_t stateParam4{};
    std::uint8_t stateParam5{};
    std::uint8_t stateParam6{};
    std::uint8_t stateParam7{};
    std::uint8_t stateParam8{};
    std::uint8_t stateParam9{};
    bool stateFlag{};
    std::uint32_t valueE{};

    WARDEND_RECORD_FIELDS(E2EConfigInfo, profile, dataIdList, flagA, flagB, valueA, valueB, valueC,
                          valueD, dataIdMode, stateParam1, stateParam2, stateParam3, stateParam4,
                          stateParam5, stateParam6, stateParam7, stateParam8, stateParam9,
                          stateFlag, valueE)
};

struct DDSEventInfo {
    std::uint16_t serviceId{};
    std::uint16_t instanceId{};
    std::uint16_t shortValue{};
    String topicName;
    String text;
    std::uint32_t valueA{};
    std::uint32_t valueB{};
    DurabilityQos durability{};
    HistoryQos history{};
    std::vector<TransportQos> transports;
    std::uint32_t valueC{};
    std::uint32_t valueD{};
    String instanceShortName;
    std::map<String, String> properties;
    ScheduleMode scheduleMode{};
    E2EConfigInfo e2eConfig;
    ReliabilityKind reliability{};
    bool flag{};

    WARDEND_RECORD_FIELDS(DDSEventInfo, serviceId, instanceId, shortValue, topicName, text, valueA,
                          valueB, durability, history, transports, valueC, valueD,
                          instanceShortName, properties, scheduleMode, e2eConfig, reliability, flag)
};

struct IsignalInfo {
    String name;
    String typeName;
    bool flag{};
    std::uint64_t valueA{};
    std::uint64_t valueB{};
    String text;

    WARDEND_RECORD_FIELDS(IsignalInfo, name, typeName, flag, valueA, valueB, text)
};

struct PduConfigInfo {
    String pduName;
    std::uint64_t length{};
    bool flag{};
    std::vector<IsignalInfo> isignals;

    WARDEND_RECORD_FIELDS(PduConfigInfo, pduName, length, flag, isignals)
};

struct SomeipEventInfo {
    std::uint16_t serviceId{};
    std::uint16_t instanceId{};
    std::uint32_t wideValue{};
    std::uint16_t eventId{};
    std::vector<std::uint16_t> eventGroupIds;
    String instanceShortName;
    std::uint16_t valueA{};
    std::uint32_t valueB{};
    std::uint16_t valueC{};
    bool flag{};
    E2EConfigInfo e2eConfig;
    std::vector<std::uint8_t> bytes;
    PduConfigInfo pduConfig;

    WARDEND_RECORD_FIELDS(SomeipEventInfo, serviceId, instanceId, wideValue, eventId, eventGroupIds,
                          instanceShortName, valueA, valueB, valueC, flag, e2eConfig, bytes,
                          pduConfig)
};

// The key of the owning map says which member is meaningful.
struct EventInfo {
    DDSEventInfo dds;
    SomeipEventInfo someip;

    WARDEND_RECORD_FIELDS(EventInfo, dds, someip)
};

struct EventRegisterInfo {
    String name;
    String appName;
    std::map<DriverType, EventInfo> eventMap_;
    String text;
    String eventType;
    std::int32_t pid{};
    SerializeConfig serializeConfig;
    String serializeText;
    bool isRegister{};

    WARDEND_RECORD_FIELDS(EventRegisterInfo, name, appName, eventMap_, text, eventType, pid,
                          serializeConfig, serializeText, isRegister)
};

struct EventInfoWithPubSub {
    EventRegisterInfo registerInfo;
    std::vector<String> subApps;
    String pubApp;
    bool isOnline{};

    WARDEND_RECORD_FIELDS(EventInfoWithPubSub, registerInfo, subApps, pubApp, isOnline)
};

struct DDSMethodInfo {
    String text;
    String instanceShortName;
    String requestTopicName;
    String replyTopicName;
    std::uint16_t shortValue{};
    std::uint32_t valueA{};
    std::uint32_t valueB{};
    DurabilityQos requestDurability{};
    DurabilityQos replyDurability{};
    HistoryQos requestHistory{};
    HistoryQos replyHistory{};
    std::vector<TransportQos> transports;
    std::uint32_t valueC{};
    std::uint32_t valueD{};
    std::uint32_t valueE{};
    std::uint32_t valueF{};
    E2EConfigInfo e2eConfig;
    ReliabilityKind reliability{};

    WARDEND_RECORD_FIELDS(DDSMethodInfo, text, instanceShortName, requestTopicName, replyTopicName,
                          shortValue, valueA, valueB, requestDurability, replyDurability,
                          requestHistory, replyHistory, transports, valueC, valueD, valueE, valueF,
                          e2eConfig, reliability)
};

struct SomeipMethodInfo {
    std::uint16_t methodId{};
    String instanceShortName;
    std::uint32_t wideValue{};
    std::uint16_t valueA{};
    bool flag{};
    E2EConfigInfo e2eConfig;
    std::vector<std::uint8_t> requestBytes;
    std::vector<std::uint8_t> replyBytes;

    WARDEND_RECORD_FIELDS(SomeipMethodInfo, methodId, instanceShortName, wideValue, valueA, flag,
                          e2eConfig, requestBytes, replyBytes)
};

struct MethodInfo {
    DDSMethodInfo dds;
    SomeipMethodInfo someip;

    WARDEND_RECORD_FIELDS(MethodInfo, dds, someip)
};

struct ErrorDomainInfo {
    std::uint64_t id{};
    String name;

    WARDEND_RECORD_FIELDS(ErrorDomainInfo, id, name)
};

// Holds the instance before the service, as the wire does.
struct MethodRegisterInfo {
    String appName;
    String name;
    std::map<DriverType, MethodInfo> methodMap_;
    std::uint16_t instanceId{};
    std::uint16_t serviceId{};
    std::vector<String> inputDatatypes;
    std::vector<String> replyDatatypes;
    std::int32_t pid{};
    SerializeConfig inputSerializeConfig;
    SerializeConfig outputSerializeConfig;
    String methodOutputDatatype;
    std::vector<ErrorDomainInfo> errorDomains;
    String text;
    bool flag{};
    bool isRegister{};

    WARDEND_RECORD_FIELDS(MethodRegisterInfo, appName, name, methodMap_, instanceId, serviceId,
                          inputDatatypes, replyDatatypes, pid, inputSerializeConfig,
                          outputSerializeConfig, methodOutputDatatype, errorDomains, text, flag,
                          isRegister)
};

struct FieldRegisterInfo {
    String appName;
    String fieldType;
    std::map<DriverType, String> drivers;
    std::uint16_t instanceId{};
    bool isRegister{};
    std::int32_t pid{};

    WARDEND_RECORD_FIELDS(FieldRegisterInfo, appName, fieldType, drivers, instanceId, isRegister,
                          pid)
};

struct EventE2EInfo {
    std::uint16_t serviceId{};
    std::uint16_t instanceId{};
    DriverType driver{};
    std::uint16_t eventId{};
    String eventTopicName;
    E2EConfigInfo e2eConfig;

    WARDEND_RECORD_FIELDS(EventE2EInfo, serviceId, instanceId, driver, eventId, eventTopicName,
                          e2eConfig)
};

struct NodeRegisterState {
    bool isRegister{};

    WARDEND_RECORD_FIELDS(NodeRegisterState, isRegister)
};

struct NodeE2EList {
    std::vector<EventE2EInfo> eventE2EInfos;

    WARDEND_RECORD_FIELDS(NodeE2EList, eventE2EInfos)
};

// What a NodeRegisterInfo carries: the node itself, or (any other value) its E2E entries.
inline constexpr std::uint16_t kNodeInfoKindNode = 0;

struct NodeRegisterInfo {
    std::int32_t pid{};
    String nodeName;
    std::uint16_t infoKind{};  // kNodeInfoKindNode: register or unregister; otherwise E2E entries
    NodeRegisterState registerState;
    NodeE2EList e2eList;

    WARDEND_RECORD_FIELDS(NodeRegisterInfo, pid, nodeName, infoKind, registerState, e2eList)
};

struct NodeInfo {
    String nodeName;
    std::vector<String> serviceInstances;
    std::vector<String> pubEvents;
    std::vector<String> subEvents;
    std::vector<String> methods;
    std::vector<String> fields;
    std::int32_t pid{};

    WARDEND_RECORD_FIELDS(NodeInfo, nodeName, serviceInstances, pubEvents, subEvents, methods,
                          fields, pid)
};

struct LatencyIndex {
    std::vector<DriverType> drivers;
    std::uint16_t serviceId{};
    std::uint16_t instanceId{};
    String topicName;
    std::uint16_t eventId{};

    WARDEND_RECORD_FIELDS(LatencyIndex, drivers, serviceId, instanceId, topicName, eventId)
};

struct LatencySwitch {
    LatencyMode mode{};
    LatencyIndex index;

    WARDEND_RECORD_FIELDS(LatencySwitch, mode, index)
};

struct LatencyQueryInfo {
    std::uint16_t period{};
    LatencyIndex index;

    WARDEND_RECORD_FIELDS(LatencyQueryInfo, period, index)
};

struct LatencyResult {
    std::uint64_t average{};
    std::uint64_t maximum{};
    std::uint64_t minimum{};

    WARDEND_RECORD_FIELDS(LatencyResult, average, maximum, minimum)
};

struct LatencyStatus {
    LatencyMode mode{};
    bool isPub{};
    bool isSub{};

    WARDEND_RECORD_FIELDS(LatencyStatus, mode, isPub, isSub)
};

// What a LatencyAppInfo reports. The field stays a plain byte: any other value arrives from
// the wire too, and is answered as a failure.
enum class LatencyInfoKind : std::uint8_t { kAcknowledge = 0, kResult = 1 };

struct LatencyAppInfo {
    std::uint8_t kind{};  // a LatencyInfoKind
    String applicationName;
    LatencyIndex index;
    LatencyStatus status;
    LatencyResult result;
    std::uint64_t sampleCount{};

    WARDEND_RECORD_FIELDS(LatencyAppInfo, kind, applicationName, index, status, result, sampleCount)
};

struct ListenerParams {
    String guid;
    std::uint32_t writerPid{};
    std::uint32_t readerPid{};

    WARDEND_RECORD_FIELDS(ListenerParams, guid, writerPid, readerPid)
};

// Carries all six members; infoType says which one counts.
struct AppRegisterInfo {
    bool isPub{};
    AppRegisterInfoType infoType{};
    EventRegisterInfo eventInfo;
    MethodRegisterInfo methodInfo;
    FieldRegisterInfo fieldInfo;
    NodeRegisterInfo nodeInfo;
    LatencyAppInfo latencyInfo;
    std::map<ListenerType, ListenerParams> listenerResult;

    WARDEND_RECORD_FIELDS(AppRegisterInfo, isPub, infoType, eventInfo, methodInfo, fieldInfo,
                          nodeInfo, latencyInfo, listenerResult)
};

struct QuerySubEventInfoIndex {
    std::uint16_t serviceId{};
    std::uint16_t instanceId{};
    DriverType driver{};
    std::uint16_t eventId{};
    String topicName;
    String eventType;
    DriverType source{};  // DDS (0) asks the event registry, anything else the E2E registry

    WARDEND_RECORD_FIELDS(QuerySubEventInfoIndex, serviceId, instanceId, driver, eventId, topicName,
                          eventType, source)
};

// The key under which the event registry hands an event to the latency handler; not on the
// wire.
struct EventAllDriverIndex {
    std::vector<DriverType> drivers;
    std::uint16_t ddsServiceId{};
    std::uint16_t ddsInstanceId{};
    String topicName;
    std::uint16_t someipServiceId{};
    std::uint16_t someipInstanceId{};
    std::uint16_t eventId{};

    WARDEND_RECORD_FIELDS(EventAllDriverIndex, drivers, ddsServiceId, ddsInstanceId, topicName,
                          someipServiceId, someipInstanceId, eventId)
};

}  // namespace vesk::wardend

#endif
