// The DDS driver module loads into a program that links the platform and nothing that uses
// statistics, DDS or the services: what the module needs of the program is there and exported.

#include <gtest/gtest.h>

#include "platform/vcc/driver/driver_module.h"

namespace {

using lumo::vcc::api::types::DriverType;

TEST(DdsModuleTest, LoadsIntoAProgramOfThePlatformAlone) {
    const auto driver = lumo::vcc::driver::LoadDdsDriver("");
    ASSERT_NE(driver, nullptr);
    EXPECT_EQ(driver->Type(), DriverType::kDds);
    // A second driver comes from the module already open.
    EXPECT_NE(lumo::vcc::driver::LoadDdsDriver(""), nullptr);
}

}  // namespace
