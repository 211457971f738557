#ifndef RECORDS_SERVICE_INTERFACES_H
#define RECORDS_SERVICE_INTERFACES_H

// The two service interfaces of wardend as both ends know them: entity numbers, names and wire
// ids. The skeletons of the daemon and the proxies of the client library are built from these.

#include <array>
#include <cstdint>

#include "platform/vcc/api/types/driver_type.h"
#include "platform/vcc/service_interface.h"

namespace vesk::wardend {

struct AppServiceIds {
    static constexpr std::uint16_t kServiceId = 0x5700;
    static constexpr std::uint32_t kRegisterAppInfo = 60621;
    static constexpr std::uint32_t kLatencySwitchEvent = 30161;
    static constexpr std::uint16_t kSomeipLatencySwitchEvent = 0x8001;
    static constexpr std::uint16_t kSomeipLatencySwitchEventgroup = 0x0001;
};

struct ToolsServiceIds {
    static constexpr std::uint16_t kServiceId = 0x5701;
    static constexpr std::uint32_t kQueryAllDataType = 56963;
    static constexpr std::uint32_t kQueryDataType = 32777;
    static constexpr std::uint32_t kQueryDataTypeRefList = 60394;
    static constexpr std::uint32_t kQueryEventInfo = 40538;
    static constexpr std::uint32_t kQueryEventShow = 23108;
    static constexpr std::uint32_t kQueryLatencyResult = 58300;
    static constexpr std::uint32_t kQueryLatencyStatus = 3562;
    static constexpr std::uint32_t kQueryMethodInfo = 38078;
    static constexpr std::uint32_t kQueryMethodType = 12452;
    static constexpr std::uint32_t kQueryNodeInfo = 47109;
    static constexpr std::uint32_t kQuerySubNodeEventInfo = 7391;
    static constexpr std::uint32_t kSwitchLatencyMode = 63267;

    // In the order of the method table, which also gives their SOME/IP method ids 1 to 12.
    static constexpr std::array<std::uint32_t, 12> kMethods{
        kQueryAllDataType, kQueryDataType,      kQueryDataTypeRefList,  kQueryEventInfo,
        kQueryEventShow,   kQueryLatencyResult, kQueryLatencyStatus,    kQueryMethodInfo,
        kQueryMethodType,  kQueryNodeInfo,      kQuerySubNodeEventInfo, kSwitchLatencyMode};
};

const ara::com::ServiceIdentifierType& AppServiceIdentifier();
const ara::com::ServiceIdentifierType& ToolsServiceIdentifier();

}  // namespace vesk::wardend

#endif
