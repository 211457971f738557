#include "examples/wardend_example/example_app.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace vesk::wardend::example {

namespace {

constexpr std::uint16_t kServiceId = 0x1234;
constexpr std::uint16_t kInstanceId = 1;
constexpr std::uint16_t kEventGroupId = 1;
constexpr std::uint16_t kSetGearMethodId = 0x0001;
constexpr std::uint64_t kSpeedErrorDomain = 5;
// The protection the example expects on what it receives.
constexpr std::uint32_t kVehicleSpeedDataId = 0x0101;

const String kMethodName = "SetGear";
const String kFieldType = "/Norvane/AP/Speed";

AppRegisterInfo Info(AppRegisterInfoType type, bool isPub) {
    AppRegisterInfo info;
    info.infoType = type;
    info.isPub = isPub;
    return info;
}

AppRegisterInfo NodeInfo(const String& node, std::int32_t pid, bool isRegister) {
    auto info = Info(AppRegisterInfoType::NODE, false);
    info.nodeInfo.pid = pid;
    info.nodeInfo.nodeName = node;
    info.nodeInfo.infoKind = kNodeInfoKindNode;
    info.nodeInfo.registerState.isRegister = isRegister;
    return info;
}

AppRegisterInfo EventInfo(const ExampleEvent& event, const String& node, std::int32_t pid,
                          bool isRegister) {
    auto info = Info(AppRegisterInfoType::EVENT, event.published);
    auto& record = info.eventInfo;
    record.name = event.type;
    record.appName = node;
    record.text = event.type;
    record.eventType = event.type;
    record.pid = pid;
    record.serializeConfig.type = SerializationType::kSomeip;
    record.isRegister = isRegister;

    auto& dds = record.eventMap_[DriverType::DDS].dds;
    dds.serviceId = event.serviceId;
    dds.instanceId = event.instanceId;
    dds.topicName = event.topic;
    dds.durability = DurabilityQos::kVolatile;
    dds.history = HistoryQos::kKeepLast;
    dds.reliability = ReliabilityKind::kReliable;
    dds.transports = {TransportQos::kUdp};

    auto& someip = record.eventMap_[DriverType::SOMEIP].someip;
    someip.serviceId = event.serviceId;
    someip.instanceId = event.instanceId;
    someip.eventId = event.eventId;
    someip.eventGroupIds = {kEventGroupId};
    if (!event.published) {
        // A subscriber declares the E2E protection it checks.
        someip.e2eConfig.profile = E2EProfile::kProfile4;
        someip.e2eConfig.dataIdList = {kVehicleSpeedDataId};
        dds.e2eConfig.profile = E2EProfile::kProfile4;
        dds.e2eConfig.dataIdList = {kVehicleSpeedDataId};
    }
    return info;
}

AppRegisterInfo MethodInfo(const String& node, std::int32_t pid, bool isRegister) {
    auto info = Info(AppRegisterInfoType::METHOD, true);
    auto& record = info.methodInfo;
    record.appName = node;
    record.name = kMethodName;
    record.serviceId = kServiceId;
    record.instanceId = kInstanceId;
    record.pid = pid;
    record.inputDatatypes = {"/Norvane/AP/GearState"};
    record.replyDatatypes = {"/Norvane/AP/GearState"};
    record.inputSerializeConfig.type = SerializationType::kSomeip;
    record.outputSerializeConfig.type = SerializationType::kSomeip;
    record.methodOutputDatatype = "/Norvane/AP/GearState";
    record.errorDomains = {ErrorDomainInfo{kSpeedErrorDomain, "Speed"}};
    record.isRegister = isRegister;

    auto& dds = record.methodMap_[DriverType::DDS].dds;
    dds.text = kMethodName;
    dds.requestTopicName = "example/SetGear/request";
    dds.replyTopicName = "example/SetGear/reply";
    dds.reliability = ReliabilityKind::kReliable;
    record.methodMap_[DriverType::SOMEIP].someip.methodId = kSetGearMethodId;
    return info;
}

AppRegisterInfo FieldInfo(const String& node, std::int32_t pid, bool isRegister) {
    auto info = Info(AppRegisterInfoType::FIELD, true);
    auto& record = info.fieldInfo;
    record.appName = node;
    record.fieldType = kFieldType;
    record.drivers = {{DriverType::DDS, node + "_speed_dds"},
                      {DriverType::SOMEIP, node + "_speed_someip"}};
    record.instanceId = kInstanceId;
    record.pid = pid;
    record.isRegister = isRegister;
    return info;
}

}  // namespace

