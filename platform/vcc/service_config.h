#ifndef PLATFORM_VCC_SERVICE_CONFIG_H
#define PLATFORM_VCC_SERVICE_CONFIG_H

// The "Services" section of vesk.json: on which drivers each service is offered and where.
//
//   "Services": {
//     "someip": { "sdAddress": "127.0.0.1", "sdPort": 30490, "sdMulticast": "" },
//     "dds":    { "domain": 0, "cycloneConfig": "<CycloneDDS>...</CycloneDDS>" },
//     "App":    { "drivers": ["proloc", "someip"], "address": "127.0.0.1", "port": 30501 },
//     "Tools":  { "drivers": ["proloc", "someip"], "address": "127.0.0.1", "port": 30502 }
//   }
//
// Every key is optional; a service without an entry gets the built-in drivers on its default
// port. A section that is not as above (an unknown key or driver, a port out of range, a value
// of the wrong type) is invalid, and the services are not assembled.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/core/string.h"
#include "platform/vcc/api/types/driver_type.h"
#include "platform/vcc/api/types/entity_info.h"

namespace lumo::vcc {

struct ServiceBinding {
    std::vector<api::types::DriverType> drivers;
    ara::core::String address{"127.0.0.1"};
    std::optional<std::uint16_t> port;  // the interface's default when absent
    bool udp{false};                    // clients call over UDP
};

struct ServiceConfig {
    ara::core::String sdAddress{"127.0.0.1"};
    std::uint16_t sdPort{30490};
    ara::core::String sdMulticast;
    std::uint32_t ddsDomain{0};
    // Cyclone DDS configuration (XML or file URIs); CYCLONEDDS_URI, when set, applies after it.
    ara::core::String ddsCycloneConfig;
    std::map<ara::core::String, ServiceBinding> services;

    // The drivers a service without an entry is offered on.
    static std::vector<api::types::DriverType> DefaultDrivers();
    // The binding of a service by its interface name; the defaults when it has no entry.
    ServiceBinding Binding(const ara::core::String& serviceName) const;

    // Parses the section; nullopt with `error` set when it is invalid. A missing section (null)
    // gives the defaults. A service entry must name one of `services`, unless that is empty.
    static std::optional<ServiceConfig> Parse(const nlohmann::json* section,
                                              ara::core::String& error,
                                              const std::vector<ara::core::String>& services = {});
    // The section of the process's vesk.json, its entries checked against the declared services.
    static std::optional<ServiceConfig> Load(ara::core::String& error);
    // The services this program offers or calls, declared once at start-up: without it, an
    // entry with a misspelt name would be ignored and the service offered on the defaults.
    static void DeclareServices(std::vector<ara::core::String> names);
};

// The description of one entity on one driver, from the service's interface and its binding.
// Null when the interface does not have the entity.
std::shared_ptr<api::types::MethodInfo> MakeMethodInfo(
    const ara::com::ServiceIdentifierType& service, const ara::core::String& instance,
    std::uint32_t entityId, api::types::DriverType driver, const ServiceConfig& config);
std::shared_ptr<api::types::EventInfo> MakeEventInfo(const ara::com::ServiceIdentifierType& service,
                                                     const ara::core::String& instance,
                                                     std::uint32_t entityId,
                                                     api::types::DriverType driver,
                                                     const ServiceConfig& config);

}  // namespace lumo::vcc

#endif
