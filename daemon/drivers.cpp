#include "daemon/drivers.h"

#include <algorithm>
#include <memory>

#include "platform/driver/proloc/proloc_driver.h"
#include "platform/driver/someip/someip_driver.h"
#include "platform/vcc/driver/driver.h"
#include "platform/vcc/driver/driver_module.h"
#include "platform/vcc/service_config.h"

namespace vesk::wardend {

using lumo::vcc::driver::DriverRegistry;
using lumo::vcc::driver::DriverType;

namespace {

bool NamesDds(const lumo::vcc::ServiceConfig& config) {
    return std::any_of(config.services.begin(), config.services.end(), [](const auto& service) {
        const auto& drivers = service.second.drivers;
        return std::find(drivers.begin(), drivers.end(), DriverType::kDds) != drivers.end();
    });
}

}  // namespace

// Sockets and DDS participants are made only for the services configured on them. The DDS
// driver is a module, loaded only when a service names DDS, so that a daemon without DDS never
// maps Cyclone DDS and the libraries it brings; a module that does not load has logged why,
// and the assembly of the service that names DDS fails.
void RegisterDrivers() {
    ara::core::String error;  // an invalid section fails the assembly, which logs it
    const auto config = lumo::vcc::ServiceConfig::Load(error).value_or(lumo::vcc::ServiceConfig{});
    DriverRegistry::Register(std::make_shared<lumo::driver::proloc::ProlocDriver>());
    if (NamesDds(config)) {
        DriverRegistry::Register(lumo::vcc::driver::LoadDdsDriver(config.ddsCycloneConfig));
    }
    DriverRegistry::Register(std::make_shared<lumo::driver::someip::SomeipDriver>());
}

void UnregisterDrivers() {
    DriverRegistry::Unregister(DriverType::kSomeip);
    DriverRegistry::Unregister(DriverType::kDds);
    DriverRegistry::Unregister(DriverType::kProloc);
}

}  // namespace vesk::wardend
