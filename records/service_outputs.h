#ifndef RECORDS_SERVICE_OUTPUTS_H
#define RECORDS_SERVICE_OUTPUTS_H

// The output records of the application and tools services, one per method. A method answers
// with one of these and never with an ErrorCode: a failure is result 1 or an empty output.
// Field order is wire order.

#include <cstdint>
#include <map>
#include <vector>

#include "records/record_fields.h"
#include "records/wardend_records.h"

namespace vesk::wardend {

// RegisterAppInfo: 0 success, 1 failure.
struct RegisterAppInfoOutput {
    std::uint16_t result{};

    WARDEND_RECORD_FIELDS(RegisterAppInfoOutput, result)
};

// Data type name to its description.
struct QueryAllDataTypeOutput {
    std::map<String, String> dataTypes;

    WARDEND_RECORD_FIELDS(QueryAllDataTypeOutput, dataTypes)
};

struct QueryDataTypeOutput {
    String dataType;

    WARDEND_RECORD_FIELDS(QueryDataTypeOutput, dataType)
};

// Root type name to the names it refers to.
struct QueryDataTypeRefListOutput {
    std::map<String, std::vector<String>> refList;

    WARDEND_RECORD_FIELDS(QueryDataTypeRefListOutput, refList)
};

struct QueryEventInfoOutput {
    std::vector<EventInfoWithPubSub> eventInfos;

    WARDEND_RECORD_FIELDS(QueryEventInfoOutput, eventInfos)
};

struct QueryEventShowOutput {
    String dataTypeDescription;
    String pubApp;
    String pubState;  // "ON" when the publisher is online, "OFF" when not, empty when unknown

    WARDEND_RECORD_FIELDS(QueryEventShowOutput, dataTypeDescription, pubApp, pubState)
};

// Application name to its result.
struct QueryLatencyResultOutput {
    std::map<String, LatencyResult> results;

    WARDEND_RECORD_FIELDS(QueryLatencyResultOutput, results)
};

struct QueryLatencyStatusOutput {
    std::map<String, LatencyMode> pubStatus;
    std::map<String, LatencyMode> subStatus;

    WARDEND_RECORD_FIELDS(QueryLatencyStatusOutput, pubStatus, subStatus)
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
