#ifndef PLATFORM_VCC_DRIVER_DRIVER_MODULE_H
#define PLATFORM_VCC_DRIVER_DRIVER_MODULE_H

// Drivers built as modules and loaded only when a configuration names them, so that a process
// that does not use one never maps its libraries. The DDS driver is one: Cyclone DDS brings
// libddsc, OpenSSL and iceoryx with it, several megabytes of resident memory.
//
// A module is looked for, in this order, in the installed layout relative to the running
// program (bin/ -> lib/wardend/), in the build tree when the program lies below it, and in the
// installed library directory; never in the current directory. The program must export its
// symbols to the module (CMake: a link to wardend_module_host or wardend_client), since the module
// uses the program's own log and framework rather than copies of them.

#include <memory>

#include "platform/core/string.h"
#include "platform/vcc/driver/driver.h"

namespace lumo::vcc::driver {

// A new DDS driver from the module, or null with a log line that says why. Any thread; the
// module stays loaded until the process ends.
std::shared_ptr<Driver> LoadDdsDriver(const ara::core::String& cycloneConfig);

}  // namespace lumo::vcc::driver

// The module's entry point: stores a new driver in *out.
extern "C" {
using WardendMakeDdsDriverFn = void (*)(const char* cycloneConfig,
                                        std::shared_ptr<lumo::vcc::driver::Driver>* out);
}
#define WARDEND_MAKE_DDS_DRIVER_SYMBOL "WardendMakeDdsDriver"
#define WARDEND_DDS_MODULE_FILE "libwardend_dds.so"

#endif
