#include "platform/vcc/service_config.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

using lumo::vcc::ServiceConfig;
using lumo::vcc::api::types::DriverType;

TEST(ServiceConfigTest, AValidSectionIsReadWhole) {
    const auto section = nlohmann::json::parse(R"({
        "someip": {"sdAddress": "127.0.0.2", "sdPort": 40490, "sdMulticast": "239.0.0.1"},
        "dds": {"domain": 7, "cycloneConfig": "<CycloneDDS/>"},
        "Tools": {"drivers": ["dds"], "address": "127.0.0.3", "port": 40502, "udp": true}})");
    ara::core::String error;
    const auto config = ServiceConfig::Parse(&section, error);
    ASSERT_TRUE(config.has_value()) << error;
    EXPECT_EQ(config->sdAddress, "127.0.0.2");
    EXPECT_EQ(config->sdPort, 40490);
    EXPECT_EQ(config->sdMulticast, "239.0.0.1");
    EXPECT_EQ(config->ddsDomain, 7U);
    EXPECT_EQ(config->ddsCycloneConfig, "<CycloneDDS/>");
    const auto tools = config->Binding("Tools");
    EXPECT_EQ(tools.drivers, std::vector<DriverType>{DriverType::kDds});
    EXPECT_EQ(tools.address, "127.0.0.3");
    EXPECT_EQ(tools.port, std::optional<std::uint16_t>(40502));
    EXPECT_TRUE(tools.udp);
    EXPECT_EQ(config->Binding("App").drivers.size(), 2U) << "a service without an entry";
}

TEST(ServiceConfigTest, AnInvalidSectionIsRefusedSayingWhy) {
    struct Case {
        const char* json;
        const char* error;
    };
    const Case cases[] = {
        {R"([])", R"("Services" is not an object)"},
        {R"({"App": {"drivers": ["shm"]}})",
         R"("App": unknown driver "shm" (proloc, someip or dds))"},
        {R"({"App": {"drivers": "someip"}})", R"("App": "drivers" is not a list)"},
        {R"({"App": {"port": 70000}})", R"("App": "port" is not a port number)"},
        {R"({"App": {"port": 0}})", R"("App": "port" is not a port number)"},
        {R"({"App": {"udp": 1}})", R"("App": "udp" is not true or false)"},
        {R"({"App": {"adress": "127.0.0.1"}})", R"("App": unknown key "adress")"},
        {R"({"App": 5})", R"("App": is not an object)"},
        {R"({"someip": {"sdPort": "30490"}})", R"("someip": bad or unknown key "sdPort")"},
        {R"({"dds": {"domain": 233}})", R"("dds": bad or unknown key "domain")"},
        {R"({"Toolz": {"port": 30502}})", R"(unknown service "Toolz" (App or Tools))"},
    };
    for (const auto& c : cases) {
        const auto section = nlohmann::json::parse(c.json);
        ara::core::String error;
        EXPECT_FALSE(ServiceConfig::Parse(&section, error, {"App", "Tools"}).has_value()) << c.json;
        EXPECT_EQ(error, c.error) << c.json;
    }
}

// A missing file leaves the built-in drivers and ports: only a file that exists and cannot be
// parsed is refused.
TEST(ServiceConfigTest, AMissingFileGivesTheBuiltInDrivers) {
    setenv("VESK_CONFIG", "/nonexistent/vesk.json", 1);
    ara::core::String error;
    const auto config = ServiceConfig::Load(error);
    unsetenv("VESK_CONFIG");
    ASSERT_TRUE(config.has_value()) << error;
    const auto binding = config->Binding("App");
    EXPECT_EQ(binding.drivers, (std::vector<DriverType>{DriverType::kProloc, DriverType::kSomeip}));
    EXPECT_FALSE(binding.port.has_value());
    EXPECT_EQ(config->sdPort, 30490);
}

}  // namespace
