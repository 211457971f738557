#ifndef TESTS_UNIT_REGISTRY_REGISTRY_BUILDERS_H
#define TESTS_UNIT_REGISTRY_REGISTRY_BUILDERS_H

#include <atomic>
#include <cstdint>
#include <string>

#include "records/wardend_records.h"

namespace wardend::test {

using vesk::wardend::DriverType;
using vesk::wardend::E2EProfile;
using vesk::wardend::EventInfo;
using vesk::wardend::EventRegisterInfo;
using vesk::wardend::FieldRegisterInfo;
using vesk::wardend::MethodInfo;
using vesk::wardend::MethodRegisterInfo;

// The registries are process-wide singletons: each test takes service ids of its own.
inline std::uint16_t FreshServiceId() {
    static std::atomic<std::uint16_t> next{1000};
    return next += 10;
}

struct EventSpec {
    std::string app;
    std::string type;
    std::int32_t pid{};
    std::uint16_t serviceId{};
    std::uint16_t instanceId{1};
    std::string topic{"topic"};
    std::uint16_t eventId{7};
    std::string shortName;
    E2EProfile profile{E2EProfile::kNone};
};

inline EventInfo DdsEntry(const EventSpec& spec) {
    EventInfo entry;
    entry.dds.serviceId = spec.serviceId;
    entry.dds.instanceId = spec.instanceId;
    entry.dds.topicName = spec.topic;
    entry.dds.instanceShortName = spec.shortName;
    entry.dds.e2eConfig.profile = spec.profile;
    return entry;
}

inline EventInfo SomeipEntry(const EventSpec& spec) {
    EventInfo entry;
    entry.someip.serviceId = spec.serviceId;
    entry.someip.instanceId = spec.instanceId;
    entry.someip.eventId = spec.eventId;
    entry.someip.instanceShortName = spec.shortName;
    entry.someip.e2eConfig.profile = spec.profile;
    return entry;
}

inline EventRegisterInfo Event(const EventSpec& spec, bool dds, bool someip) {
    EventRegisterInfo info;
    info.appName = spec.app;
    info.eventType = spec.type;
    info.text = spec.type;
    info.pid = spec.pid;
    info.isRegister = true;
    if (dds) {
        info.eventMap_[DriverType::DDS] = DdsEntry(spec);
    }
    if (someip) {
        info.eventMap_[DriverType::SOMEIP] = SomeipEntry(spec);
    }
    return info;
}

struct MethodSpec {
    std::string app;
    std::string name;
    std::int32_t pid{};
    std::uint16_t serviceId{};
    std::uint16_t instanceId{1};
    std::uint16_t methodId{3};
    std::string shortName;
};

inline MethodRegisterInfo Method(const MethodSpec& spec, bool dds, bool someip) {
    MethodRegisterInfo info;
    info.appName = spec.app;
    info.name = spec.name;
    info.pid = spec.pid;
    info.serviceId = spec.serviceId;
    info.instanceId = spec.instanceId;
    info.isRegister = true;
    if (dds) {
        MethodInfo entry;
        entry.dds.text = "m";
        entry.dds.requestTopicName = "req";
        entry.dds.replyTopicName = "rep";
        entry.dds.instanceShortName = spec.shortName;
        info.methodMap_[DriverType::DDS] = entry;
    }
    if (someip) {
        MethodInfo entry;
        entry.someip.methodId = spec.methodId;
        entry.someip.instanceShortName = spec.shortName;
        info.methodMap_[DriverType::SOMEIP] = entry;
    }
    return info;
}

inline FieldRegisterInfo Field(const std::string& app, const std::string& type, std::int32_t pid,
                               std::uint16_t instanceId,
                               std::map<DriverType, std::string> drivers) {
    FieldRegisterInfo info;
    info.appName = app;
    info.fieldType = type;
    info.pid = pid;
    info.instanceId = instanceId;
    info.drivers = std::move(drivers);
    info.isRegister = true;
    return info;
}

}  // namespace wardend::test

#endif
