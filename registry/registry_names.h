#ifndef REGISTRY_REGISTRY_NAMES_H
#define REGISTRY_REGISTRY_NAMES_H

// The naming rules that the event, method and field registries share: which driver a record is
// on, and the short names generated for service instances that came without one.

#include <cstdint>
#include <set>

#include "records/wardend_records.h"

namespace vesk::wardend {

// The DDS service that never gets a generated short name.
inline constexpr std::uint16_t kExemptDdsService = 0xE002;

inline constexpr const char kUnnamedDds[] = "/UnnamedDDSServiceInstance";
inline constexpr const char kUnnamedSomeip[] = "/UnnamedSOMEIPServiceInstance";

// Any value other than DDS counts as SOME/IP.
inline bool IsDds(DriverType driver) {
    return driver == DriverType::DDS;
}

// "[DDS]" or "[SOME/IP]", the suffix that names the driver of a shown instance.
inline const char* DriverSuffix(DriverType driver) {
    return IsDds(driver) ? "[DDS]" : "[SOME/IP]";
}

// A number as "%d" prints it.
String Decimal(unsigned value);

bool StartsWith(const String& text, const char* prefix);

// "/UnnamedDDSServiceInstance_<service>_<instance>", or the SOME/IP one.
String UnnamedName(DriverType driver, std::uint16_t serviceId, std::uint16_t instanceId);

// The short name of an EventInfo or MethodInfo entry on one driver.
template <typename Entry>
auto& ShortName(Entry& entry, DriverType driver) {
    return IsDds(driver) ? entry.dds.instanceShortName : entry.someip.instanceShortName;
}

// The name a subscriber's or client's instance is shown under: a generated name as it is, a
// given one with its driver suffix, none replaced by the generated one.
String ShownInstanceName(const String& shortName, DriverType driver, std::uint16_t serviceId,
                         std::uint16_t instanceId);

// Adds the name a publisher's or server's instance is shown under. SOME/IP has no case for an
// empty name: it gives "[SOME/IP]" alone.
void AddShownInstance(std::set<String>& instances, const String& shortName, DriverType driver,
                      std::uint16_t serviceId, std::uint16_t instanceId);

}  // namespace vesk::wardend

#endif
