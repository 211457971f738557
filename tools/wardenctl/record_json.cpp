#include "tools/wardenctl/record_json.h"

// The member list of each record, written once. nlohmann's own field macro would also define a
// reader, which wardenctl has no use for.
#define WARDENCTL_JSON_MEMBER(member) json[#member] = value.member;
#define WARDENCTL_TO_JSON(Type, ...)                                                  \
    void to_json(Json& json, const Type& value) {                                     \
        json = Json::object();                                                        \
        NLOHMANN_JSON_EXPAND(NLOHMANN_JSON_PASTE(WARDENCTL_JSON_MEMBER, __VA_ARGS__)) \
    }

namespace vesk::wardend {

std::string DriverName(DriverType driver) {
    switch (driver) {
        case DriverType::DDS:
            return "DDS";
        case DriverType::SOMEIP:
            return "SOMEIP";
    }
    return std::to_string(static_cast<unsigned>(driver));
}

// clang-format off
WARDENCTL_TO_JSON(SerializeConfig, type, structPolicy, name)
WARDENCTL_TO_JSON(E2EConfigInfo, profile, dataIdList, flagA, flagB, valueA, valueB, valueC, valueD,
                  dataIdMode, stateParam1, stateParam2, stateParam3, stateParam4, stateParam5,
                  stateParam6, stateParam7, stateParam8, stateParam9, stateFlag, valueE)
WARDENCTL_TO_JSON(DDSEventInfo, serviceId, instanceId, shortValue, topicName, text, valueA, valueB,
                  durability, history, transports, valueC, valueD, instanceShortName, properties,
                  scheduleMode, e2eConfig, reliability, flag)
WARDENCTL_TO_JSON(IsignalInfo, name, typeName, flag, valueA, valueB, text)
WARDENCTL_TO_JSON(PduConfigInfo, pduName, length, flag, isignals)
WARDENCTL_TO_JSON(SomeipEventInfo, serviceId, instanceId, wideValue, eventId, eventGroupIds,
                  instanceShortName, valueA, valueB, valueC, flag, e2eConfig, bytes, pduConfig)
WARDENCTL_TO_JSON(EventRegisterInfo, name, appName, eventMap_, text, eventType, pid,
                  serializeConfig, serializeText, isRegister)
WARDENCTL_TO_JSON(EventInfoWithPubSub, registerInfo, subApps, pubApp, isOnline)
WARDENCTL_TO_JSON(DDSMethodInfo, text, instanceShortName, requestTopicName, replyTopicName,
                  shortValue, valueA, valueB, requestDurability, replyDurability, requestHistory,
                  replyHistory, transports, valueC, valueD, valueE, valueF, e2eConfig, reliability)
WARDENCTL_TO_JSON(SomeipMethodInfo, methodId, instanceShortName, wideValue, valueA, flag,
                  e2eConfig, requestBytes, replyBytes)
WARDENCTL_TO_JSON(ErrorDomainInfo, id, name)
WARDENCTL_TO_JSON(MethodRegisterInfo, appName, name, methodMap_, instanceId, serviceId,
                  inputDatatypes, replyDatatypes, pid, inputSerializeConfig, outputSerializeConfig,
                  methodOutputDatatype, errorDomains, text, flag, isRegister)
WARDENCTL_TO_JSON(NodeInfo, nodeName, serviceInstances, pubEvents, subEvents, methods, fields, pid)
WARDENCTL_TO_JSON(LatencyResult, average, maximum, minimum)

WARDENCTL_TO_JSON(QueryAllDataTypeOutput, dataTypes)
WARDENCTL_TO_JSON(QueryDataTypeOutput, dataType)
WARDENCTL_TO_JSON(QueryDataTypeRefListOutput, refList)
WARDENCTL_TO_JSON(QueryEventInfoOutput, eventInfos)
WARDENCTL_TO_JSON(QueryEventShowOutput, dataTypeDescription, pubApp, pubState)
WARDENCTL_TO_JSON(QueryLatencyResultOutput, results)
WARDENCTL_TO_JSON(QueryLatencyStatusOutput, pubStatus, subStatus)
WARDENCTL_TO_JSON(QueryMethodInfoOutput, methodInfos)
WARDENCTL_TO_JSON(QueryMethodTypeOutput, requestTypes, replyTypes)
WARDENCTL_TO_JSON(QueryNodeInfoOutput, nodeInfos)
WARDENCTL_TO_JSON(QuerySubNodeEventInfoOutput, registerInfo, subApps, pubApp, isOnline)
WARDENCTL_TO_JSON(SwitchLatencyModeOutput, result)
// clang-format on

namespace {

// The record of each entry is the member of the entry's driver; any value but DDS is SOME/IP.
template <typename Info>
void DriverMapToJson(Json& json, const std::map<DriverType, Info>& value) {
    json = Json::object();
    for (const auto& [driver, info] : value) {
        json[DriverName(driver)] = driver == DriverType::DDS ? Json(info.dds) : Json(info.someip);
    }
}

}  // namespace

void to_json(Json& json, const std::map<DriverType, EventInfo>& value) {
    DriverMapToJson(json, value);
}

void to_json(Json& json, const std::map<DriverType, MethodInfo>& value) {
    DriverMapToJson(json, value);
}

}  // namespace vesk::wardend
