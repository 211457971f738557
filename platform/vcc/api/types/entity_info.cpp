#include "platform/vcc/api/types/entity_info.h"

#include <cstdio>

namespace lumo::vcc::api::types {

const char* DriverTypeName(DriverType type) noexcept {
    switch (type) {
        case DriverType::kProloc:
            return "PROLOC";
        case DriverType::kDds:
            return "DDS";
        case DriverType::kSomeip:
            return "SOMEIP";
    }
    return "UNKNOWN";
}

ara::core::String EntityInfo::GetEntityIdentifier() const {
    // The service id goes through a signed conversion, the entity id through an unsigned one.
    char service[16];
    char entity[16];
    (void)std::snprintf(service, sizeof(service), "%d", static_cast<int>(serviceId));
    (void)std::snprintf(entity, sizeof(entity), "%u", static_cast<unsigned>(entityId));
    return ara::core::String(service) + "_" + instanceId + "_" + entity;
}

}  // namespace lumo::vcc::api::types
