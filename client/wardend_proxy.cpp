#include "client/wardend_proxy.h"

#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "binding/proxy/event_proxy.h"
#include "binding/proxy/method_proxy.h"
#include "client/client_drivers.h"
#include "platform/error/com_error_domain.h"
#include "platform/vcc/service_config.h"
#include "records/service_interfaces.h"

namespace vesk::wardend::proxy {

namespace {

using lumo::vcc::proxy::EventProxy;
using lumo::vcc::proxy::MethodProxy;

// The configuration of the process, or the defaults when its "Services" section is invalid.
lumo::vcc::ServiceConfig LoadConfig() {
    ara::core::String error;
    auto config = lumo::vcc::ServiceConfig::Load(error);
    return config.value_or(lumo::vcc::ServiceConfig{});
}

template <typename Output, typename... Args>
std::unique_ptr<MethodProxy<Output, Args...>> MakeMethod(
    const ara::com::ServiceIdentifierType& service, std::uint32_t entityId,
    const ProxyOptions& options, const lumo::vcc::ServiceConfig& config) {
    auto info =
        lumo::vcc::MakeMethodInfo(service, options.instance, entityId, options.driver, config);
    auto driver = AcquireDriver(options.driver);
    auto client = driver == nullptr ? nullptr : driver->CreateMethodClient(*info);
    return std::make_unique<MethodProxy<Output, Args...>>(client, *info);
}

}  // namespace

ara::core::String DescribeError(const ara::core::ErrorCode& error) {
    using lumo::vcc::api::types::ComErrc;
    if (error.Domain().Id() == lumo::vcc::api::types::ComErrorDomain::kId) {
        switch (static_cast<ComErrc>(error.Value())) {
            case ComErrc::kServiceNotAvailable:
                return "daemon not reachable";
            case ComErrc::kCommunicationStackError:
                return "no answer from the daemon within the timeout";
            case ComErrc::kMaxSamplesExceeded:
                return "refused by the daemon's traffic control";
            case ComErrc::kNetworkBindingFailure:
                return "request or reply could not be read";
            default:
                break;
        }
    }
    return ara::core::String(error.Domain().Name()) + " error " + std::to_string(error.Value());
}

// Runs the application's handler on a thread of its own: the driver's notification comes on a
// driver thread, where waiting for a call's answer would wait for that very thread.
class FoundRunner {
public:
    FoundRunner() = default;
    FoundRunner(const FoundRunner&) = delete;
    FoundRunner& operator=(const FoundRunner&) = delete;
    ~FoundRunner() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        wake_.notify_all();
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    void SetHandler(std::function<void()> handler) {
        std::lock_guard<std::mutex> lock(mutex_);
        handler_ = std::move(handler);
        if (!thread_.joinable()) {
            thread_ = std::thread([this] { Run(); });
        }
    }

    // Any thread; never blocks beyond the short lock.
    void Found() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            found_ = true;
        }
        wake_.notify_all();
    }

private:
    void Run() {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            wake_.wait(lock, [this] { return stop_ || found_; });
            if (stop_) {
                return;
            }
            found_ = false;
            auto handler = handler_;
            lock.unlock();
            if (handler) {
                handler();
            }
            lock.lock();
        }
    }

    std::mutex mutex_;  // guards every member below but thread_'s join
    std::condition_variable wake_;
    std::function<void()> handler_;
    bool found_{false};
    bool stop_{false};
    std::thread thread_;
};

struct VESKWardendAppServiceProxy::Impl {
    ProxyOptions options;
    // Destroyed after the method proxy, whose client may notify it until then.
    FoundRunner foundRunner;
    std::unique_ptr<MethodProxy<RegisterAppInfoOutput, AppRegisterInfo>> registerAppInfo;
    std::unique_ptr<EventProxy<LatencySwitch>> latencySwitch;

    ~Impl() {
        if (registerAppInfo != nullptr) {
            (void)registerAppInfo->SetServiceFoundHandler(nullptr);
        }
    }
};

