// The in-process stores of the two services: one event store per event type, one request store
// per argument list, one reply store per result type.

#include "binding/proloc/proloc_memory_factory.h"
#include "records/service_outputs.h"
#include "records/wardend_records.h"

namespace lumo::driver::proloc {

template class ProlocEventMemory<vesk::wardend::LatencySwitch>;

template class ProlocRequestMemory<>;
template class ProlocRequestMemory<ara::core::String>;
template class ProlocRequestMemory<vesk::wardend::AppRegisterInfo>;
template class ProlocRequestMemory<vesk::wardend::LatencyIndex>;
template class ProlocRequestMemory<vesk::wardend::LatencyQueryInfo>;
template class ProlocRequestMemory<vesk::wardend::LatencySwitch>;
template class ProlocRequestMemory<vesk::wardend::QuerySubEventInfoIndex>;

template class ProlocReplyMemory<void>;
template class ProlocReplyMemory<vesk::wardend::RegisterAppInfoOutput>;
template class ProlocReplyMemory<vesk::wardend::QueryAllDataTypeOutput>;
template class ProlocReplyMemory<vesk::wardend::QueryDataTypeOutput>;
template class ProlocReplyMemory<vesk::wardend::QueryDataTypeRefListOutput>;
template class ProlocReplyMemory<vesk::wardend::QueryEventInfoOutput>;
template class ProlocReplyMemory<vesk::wardend::QueryEventShowOutput>;
template class ProlocReplyMemory<vesk::wardend::QueryLatencyResultOutput>;
template class ProlocReplyMemory<vesk::wardend::QueryLatencyStatusOutput>;
template class ProlocReplyMemory<vesk::wardend::QueryMethodInfoOutput>;
template class ProlocReplyMemory<vesk::wardend::QueryMethodTypeOutput>;
template class ProlocReplyMemory<vesk::wardend::QueryNodeInfoOutput>;
template class ProlocReplyMemory<vesk::wardend::QuerySubNodeEventInfoOutput>;
template class ProlocReplyMemory<vesk::wardend::SwitchLatencyModeOutput>;

}  // namespace lumo::driver::proloc