const std::vector<ExampleEvent>& ExampleEvents() {
    static const std::vector<ExampleEvent> events{
        {"/Norvane/AP/Pose", true, kServiceId, kInstanceId, "example/pose", 0x8001},
        {"/Norvane/AP/Trajectory", true, kServiceId, kInstanceId, "example/trajectory", 0x8002},
        // Published by somebody else: the vehicle's speed service.
        {"/Norvane/AP/VehicleSpeed", false, 0x1300, 1, "vehicle/speed", 0x8001},
    };
    return events;
}

std::vector<AppRegisterInfo> Registrations(const String& node, std::int32_t pid) {
    std::vector<AppRegisterInfo> infos{NodeInfo(node, pid, true)};
    for (const auto& event : ExampleEvents()) {
        infos.push_back(EventInfo(event, node, pid, true));
    }
    infos.push_back(MethodInfo(node, pid, true));
    infos.push_back(FieldInfo(node, pid, true));
    return infos;
}

std::vector<AppRegisterInfo> Unregistrations(const String& node, std::int32_t pid) {
    std::vector<AppRegisterInfo> infos{FieldInfo(node, pid, false), MethodInfo(node, pid, false)};
    for (const auto& event : ExampleEvents()) {
        infos.push_back(EventInfo(event, node, pid, false));
    }
    infos.push_back(NodeInfo(node, pid, false));
    return infos;
}

std::vector<DriverType> MatchingDrivers(const LatencyIndex& index, const ExampleEvent& event) {
    std::vector<DriverType> drivers;
    if (index.serviceId != event.serviceId || index.instanceId != event.instanceId) {
        return drivers;
    }
    for (const DriverType driver : index.drivers) {
        const bool match = driver == DriverType::DDS ? index.topicName == event.topic
                                                     : index.eventId == event.eventId;
        if (match && std::find(drivers.begin(), drivers.end(), driver) == drivers.end()) {
            drivers.push_back(driver);
        }
    }
    return drivers;
}

std::vector<AppRegisterInfo> LatencyReporter::OnSwitch(const LatencySwitch& latencySwitch) {
    std::vector<AppRegisterInfo> acks;
    std::lock_guard<std::mutex> lock(mutex_);
    const auto& events = ExampleEvents();
    for (std::size_t i = 0; i < events.size(); ++i) {
        auto drivers = MatchingDrivers(latencySwitch.index, events[i]);
        if (drivers.empty()) {
            continue;
        }
        auto& measured = events_[i];
        measured.index = latencySwitch.index;
        measured.index.drivers = std::move(drivers);
        measured.published = events[i].published;
        measured.mode = latencySwitch.mode;
        measured.count = 0;

        auto ack = Info(AppRegisterInfoType::LATENCY, events[i].published);
        auto& latency = ack.latencyInfo;
        latency.kind = static_cast<std::uint8_t>(LatencyInfoKind::kAcknowledge);
        latency.applicationName = node_;
        latency.index = measured.index;
        latency.status.mode = latencySwitch.mode;
        latency.status.isPub = events[i].published;
        latency.status.isSub = !events[i].published;
        acks.push_back(std::move(ack));
    }
    return acks;
}

void LatencyReporter::Record(std::uint64_t micros) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& [position, measured] : events_) {
        if (measured.mode == LatencyMode::kOff) {
            continue;
        }
        if (measured.count == 0) {
            measured.sum = 0;
            measured.maximum = 0;
            measured.minimum = std::numeric_limits<std::uint64_t>::max();
        }
        ++measured.count;
        measured.sum += micros;
        measured.maximum = std::max(measured.maximum, micros);
        measured.minimum = std::min(measured.minimum, micros);
    }
}

std::vector<AppRegisterInfo> LatencyReporter::TakeReports() {
    std::vector<AppRegisterInfo> reports;
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto& [position, measured] : events_) {
        if (measured.mode == LatencyMode::kOff || measured.count == 0) {
            continue;
        }
        auto report = Info(AppRegisterInfoType::LATENCY, measured.published);
        auto& latency = report.latencyInfo;
        latency.kind = static_cast<std::uint8_t>(LatencyInfoKind::kResult);
        latency.applicationName = node_;
        latency.index = measured.index;
        latency.status.mode = measured.mode;
        latency.status.isPub = measured.published;
        latency.status.isSub = !measured.published;
        latency.result.average = measured.sum / measured.count;
        latency.result.maximum = measured.maximum;
        latency.result.minimum = measured.minimum;
        latency.sampleCount = measured.count;
        reports.push_back(std::move(report));
        measured.count = 0;
    }
    return reports;
}

void LatencyReporter::Reset() {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.clear();
}

}  // namespace vesk::wardend::example