VESKWardendAppServiceProxy::VESKWardendAppServiceProxy(const ProxyOptions& options)
    : impl_(std::make_unique<Impl>()) {
    const auto config = LoadConfig();
    impl_->options = options;
    impl_->registerAppInfo = MakeMethod<RegisterAppInfoOutput, AppRegisterInfo>(
        AppServiceIdentifier(), AppServiceIds::kRegisterAppInfo, options, config);
    auto info =
        lumo::vcc::MakeEventInfo(AppServiceIdentifier(), options.instance,
                                 AppServiceIds::kLatencySwitchEvent, options.driver, config);
    auto driver = AcquireDriver(options.driver);
    impl_->latencySwitch = std::make_unique<EventProxy<LatencySwitch>>(
        driver == nullptr ? nullptr : driver->CreateEventClient(*info), *info);
}

VESKWardendAppServiceProxy::~VESKWardendAppServiceProxy() = default;

ara::core::Future<RegisterAppInfoOutput> VESKWardendAppServiceProxy::RegisterAppInfo(
    const AppRegisterInfo& info) {
    return impl_->registerAppInfo->Call(info, impl_->options.timeout);
}

bool VESKWardendAppServiceProxy::SubscribeLatencySwitch(
    std::function<void(const LatencySwitch&)> handler) {
    return impl_->latencySwitch->Subscribe(std::move(handler));
}

void VESKWardendAppServiceProxy::UnsubscribeLatencySwitch() {
    impl_->latencySwitch->Unsubscribe();
}

bool VESKWardendAppServiceProxy::IsLatencySwitchSubscribed() const {
    return impl_->latencySwitch->IsSubscribed();
}

bool VESKWardendAppServiceProxy::WaitForService(std::chrono::milliseconds timeout) {
    return impl_->registerAppInfo->WaitForService(timeout);
}

bool VESKWardendAppServiceProxy::SetDaemonFoundHandler(std::function<void()> handler) {
    impl_->foundRunner.SetHandler(std::move(handler));
    auto* runner = &impl_->foundRunner;
    return impl_->registerAppInfo->SetServiceFoundHandler([runner] { runner->Found(); });
}

struct VESKWardendToolsServiceProxy::Impl {
    template <typename Output, typename... Args>
    using Method = std::unique_ptr<MethodProxy<Output, Args...>>;

    ProxyOptions options;
    Method<QueryAllDataTypeOutput> queryAllDataType;
    Method<QueryDataTypeOutput, String> queryDataType;
    Method<QueryDataTypeRefListOutput> queryDataTypeRefList;
    Method<QueryEventInfoOutput, String> queryEventInfo;
    Method<QueryEventShowOutput, String> queryEventShow;
    Method<QueryLatencyResultOutput, LatencyQueryInfo> queryLatencyResult;
    Method<QueryLatencyStatusOutput, LatencyIndex> queryLatencyStatus;
    Method<QueryMethodInfoOutput, String> queryMethodInfo;
    Method<QueryMethodTypeOutput, String> queryMethodType;
    Method<QueryNodeInfoOutput, String> queryNodeInfo;
    Method<QuerySubNodeEventInfoOutput, QuerySubEventInfoIndex> querySubNodeEventInfo;
    Method<SwitchLatencyModeOutput, LatencySwitch> switchLatencyMode;
};

VESKWardendToolsServiceProxy::VESKWardendToolsServiceProxy(const ProxyOptions& options)
    : impl_(std::make_unique<Impl>()) {
    const auto config = LoadConfig();
    const auto& service = ToolsServiceIdentifier();
    using Ids = ToolsServiceIds;
    auto& i = *impl_;
    i.options = options;
    i.queryAllDataType =
        MakeMethod<QueryAllDataTypeOutput>(service, Ids::kQueryAllDataType, options, config);
    i.queryDataType =
        MakeMethod<QueryDataTypeOutput, String>(service, Ids::kQueryDataType, options, config);
    i.queryDataTypeRefList = MakeMethod<QueryDataTypeRefListOutput>(
        service, Ids::kQueryDataTypeRefList, options, config);
    i.queryEventInfo =
        MakeMethod<QueryEventInfoOutput, String>(service, Ids::kQueryEventInfo, options, config);
    i.queryEventShow =
        MakeMethod<QueryEventShowOutput, String>(service, Ids::kQueryEventShow, options, config);
    i.queryLatencyResult = MakeMethod<QueryLatencyResultOutput, LatencyQueryInfo>(
        service, Ids::kQueryLatencyResult, options, config);
    i.queryLatencyStatus = MakeMethod<QueryLatencyStatusOutput, LatencyIndex>(
        service, Ids::kQueryLatencyStatus, options, config);
    i.queryMethodInfo =
        MakeMethod<QueryMethodInfoOutput, String>(service, Ids::kQueryMethodInfo, options, config);
    i.queryMethodType =
        MakeMethod<QueryMethodTypeOutput, String>(service, Ids::kQueryMethodType, options, config);
    i.queryNodeInfo =
        MakeMethod<QueryNodeInfoOutput, String>(service, Ids::kQueryNodeInfo, options, config);
    i.querySubNodeEventInfo = MakeMethod<QuerySubNodeEventInfoOutput, QuerySubEventInfoIndex>(
        service, Ids::kQuerySubNodeEventInfo, options, config);
    i.switchLatencyMode = MakeMethod<SwitchLatencyModeOutput, LatencySwitch>(
        service, Ids::kSwitchLatencyMode, options, config);
}

