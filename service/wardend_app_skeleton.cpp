#include "service/wardend_app_skeleton.h"

#include <mutex>

#include "catalogue/msg_file_store.h"
#include "records/wardend_log.h"
#include "registry/e2e_info_manage.h"
#include "registry/event_info_manage.h"
#include "registry/event_latency_manage.h"
#include "registry/field_info_manage.h"
#include "registry/method_info_manage.h"
#include "registry/node_info_manage.h"
#include "service/register_mutex.h"
#include "snapshot/sys_info_manage.h"

namespace vesk::wardend {

namespace {

constexpr std::uint32_t kTaskSourceId = 0;
constexpr std::uint8_t kSuccess = 0;
constexpr std::uint8_t kFailure = 1;
constexpr auto kLastInfoType = static_cast<std::uint8_t>(AppRegisterInfoType::LISTENER);

std::uint8_t ToResult(bool ok) {
    return ok ? kSuccess : kFailure;
}

// How EventLatencyManage publishes: on the latency switch event of the application skeleton.
bool SendLatencySwitch(const std::shared_ptr<WardendAppSkeleton>& skeleton,
                       const LatencySwitch& latencySwitch) {
    return skeleton != nullptr && skeleton->LatencySwitchEvent.Send(latencySwitch).HasValue();
}

}  // namespace

WardendAppSkeleton::~WardendAppSkeleton() {
    if (threadPool_ != nullptr) {
        threadPool_->Stop();
    }
    StopOfferAppService();
}

void WardendAppSkeleton::SetThreadPool(std::shared_ptr<lumo::vcc::utils::ThreadPool> pool) {
    threadPool_ = std::move(pool);
}

ara::core::Future<WardendAppSkeleton::RegisterAppInfoOutput> WardendAppSkeleton::RegisterAppInfo(
    const AppRegisterInfo& info) {
    ara::core::Promise<RegisterAppInfoOutput> promise;
    auto future = promise.get_future();
    RegisterAppInfoOutput output;

    const auto infoType = static_cast<std::uint8_t>(info.infoType);
    if (infoType > kLastInfoType) {
        LogError() << "Unknown app register info";
        output.result = kFailure;
        promise.set_value(output);
        return future;
    }

    switch (info.infoType) {
        case AppRegisterInfoType::EVENT:
            LogInfo() << "Start to register event info";
            output.result = RegisterEventInfo(info.eventInfo, info.isPub);
            break;
        case AppRegisterInfoType::METHOD:
            LogInfo() << "Start to register method info";
            output.result = RegisterMethodInfo(info.methodInfo, info.isPub);
            break;
        case AppRegisterInfoType::FIELD:
            LogInfo() << "Start to register field info";
            output.result = RegisterFieldInfo(info.fieldInfo, info.isPub);
            break;
        case AppRegisterInfoType::NODE:
            LogInfo() << "Start to register node info";
            output.result = RegisterNodeInfo(info.nodeInfo);
            break;
        case AppRegisterInfoType::LATENCY:
            LogInfo() << "Start to notify latency result";
            output.result = NotifyLatencyInfo(info.latencyInfo);
            break;
        case AppRegisterInfoType::LISTENER:
            LogInfo() << "Start to notify listener result";
            output.result = NotifyListenerResult(info.listenerResult);
            break;
    }
    promise.set_value(output);
    return future;
}

void WardendAppSkeleton::EnqueueTask(lumo::vcc::utils::ThreadPool::Task task) const {
    if (threadPool_ != nullptr) {
        (void)threadPool_->Enqueue(std::move(task), kTaskSourceId);
    }
}

std::uint8_t WardendAppSkeleton::RegisterEventInfo(const EventRegisterInfo& info,
                                                   const bool& isPub) const {
    if (!info.isRegister) {
        const bool removed = EventInfoManage::GetInstance().UnregisterEventInfo(info, isPub);
        LogInfo() << "Wardend unregister event info finished";
        return ToResult(removed);
    }

    bool registered = false;
    {
        std::lock_guard<std::mutex> lock(RegisterMutex());
        registered = EventInfoManage::GetInstance().RegisterEventInfo(info, isPub);
    }
    if (registered) {
        EnqueueTask([info] { MsgFileStore::GetInstance().LoadDataType(info.text); });
    }
    LogInfo() << "Wardend register event info finished";
    return ToResult(registered);
}

std::uint8_t WardendAppSkeleton::RegisterMethodInfo(const MethodRegisterInfo& info,
                                                    const bool& isPub) const {
    if (!info.isRegister) {
        const bool removed = MethodInfoManage::GetInstance().UnregisterMethodInfo(info, isPub);
        LogInfo() << "Wardend unregister method info finished";
        return ToResult(removed);
    }

    bool registered = false;
    {
        std::lock_guard<std::mutex> lock(RegisterMutex());
        registered = MethodInfoManage::GetInstance().RegisterMethodInfo(info, isPub);
    }
    if (!registered) {
        LogInfo() << "Wardend register method info finished";
        return kFailure;
    }

    for (const String& name : info.inputDatatypes) {
        EnqueueTask([name] { MsgFileStore::GetInstance().LoadDataType(name); });
    }
    if (info.outputSerializeConfig.type == SerializationType::kSomeip) {
        EnqueueTask(
            [info] { MsgFileStore::GetInstance().LoadDataType(info.methodOutputDatatype); });
        LogVerbose() << "cm serialize type methodOutputDatatype " << info.methodOutputDatatype;
    }
    for (const String& name : info.replyDatatypes) {
        EnqueueTask([name] { MsgFileStore::GetInstance().LoadDataType(name); });
    }
    for (const ErrorDomainInfo& domain : info.errorDomains) {
        EnqueueTask([domain] { MsgFileStore::GetInstance().LoadErrorDomain(domain); });
    }
    LogInfo() << "Wardend register method info finished";
    return kSuccess;
}

// Fields take no lock of this service and queue nothing.
std::uint8_t WardendAppSkeleton::RegisterFieldInfo(const FieldRegisterInfo& info,
                                                   const bool& isPub) const {
    if (info.isRegister) {
        const bool registered = FieldInfoManage::GetInstance().RegisterFieldInfo(info, isPub);
        LogInfo() << "Wardend register field info finished";
        return ToResult(registered);
    }
    const bool removed = FieldInfoManage::GetInstance().UnregisterFieldInfo(info.fieldType, isPub,
                                                                            info, info.instanceId);
    LogInfo() << "Wardend unregister field info finished";
    return ToResult(removed);
}

std::uint8_t WardendAppSkeleton::RegisterNodeInfo(const NodeRegisterInfo& info) const {
    const String nodeName = info.nodeName;
    const std::int32_t pid = info.pid;
    if (info.infoKind != kNodeInfoKindNode) {
        E2EInfoManage::GetInstance()->RegisterNodeE2EInfo(info);
        return kSuccess;
    }
    const bool isRegister = info.registerState.isRegister;
    const bool updated = NodeInfoManage::GetInstance().UpdateNodeInfo(nodeName, pid, isRegister);
    if (isRegister) {
        LogInfo() << "Wardend register node info finished";
    } else {
        // The node's E2E entries go even when the node registry did not know the node.
        E2EInfoManage::GetInstance()->UnregisterE2EInfo(nodeName, pid);
        LogInfo() << "Wardend unregister node info finished";
    }
    return ToResult(updated);
}

std::uint8_t WardendAppSkeleton::NotifyLatencyInfo(const LatencyAppInfo& info) const {
    switch (static_cast<LatencyInfoKind>(info.kind)) {
        case LatencyInfoKind::kResult:
            EventLatencyManage::GetInstance().RecordLatencyResult(info);
            return kSuccess;
        case LatencyInfoKind::kAcknowledge:
            EventLatencyManage::GetInstance().UpdateLatencyStatus(info);
            LogInfo() << "Wardend notify latency mode finished";
            return kSuccess;
        default:
            return kFailure;
    }
}

// The snapshot's own outcome is not reported to the application: the line says finished once
// the trigger is queued.
std::uint8_t WardendAppSkeleton::NotifyListenerResult(
    const std::map<ListenerType, ListenerParams>& result) const {
    EnqueueTask([result] { (void)SysInfoManage::GetInstance().TriggerSnapshot(result); });
    LogInfo() << "Wardend get sys snapshot finished";
    return kSuccess;
}

void WardendAppSkeleton::OfferAppService() {
    SysInfoManage::GetInstance().InitSnapshotConfig();
    LogVerbose() << "Wardend start to offer app service.";
    if (auto* adapter = Adapter()) {
        constexpr vesk::TrafficCtrlUnit kMethodUnit = 100;
        constexpr std::uint32_t kMethodCount = 1000;
        constexpr vesk::TrafficCtrlUnit kEventUnit = 100;
        constexpr std::uint32_t kEventCount = 300;
        adapter->GetSkeleton()->SetMethodTrafficCtrl(
            std::make_shared<vesk::BasicPolicy>(kMethodUnit, kMethodCount), kRegisterAppInfoId);
        adapter->GetSkeleton()->SetEventTrafficCtrl(
            std::make_shared<vesk::BasicPolicy>(kEventUnit, kEventCount),
            skeleton::events::LatencySwitchEvent::kEventId);
    }
    EventLatencyManage::GetInstance().SetLatencySwitchSender(SendLatencySwitch);
    OfferService();
    LogVerbose() << "Wardend has offered app service.";
}

void WardendAppSkeleton::StopOfferAppService() {
    StopOfferService();
}

void WardendAppSkeleton::StopThreadPool() {
    if (threadPool_ != nullptr) {
        threadPool_->Stop();
        threadPool_.reset();
        SysInfoManage::GetInstance().CloseSnapshotFile();
    }
}

}  // namespace vesk::wardend
