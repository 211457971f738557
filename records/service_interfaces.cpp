#include "records/service_interfaces.h"

#include <memory>

namespace vesk::wardend {

namespace {

constexpr std::uint16_t kAppPort = 30501;
constexpr std::uint16_t kToolsPort = 30502;

// Each tools method's name, for statistics and DDS topics, in the order of kMethods.
constexpr const char* kToolsMethodNames[] = {
    "QueryAllDataType", "QueryDataType",      "QueryDataTypeRefList",  "QueryEventInfo",
    "QueryEventShow",   "QueryLatencyResult", "QueryLatencyStatus",    "QueryMethodInfo",
    "QueryMethodType",  "QueryNodeInfo",      "QuerySubNodeEventInfo", "SwitchLatencyMode"};

}  // namespace

const ara::com::ServiceIdentifierType& AppServiceIdentifier() {
    static const ara::com::ServiceIdentifierType identifier{
        AppServiceIds::kServiceId, "WardendApp",
        std::make_shared<const lumo::vcc::ServiceInterface>(lumo::vcc::ServiceInterface{
            AppServiceIds::kServiceId,
            "App",
            AppServiceIds::kServiceId,
            1,
            0,
            kAppPort,
            {{AppServiceIds::kRegisterAppInfo, "RegisterAppInfo", 0x0001}},
            {{AppServiceIds::kLatencySwitchEvent, "LatencySwitch",
              AppServiceIds::kSomeipLatencySwitchEvent,
              AppServiceIds::kSomeipLatencySwitchEventgroup, false}}})};
    return identifier;
}

const ara::com::ServiceIdentifierType& ToolsServiceIdentifier() {
    static const ara::com::ServiceIdentifierType identifier = [] {
        lumo::vcc::ServiceInterface interface {
            ToolsServiceIds::kServiceId, "Tools", ToolsServiceIds::kServiceId, 1, 0, kToolsPort, {},
            {}
        };
        for (std::size_t i = 0; i < ToolsServiceIds::kMethods.size(); ++i) {
            interface.methods.push_back({ToolsServiceIds::kMethods[i], kToolsMethodNames[i],
                                         static_cast<std::uint16_t>(i + 1)});
        }
        return ara::com::ServiceIdentifierType{
            ToolsServiceIds::kServiceId, "WardendTools",
            std::make_shared<const lumo::vcc::ServiceInterface>(std::move(interface))};
    }();
    return identifier;
}

}  // namespace vesk::wardend
