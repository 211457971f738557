#ifndef CLIENT_CLIENT_DRIVERS_H
#define CLIENT_CLIENT_DRIVERS_H

#include <memory>

#include "platform/vcc/driver/driver.h"

namespace vesk::wardend::proxy {

// The process's driver of that type: the one registered already (the daemon's own, in the same
// process), or one made and registered now. Null when this build has no such driver.
std::shared_ptr<lumo::vcc::driver::Driver> AcquireDriver(lumo::vcc::driver::DriverType type);

}  // namespace vesk::wardend::proxy

#endif
