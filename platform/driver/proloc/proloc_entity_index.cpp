#include "platform/driver/proloc/proloc_entity_index.h"

#include <sstream>
#include <tuple>

namespace lumo::driver::proloc {

ProlocEntityIndex ProlocEntityIndex::FromEntityInfo(const vcc::api::types::EntityInfo& info) {
    return ProlocEntityIndex{info.serviceId, info.instanceId, info.entityId};
}

// The numbers first: entities of one instance differ in them, and they compare without a call.
bool ProlocEntityIndex::operator<(const ProlocEntityIndex& other) const {
    return std::tie(serviceId, entityId, instanceId) <
           std::tie(other.serviceId, other.entityId, other.instanceId);
}

bool ProlocEntityIndex::operator==(const ProlocEntityIndex& other) const {
    return serviceId == other.serviceId && instanceId == other.instanceId &&
           entityId == other.entityId;
}

ara::core::String ProlocEntityIndex::GetProlocInfo() const {
    std::ostringstream out;
    out << "serviceId=" << serviceId << ", instanceId=" << instanceId << ", entityId=" << entityId;
    return out.str();
}

}  // namespace lumo::driver::proloc
