#include "client/client_drivers.h"

#include <mutex>

#include "platform/driver/proloc/proloc_driver.h"
#include "platform/driver/someip/someip_driver.h"
#include "platform/vcc/driver/driver_module.h"
#include "platform/vcc/service_config.h"

namespace vesk::wardend::proxy {

std::shared_ptr<lumo::vcc::driver::Driver> AcquireDriver(lumo::vcc::driver::DriverType type) {
    static std::mutex mutex;  // one driver per type even when proxies are built concurrently
    std::lock_guard<std::mutex> lock(mutex);
    if (auto driver = lumo::vcc::driver::DriverRegistry::Get(type)) {
        return driver;
    }
    std::shared_ptr<lumo::vcc::driver::Driver> driver;
    switch (type) {
        case lumo::vcc::driver::DriverType::kProloc:
            driver = std::make_shared<lumo::driver::proloc::ProlocDriver>();
            break;
        case lumo::vcc::driver::DriverType::kDds: {
            ara::core::String error;
            const auto config =
                lumo::vcc::ServiceConfig::Load(error).value_or(lumo::vcc::ServiceConfig{});
            // A module: a process that does not call over DDS never maps Cyclone DDS.
            driver = lumo::vcc::driver::LoadDdsDriver(config.ddsCycloneConfig);
            break;
        }
        case lumo::vcc::driver::DriverType::kSomeip:
            driver = std::make_shared<lumo::driver::someip::SomeipDriver>();
            break;
    }
    lumo::vcc::driver::DriverRegistry::Register(driver);
    return driver;
}

}  // namespace vesk::wardend::proxy
