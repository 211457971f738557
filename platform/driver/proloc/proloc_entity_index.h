#ifndef PLATFORM_DRIVER_PROLOC_PROLOC_ENTITY_INDEX_H
#define PLATFORM_DRIVER_PROLOC_PROLOC_ENTITY_INDEX_H

#include <cstdint>

#include "platform/core/string.h"
#include "platform/vcc/api/types/entity_info.h"

namespace lumo::driver::proloc {

// The key of every in-process store: one entity of one service instance.
struct ProlocEntityIndex {
    std::uint16_t serviceId{0};
    ara::core::String instanceId;
    std::uint32_t entityId{0};

    static ProlocEntityIndex FromEntityInfo(const vcc::api::types::EntityInfo& info);

    // Every store looks its entity up by this on every call: inline, numbers first (entities of
    // one instance differ in them, and they compare without a call).
    bool operator<(const ProlocEntityIndex& other) const {
        if (serviceId != other.serviceId) {
            return serviceId < other.serviceId;
        }
        if (entityId != other.entityId) {
            return entityId < other.entityId;
        }
        return instanceId < other.instanceId;
    }
    bool operator==(const ProlocEntityIndex& other) const {
        return serviceId == other.serviceId && entityId == other.entityId &&
               instanceId == other.instanceId;
    }
    // "serviceId=<s>, instanceId=<i>, entityId=<e>"
    ara::core::String GetProlocInfo() const;
};

}  // namespace lumo::driver::proloc

#endif
