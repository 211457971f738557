#ifndef TESTS_UNIT_DDS_DDS_FIXTURE_H
#define TESTS_UNIT_DDS_DDS_FIXTURE_H

#include <string>

#include "platform/driver/dds/dds_driver.h"
#include "tests/support/answerer.h"
#include "tests/support/dds_domain.h"
#include "tests/support/memory_log.h"
#include "tests/support/method_calls.h"

namespace wardend::test {

using lumo::vcc::api::types::EventInfo;
using lumo::vcc::api::types::MethodInfo;
using lumo::vcc::driver::CallStatus;
using lumo::vcc::driver::MethodHandler;
using namespace std::chrono_literals;

inline constexpr std::uint16_t kAppService = 0x5700;
inline constexpr std::uint32_t kRegisterAppInfo = 60621;
inline constexpr std::uint32_t kLatencySwitch = 30161;

// RegisterAppInfo and the latency switch event of the App service on DDS, as the assembly
// makes them; instance is the daemon's ("Wardend"."instanceId").
inline MethodInfo AppMethod(std::uint32_t domain, const std::string& instance) {
    MethodInfo info;
    info.driverType = lumo::vcc::api::types::DriverType::kDds;
    info.serviceId = kAppService;
    info.instanceId = "1";
    info.entityId = kRegisterAppInfo;
    info.dds.domainId = domain;
    info.dds.topic = "wardend/App/RegisterAppInfo";
    info.dds.targetInstance = instance;
    return info;
}

inline EventInfo AppEvent(std::uint32_t domain, const std::string& instance) {
    EventInfo info;
    info.driverType = lumo::vcc::api::types::DriverType::kDds;
    info.serviceId = kAppService;
    info.instanceId = "1";
    info.entityId = kLatencySwitch;
    info.dds.domainId = domain;
    info.dds.topic = "wardend/App/LatencySwitch";
    info.dds.targetInstance = instance;
    return info;
}

class DdsDriverTest : public MemoryLogTest {
protected:
    DdsTestDomain domain_;
};

}  // namespace wardend::test

#endif
