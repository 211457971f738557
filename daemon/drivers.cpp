#include "daemon/drivers.h"

#include <memory>

#include "platform/driver/proloc/proloc_driver.h"
#include "platform/vcc/driver/driver.h"

namespace vesk::wardend {

using lumo::vcc::driver::DriverRegistry;
using lumo::vcc::driver::DriverType;

void RegisterDrivers() {
    DriverRegistry::Register(std::make_shared<lumo::driver::proloc::ProlocDriver>());
}

void UnregisterDrivers() {
    DriverRegistry::Unregister(DriverType::kProloc);
}

}  // namespace vesk::wardend