VESKWardendToolsServiceProxy::~VESKWardendToolsServiceProxy() = default;

ara::core::Future<QueryAllDataTypeOutput> VESKWardendToolsServiceProxy::QueryAllDataType() {
    return impl_->queryAllDataType->Call(impl_->options.timeout);
}
ara::core::Future<QueryDataTypeOutput> VESKWardendToolsServiceProxy::QueryDataType(
    const String& typeName) {
    return impl_->queryDataType->Call(typeName, impl_->options.timeout);
}
ara::core::Future<QueryDataTypeRefListOutput> VESKWardendToolsServiceProxy::QueryDataTypeRefList() {
    return impl_->queryDataTypeRefList->Call(impl_->options.timeout);
}
ara::core::Future<QueryEventInfoOutput> VESKWardendToolsServiceProxy::QueryEventInfo(
    const String& eventType) {
    return impl_->queryEventInfo->Call(eventType, impl_->options.timeout);
}
ara::core::Future<QueryEventShowOutput> VESKWardendToolsServiceProxy::QueryEventShow(
    const String& eventType) {
    return impl_->queryEventShow->Call(eventType, impl_->options.timeout);
}
ara::core::Future<QueryLatencyResultOutput> VESKWardendToolsServiceProxy::QueryLatencyResult(
    const LatencyQueryInfo& query) {
    return impl_->queryLatencyResult->Call(query, impl_->options.timeout);
}
ara::core::Future<QueryLatencyStatusOutput> VESKWardendToolsServiceProxy::QueryLatencyStatus(
    const LatencyIndex& index) {
    return impl_->queryLatencyStatus->Call(index, impl_->options.timeout);
}
ara::core::Future<QueryMethodInfoOutput> VESKWardendToolsServiceProxy::QueryMethodInfo(
    const String& methodType) {
    return impl_->queryMethodInfo->Call(methodType, impl_->options.timeout);
}
ara::core::Future<QueryMethodTypeOutput> VESKWardendToolsServiceProxy::QueryMethodType(
    const String& methodType) {
    return impl_->queryMethodType->Call(methodType, impl_->options.timeout);
}
ara::core::Future<QueryNodeInfoOutput> VESKWardendToolsServiceProxy::QueryNodeInfo(
    const String& nodeName) {
    return impl_->queryNodeInfo->Call(nodeName, impl_->options.timeout);
}
ara::core::Future<QuerySubNodeEventInfoOutput> VESKWardendToolsServiceProxy::QuerySubNodeEventInfo(
    const QuerySubEventInfoIndex& index) {
    return impl_->querySubNodeEventInfo->Call(index, impl_->options.timeout);
}
ara::core::Future<SwitchLatencyModeOutput> VESKWardendToolsServiceProxy::SwitchLatencyMode(
    const LatencySwitch& latencySwitch) {
    return impl_->switchLatencyMode->Call(latencySwitch, impl_->options.timeout);
}

bool VESKWardendToolsServiceProxy::WaitForService(std::chrono::milliseconds timeout) {
    return impl_->queryNodeInfo->WaitForService(timeout);
}

}  // namespace vesk::wardend::proxy
