#include "daemon/drivers.h"

#include <memory>

#include "platform/driver/dds/dds_driver.h"
#include "platform/driver/proloc/proloc_driver.h"
#include "platform/vcc/driver/driver.h"
#include "platform/vcc/service_config.h"

namespace vesk::wardend {

using lumo::vcc::driver::DriverRegistry;
using lumo::vcc::driver::DriverType;

// A DDS participant is made only when a service is offered on DDS, so the driver costs
// nothing when it is not configured.
void RegisterDrivers() {
    ara::core::String error;  // an invalid section fails the assembly, which logs it
    const auto config = lumo::vcc::ServiceConfig::Load(error).value_or(lumo::vcc::ServiceConfig{});
    DriverRegistry::Register(std::make_shared<lumo::driver::proloc::ProlocDriver>());
    DriverRegistry::Register(std::make_shared<lumo::driver::dds::DdsDriver>(
        lumo::driver::dds::DdsDriverConfig{config.ddsCycloneConfig}));
}

void UnregisterDrivers() {
    DriverRegistry::Unregister(DriverType::kDds);
    DriverRegistry::Unregister(DriverType::kProloc);
}

}  // namespace vesk::wardend
