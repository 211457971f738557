#ifndef TOOLS_WARDENCTL_RECORD_JSON_H
#define TOOLS_WARDENCTL_RECORD_JSON_H

// JSON for the records that the tools service answers with. Every record becomes an object whose
// keys are its member names; enumerations are their numbers, except the driver keys of the event
// and method maps, which are "DDS" and "SOMEIP" (another value: its decimal text), and only the
// member of the map entry's own driver is written. These names are wardenctl's --json interface:
// scripts depend on them, so change them only together with the README.

#include <map>
#include <string>

#include <nlohmann/json.hpp>

#include "records/service_outputs.h"
#include "records/wardend_records.h"

namespace vesk::wardend {

using Json = nlohmann::json;

void to_json(Json& json, const SerializeConfig& value);
void to_json(Json& json, const E2EConfigInfo& value);
void to_json(Json& json, const DDSEventInfo& value);
void to_json(Json& json, const IsignalInfo& value);
void to_json(Json& json, const PduConfigInfo& value);
void to_json(Json& json, const SomeipEventInfo& value);
void to_json(Json& json, const std::map<DriverType, EventInfo>& value);
void to_json(Json& json, const EventRegisterInfo& value);
void to_json(Json& json, const EventInfoWithPubSub& value);
void to_json(Json& json, const DDSMethodInfo& value);
void to_json(Json& json, const SomeipMethodInfo& value);
void to_json(Json& json, const std::map<DriverType, MethodInfo>& value);
void to_json(Json& json, const ErrorDomainInfo& value);
void to_json(Json& json, const MethodRegisterInfo& value);
void to_json(Json& json, const NodeInfo& value);
void to_json(Json& json, const LatencyResult& value);

void to_json(Json& json, const QueryAllDataTypeOutput& value);
void to_json(Json& json, const QueryDataTypeOutput& value);
void to_json(Json& json, const QueryDataTypeRefListOutput& value);
void to_json(Json& json, const QueryEventInfoOutput& value);
void to_json(Json& json, const QueryEventShowOutput& value);
void to_json(Json& json, const QueryLatencyResultOutput& value);
void to_json(Json& json, const QueryLatencyStatusOutput& value);
void to_json(Json& json, const QueryMethodInfoOutput& value);
void to_json(Json& json, const QueryMethodTypeOutput& value);
void to_json(Json& json, const QueryNodeInfoOutput& value);
void to_json(Json& json, const QuerySubNodeEventInfoOutput& value);
void to_json(Json& json, const SwitchLatencyModeOutput& value);

// "DDS", "SOMEIP", or the number of another value.
std::string DriverName(DriverType driver);

}  // namespace vesk::wardend

#endif
