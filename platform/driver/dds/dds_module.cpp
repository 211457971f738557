// The entry point of the DDS driver module (libwardend_dds.so), which LoadDdsDriver opens.
#include <memory>

#include "platform/driver/dds/dds_driver.h"
#include "platform/vcc/driver/driver_module.h"

extern "C" __attribute__((visibility("default"))) void WardendMakeDdsDriver(
    const char* cycloneConfig, std::shared_ptr<lumo::vcc::driver::Driver>* out) {
    *out = std::make_shared<lumo::driver::dds::DdsDriver>(
        lumo::driver::dds::DdsDriverConfig{cycloneConfig == nullptr ? "" : cycloneConfig});
}
