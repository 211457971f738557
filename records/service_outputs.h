#ifndef RECORDS_SERVICE_OUTPUTS_H
#define RECORDS_SERVICE_OUTPUTS_H

// The output records of the application and tools services. The service skeletons expose them
// as their nested types; clients use them directly. Field order is wire order.

#include <cstdint>
#include <map>
#include <vector>

#include "records/wardend_records.h"

namespace vesk::wardend {

// result: 0 success, 1 failure.
struct RegisterAppInfoOutput {
    std::uint16_t result{};

    WARDEND_RECORD_FIELDS(RegisterAppInfoOutput, result)
};

struct QueryAllDataTypeOutput {
    std::map<String, String> dataTypes;

    WARDEND_RECORD_FIELDS(QueryAllDataTypeOutput, dataTypes)
};

struct QueryDataTypeOutput {
    String dataType;

    WARDEND_RECORD_FIELDS(QueryDataTypeOutput, dataType)
};

struct QueryDataTypeRefListOutput {
    std::map<String, std::vector<String>> refList;

    WARDEND_RECORD_FIELDS(QueryDataTypeRefListOutput, refList)
};

struct QueryEventInfoOutput {
    std::vector<EventInfoWithPubSub> eventInfos;

    WARDEND_RECORD_FIELDS(QueryEventInfoOutput, eventInfos)
};

// The event's data type description, its publisher, and "ON" or "OFF".
struct QueryEventShowOutput {
    String dataType;
    String pubApp;
    String latencyState;

    WARDEND_RECORD_FIELDS(QueryEventShowOutput, dataType, pubApp, latencyState)
};

struct QueryLatencyResultOutput {
    std::map<String, LatencyResult> results;

    WARDEND_RECORD_FIELDS(QueryLatencyResultOutput, results)
};

struct QueryLatencyStatusOutput {
    std::map<String, LatencyMode> pubModes;
    std::map<String, LatencyMode> subModes;

    WARDEND_RECORD_FIELDS(QueryLatencyStatusOutput, pubModes, subModes)
};

struct QueryMethodInfoOutput {
    std::vector<MethodRegisterInfo> methodInfos;

    WARDEND_RECORD_FIELDS(QueryMethodInfoOutput, methodInfos)
};

struct QueryMethodTypeOutput {
    std::vector<String> requestTypes;
    std::vector<String> replyTypes;

    WARDEND_RECORD_FIELDS(QueryMethodTypeOutput, requestTypes, replyTypes)
};

struct QueryNodeInfoOutput {
    std::vector<NodeInfo> nodeInfos;

    WARDEND_RECORD_FIELDS(QueryNodeInfoOutput, nodeInfos)
};

// The four fields of one EventInfoWithPubSub.
struct QuerySubNodeEventInfoOutput {
    EventRegisterInfo registerInfo;
    std::vector<String> subApps;
    String pubApp;
    bool isOnline{};

    WARDEND_RECORD_FIELDS(QuerySubNodeEventInfoOutput, registerInfo, subApps, pubApp, isOnline)
};

struct SwitchLatencyModeOutput {
    std::uint16_t result{};

    WARDEND_RECORD_FIELDS(SwitchLatencyModeOutput, result)
};

}  // namespace vesk::wardend

#endif
