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

    bool operator<(const ProlocEntityIndex& other) const;
    bool operator==(const ProlocEntityIndex& other) const;
    // "serviceId=<s>, instanceId=<i>, entityId=<e>"
    ara::core::String GetProlocInfo() const;
};

}  // namespace lumo::driver::proloc

#endif
