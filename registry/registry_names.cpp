#include "registry/registry_names.h"

#include <cstdio>

namespace vesk::wardend {

String Decimal(unsigned value) {
    char number[16];
    std::snprintf(number, sizeof(number), "%d", static_cast<int>(value));
    return number;
}

bool StartsWith(const String& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

String UnnamedName(DriverType driver, std::uint16_t serviceId, std::uint16_t instanceId) {
    return String(IsDds(driver) ? kUnnamedDds : kUnnamedSomeip) + "_" + Decimal(serviceId) + "_" +
           Decimal(instanceId);
}

String ShownInstanceName(const String& shortName, DriverType driver, std::uint16_t serviceId,
                         std::uint16_t instanceId) {
    if (StartsWith(shortName, IsDds(driver) ? kUnnamedDds : kUnnamedSomeip)) {
        return shortName;
    }
    if (!shortName.empty()) {
        return shortName + DriverSuffix(driver);
    }
    return UnnamedName(driver, serviceId, instanceId);
}

void AddShownInstance(std::set<String>& instances, const String& shortName, DriverType driver,
                      std::uint16_t serviceId, std::uint16_t instanceId) {
    if (!IsDds(driver)) {
        instances.insert(StartsWith(shortName, kUnnamedSomeip) ? shortName
                                                               : shortName + "[SOME/IP]");
        return;
    }
    if (StartsWith(shortName, kUnnamedDds)) {
        instances.insert(shortName);
    } else if (!shortName.empty()) {
        instances.insert(shortName + "[DDS]");
    } else {
        instances.insert(UnnamedName(driver, serviceId, instanceId));
    }
}

}  // namespace vesk::wardend
