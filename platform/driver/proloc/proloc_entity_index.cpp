#include "platform/driver/proloc/proloc_entity_index.h"

#include <sstream>

namespace lumo::driver::proloc {

ProlocEntityIndex ProlocEntityIndex::FromEntityInfo(const vcc::api::types::EntityInfo& info) {
    return ProlocEntityIndex{info.serviceId, info.instanceId, info.entityId};
}

ara::core::String ProlocEntityIndex::GetProlocInfo() const {
    std::ostringstream out;
    out << "serviceId=" << serviceId << ", instanceId=" << instanceId << ", entityId=" << entityId;
    return out.str();
}

}  // namespace lumo::driver::proloc
