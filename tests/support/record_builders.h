#ifndef TESTS_SUPPORT_RECORD_BUILDERS_H
#define TESTS_SUPPORT_RECORD_BUILDERS_H

#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

// Registration records in the shapes the registry, catalogue and service tests need.

#include "records/wardend_records.h"
#include "tests/support/memory_log.h"

namespace wardend::test {

using vesk::wardend::AppRegisterInfo;
using vesk::wardend::AppRegisterInfoType;
using vesk::wardend::DriverType;
using vesk::wardend::E2EProfile;
using vesk::wardend::EventRegisterInfo;
using vesk::wardend::FieldRegisterInfo;
using vesk::wardend::MethodRegisterInfo;
using vesk::wardend::QuerySubEventInfoIndex;

// The registries are process-wide singletons: each test takes service ids of its own.
inline std::uint16_t FreshServiceId() {
    static std::atomic<std::uint16_t> next{1000};
    return next += 10;
}

struct EventShape {
    explicit EventShape(std::string appName = {}, std::string eventType = {},
                        std::int32_t appPid = 0, std::uint16_t service = 0)
        : app(std::move(appName)), type(std::move(eventType)), pid(appPid), serviceId(service) {}

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

inline EventRegisterInfo Event(const EventShape& shape, bool dds, bool someip) {
    EventRegisterInfo info;
    info.appName = shape.app;
    info.eventType = shape.type;
    info.text = shape.type;
    info.pid = shape.pid;
    info.isRegister = true;
    if (dds) {
        auto& entry = info.eventMap_[DriverType::DDS].dds;
        entry.serviceId = shape.serviceId;
        entry.instanceId = shape.instanceId;
        entry.topicName = shape.topic;
        entry.instanceShortName = shape.shortName;
        entry.e2eConfig.profile = shape.profile;
    }
    if (someip) {
        auto& entry = info.eventMap_[DriverType::SOMEIP].someip;
        entry.serviceId = shape.serviceId;
        entry.instanceId = shape.instanceId;
        entry.eventId = shape.eventId;
        entry.instanceShortName = shape.shortName;
        entry.e2eConfig.profile = shape.profile;
    }
    return info;
}

struct MethodShape {
    explicit MethodShape(std::string appName = {}, std::string methodName = {},
                         std::int32_t appPid = 0, std::uint16_t service = 0)
        : app(std::move(appName)), name(std::move(methodName)), pid(appPid), serviceId(service) {}

    std::string app;
    std::string name;
    std::int32_t pid{};
    std::uint16_t serviceId{};
    std::uint16_t instanceId{1};
    std::uint16_t methodId{3};
    std::string shortName;
};

inline MethodRegisterInfo Method(const MethodShape& shape, bool dds, bool someip) {
    MethodRegisterInfo info;
    info.appName = shape.app;
    info.name = shape.name;
    info.pid = shape.pid;
    info.serviceId = shape.serviceId;
    info.instanceId = shape.instanceId;
    info.isRegister = true;
    if (dds) {
        auto& entry = info.methodMap_[DriverType::DDS].dds;
        entry.text = "m";
        entry.requestTopicName = "req";
        entry.replyTopicName = "rep";
        entry.instanceShortName = shape.shortName;
    }
    if (someip) {
        auto& entry = info.methodMap_[DriverType::SOMEIP].someip;
        entry.methodId = shape.methodId;
        entry.instanceShortName = shape.shortName;
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

// A subscriber's question about the event it subscribes to.
inline QuerySubEventInfoIndex SubEventIndex(std::uint16_t serviceId, DriverType driver,
                                            std::string topic, std::string eventType = {},
                                            std::uint16_t instanceId = 1,
                                            std::uint16_t eventId = 0) {
    QuerySubEventInfoIndex index;
    index.serviceId = serviceId;
    index.instanceId = instanceId;
    index.driver = driver;
    index.eventId = eventId;
    index.topicName = std::move(topic);
    index.eventType = std::move(eventType);
    return index;
}

// A registration as the application service receives it.
inline AppRegisterInfo App(AppRegisterInfoType type, bool isPub = false) {
    AppRegisterInfo info;
    info.infoType = type;
    info.isPub = isPub;
    return info;
}

// A node's registration, as an application sends it first.
inline AppRegisterInfo NodeApp(const std::string& name, std::int32_t pid) {
    AppRegisterInfo info = App(AppRegisterInfoType::NODE);
    info.nodeInfo.nodeName = name;
    info.nodeInfo.pid = pid;
    info.nodeInfo.registerState.isRegister = true;
    return info;
}

// A test of one registry: a service id of its own and the log in memory.
class RegistryTest : public MemoryLogTest {
protected:
    const std::uint16_t service_ = FreshServiceId();
    const std::string svc_ = std::to_string(service_);
    const std::int32_t self_ = getpid();
};

}  // namespace wardend::test

#endif
