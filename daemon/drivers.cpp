#include "daemon/drivers.h"

#include <memory>

#include "platform/driver/dds/dds_driver.h"
#include "platform/driver/proloc/proloc_driver.h"
#include "platform/driver/someip/someip_driver.h"
#include "platform/vcc/driver/driver.h"
#include "platform/vcc/service_config.h"

namespace vesk::wardend {

using lumo::vcc::driver::DriverRegistry;
using lumo::vcc::driver::DriverType;

// Sockets and DDS participants are made only for the services configured on them, so a driver
// that no service uses costs nothing.
void RegisterDrivers() {
    ara::core::String error;  // an invalid section fails the assembly, which logs it
    const auto config = lumo::vcc::ServiceConfig::Load(error).value_or(lumo::vcc::ServiceConfig{});
    DriverRegistry::Register(std::make_shared<lumo::driver::proloc::ProlocDriver>());
    DriverRegistry::Register(std::make_shared<lumo::driver::dds::DdsDriver>(
        lumo::driver::dds::DdsDriverConfig{config.ddsCycloneConfig}));
    DriverRegistry::Register(std::make_shared<lumo::driver::someip::SomeipDriver>());
}

void UnregisterDrivers() {
    DriverRegistry::Unregister(DriverType::kSomeip);
    DriverRegistry::Unregister(DriverType::kDds);
    DriverRegistry::Unregister(DriverType::kProloc);
}

}  // namespace vesk::wardend
