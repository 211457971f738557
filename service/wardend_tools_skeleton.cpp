#include "service/wardend_tools_skeleton.h"

#include <memory>
#include <mutex>
#include <utility>

#include "binding/skeleton/encoded_reply.h"
#include "catalogue/msg_file_store.h"
#include "records/wardend_log.h"
#include "registry/e2e_info_manage.h"
#include "registry/event_info_manage.h"
#include "registry/event_latency_manage.h"
#include "registry/method_info_manage.h"
#include "registry/node_info_manage.h"
#include "service/register_mutex.h"

namespace vesk::wardend {

namespace {

template <typename Output>
ara::core::Future<Output> Ready(Output output) {
    ara::core::Promise<Output> promise;
    auto future = promise.get_future();
    promise.set_value(std::move(output));
    return future;
}

// The registry's SOME/IP answer as the method skeleton takes it.
class EncodedEventInfo final : public lumo::vcc::EncodedReply {
public:
    explicit EncodedEventInfo(EventInfoSomeipAnswer answer) : answer_(std::move(answer)) {}
    std::uint64_t Size() override { return answer_.Size(); }
    bool Write(unsigned char* out) override { return answer_.Write(out); }

private:
    EventInfoSomeipAnswer answer_;
};

}  // namespace

void WardendToolsSkeleton::SetAppSkeleton(std::shared_ptr<WardendAppSkeleton> appSkeleton) {
    appSkeleton_ = std::move(appSkeleton);
}

void WardendToolsSkeleton::OfferToolsService() {
    LogVerbose() << "Wardend start to offer tools service.";
    if (auto* adapter = Adapter()) {
        // One policy per method, in this order; QueryDataType alone has a window of 100 ms.
        struct Policy {
            std::uint32_t entityId;
            vesk::TrafficCtrlUnit unit;
        };
        constexpr std::uint32_t kCount = 500;
        const Policy policies[] = {
            {kQueryEventInfoId, 1000},     {kQuerySubNodeEventInfoId, 1000},
            {kQueryMethodInfoId, 1000},    {kQueryEventShowId, 1000},
            {kQueryMethodTypeId, 1000},    {kQueryDataTypeId, 100},
            {kQueryAllDataTypeId, 1000},   {kQueryDataTypeRefListId, 1000},
            {kQueryNodeInfoId, 1000},      {kQueryLatencyResultId, 1000},
            {kQueryLatencyStatusId, 1000}, {kSwitchLatencyModeId, 1000},
        };
        for (const auto& policy : policies) {
            adapter->GetSkeleton()->SetMethodTrafficCtrl(
                std::make_shared<vesk::BasicPolicy>(policy.unit, kCount), policy.entityId);
        }
    }
    OfferService();
    LogVerbose() << "Wardend has offered tools service.";
}

ara::core::Future<WardendToolsSkeleton::QueryAllDataTypeOutput>
WardendToolsSkeleton::QueryAllDataType() {
    QueryAllDataTypeOutput output;
    output.dataTypes = MsgFileStore::GetInstance().QueryAllDataType();
    LogInfo() << "Wardend query all datatype finished";
    return Ready(std::move(output));
}

ara::core::Future<WardendToolsSkeleton::QueryDataTypeOutput> WardendToolsSkeleton::QueryDataType(
    const String& typeName) {
    QueryDataTypeOutput output;
    output.dataType = MsgFileStore::GetInstance().QueryDataType(typeName);
    LogInfo() << "Wardend query datatype finished";
    return Ready(std::move(output));
}

ara::core::Future<WardendToolsSkeleton::QueryDataTypeRefListOutput>
WardendToolsSkeleton::QueryDataTypeRefList() {
    QueryDataTypeRefListOutput output;
    output.refList = MsgFileStore::GetInstance().QueryDataTypeRefList();
    LogInfo() << "Wardend query datatype list finished";
    return Ready(std::move(output));
}

ara::core::Future<WardendToolsSkeleton::QueryEventInfoOutput> WardendToolsSkeleton::QueryEventInfo(
    const String& eventType) {
    QueryEventInfoOutput output;
    if (const auto* config = lumo::vcc::PlainSomeipReplyConfig()) {
        // Ten thousand records are written from their packed form, not built first.
        lumo::vcc::ReplyEncoded(
            std::make_unique<EncodedEventInfo>(EventInfoManage::GetInstance().QueryEventInfoSomeip(
                eventType, config->byteOrder, config->isStringRaw)));
        LogInfo() << "Wardend query event info finished";
        return Ready(std::move(output));
    }
    output.eventInfos = EventInfoManage::GetInstance().QueryEventInfo(eventType);
    LogInfo() << "Wardend query event info finished";
    return Ready(std::move(output));
}

ara::core::Future<WardendToolsSkeleton::QueryEventShowOutput> WardendToolsSkeleton::QueryEventShow(
    const String& eventType) {
    EventShow show = MsgFileStore::GetInstance().QueryEventType(eventType);
    QueryEventShowOutput output;
    output.dataTypeDescription = std::move(show.dataType);
    output.pubApp = std::move(show.pubApp);
    output.pubState = std::move(show.pubState);
    LogInfo() << "Wardend query event show finished";
    return Ready(std::move(output));
}

ara::core::Future<WardendToolsSkeleton::QueryLatencyResultOutput>
WardendToolsSkeleton::QueryLatencyResult(const LatencyQueryInfo& query) {
    QueryLatencyResultOutput output;
    output.results = EventLatencyManage::GetInstance().QueryLatencyResult(query);
    return Ready(std::move(output));
}

ara::core::Future<WardendToolsSkeleton::QueryLatencyStatusOutput>
WardendToolsSkeleton::QueryLatencyStatus(const LatencyIndex& index) {
    LatencyModes modes = EventLatencyManage::GetInstance().QueryLatencyStatus(index);
    QueryLatencyStatusOutput output;
    output.pubStatus = std::move(modes.pubModes);
    output.subStatus = std::move(modes.subModes);
    return Ready(std::move(output));
}

ara::core::Future<WardendToolsSkeleton::QueryMethodInfoOutput>
WardendToolsSkeleton::QueryMethodInfo(const String& methodType) {
    QueryMethodInfoOutput output;
    output.methodInfos = MethodInfoManage::GetInstance().QueryMethodInfo(methodType);
    LogInfo() << "Wardend query method info finished";
    return Ready(std::move(output));
}

// Logs the event show line: that is the line this query has always had.
ara::core::Future<WardendToolsSkeleton::QueryMethodTypeOutput>
WardendToolsSkeleton::QueryMethodType(const String& methodType) {
    MethodTypeDescriptions types = MsgFileStore::GetInstance().QueryMethodType(methodType);
    QueryMethodTypeOutput output;
    output.requestTypes = std::move(types.requestTypes);
    output.replyTypes = std::move(types.replyTypes);
    LogInfo() << "Wardend query event show finished";
    return Ready(std::move(output));
}

ara::core::Future<WardendToolsSkeleton::QueryNodeInfoOutput> WardendToolsSkeleton::QueryNodeInfo(
    const String& nodeName) {
    QueryNodeInfoOutput output;
    {
        std::lock_guard<std::mutex> lock(RegisterMutex());
        output.nodeInfos = NodeInfoManage::GetInstance().QueryNodeInfo(nodeName);
    }
    LogInfo() << "Wardend query node info finished";
    return Ready(std::move(output));
}

ara::core::Future<WardendToolsSkeleton::QuerySubNodeEventInfoOutput>
WardendToolsSkeleton::QuerySubNodeEventInfo(const QuerySubEventInfoIndex& index) {
    const bool fromEvents = index.source == DriverType::DDS;
    EventInfoWithPubSub found = fromEvents
                                    ? EventInfoManage::GetInstance().QuerySubEventInfo(index)
                                    : E2EInfoManage::GetInstance()->QuerySubNodeE2EInfo(index);
    QuerySubNodeEventInfoOutput output;
    output.registerInfo = std::move(found.registerInfo);
    output.subApps = std::move(found.subApps);
    output.pubApp = std::move(found.pubApp);
    output.isOnline = found.isOnline;
    if (fromEvents) {
        LogInfo() << "Wardend query sub event info finished";
    }
    return Ready(std::move(output));
}

ara::core::Future<WardendToolsSkeleton::SwitchLatencyModeOutput>
WardendToolsSkeleton::SwitchLatencyMode(const LatencySwitch& latencySwitch) {
    SwitchLatencyModeOutput output;
    output.result = static_cast<std::uint16_t>(
        EventLatencyManage::GetInstance().SwitchLatencyMode(appSkeleton_, latencySwitch));
    return Ready(output);
}

}  // namespace vesk::wardend
