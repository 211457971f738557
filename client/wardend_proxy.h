#ifndef CLIENT_WARDEND_PROXY_H
#define CLIENT_WARDEND_PROXY_H

// The client side of wardend's two services, for applications and tools.
//
//   vesk::wardend::proxy::VESKWardendToolsServiceProxy tools({DriverType::kSomeip});
//   auto nodes = tools.QueryNodeInfo("ALL").GetResult();  // ready within the timeout
//
// Every call returns a future that is ready with the answer or, within the timeout, with an
// error: kServiceNotAvailable (Com domain) when the daemon is not there, kCommunicationStackError
// when it did not answer in time, kMaxSamplesExceeded when its traffic control refused the call.

#include <chrono>
#include <functional>
#include <memory>

#include "platform/core/future.h"
#include "platform/core/string.h"
#include "platform/vcc/api/types/driver_type.h"
#include "records/service_outputs.h"
#include "records/wardend_records.h"

namespace vesk::wardend::proxy {

using lumo::vcc::api::types::DriverType;

struct ProxyOptions {
    DriverType driver{DriverType::kSomeip};
    ara::core::String instance{"1"};  // the daemon's "Wardend"."instanceId"
    std::chrono::milliseconds timeout{std::chrono::seconds(2)};
};

// The text of an error a call ended with, for people: "daemon not reachable", ...
ara::core::String DescribeError(const ara::core::ErrorCode& error);

class VESKWardendAppServiceProxy {
public:
    explicit VESKWardendAppServiceProxy(const ProxyOptions& options = {});
    ~VESKWardendAppServiceProxy();
    VESKWardendAppServiceProxy(const VESKWardendAppServiceProxy&) = delete;
    VESKWardendAppServiceProxy& operator=(const VESKWardendAppServiceProxy&) = delete;

    ara::core::Future<RegisterAppInfoOutput> RegisterAppInfo(const AppRegisterInfo& info);

    // Latency switches for this machine's applications; the handler runs on a driver thread.
    bool SubscribeLatencySwitch(std::function<void(const LatencySwitch&)> handler);
    void UnsubscribeLatencySwitch();
    bool IsLatencySwitchSubscribed() const;

    // Waits until the daemon offers the service.
    bool WaitForService(std::chrono::milliseconds timeout);

    // Runs handler on a thread of the proxy each time the daemon is found: once it is reachable,
    // and again after every restart of the daemon, which forgets what applications registered.
    // Register (again) from it; it may call RegisterAppInfo and wait for the answers. Replaces
    // an earlier handler; not from within the handler. False when the driver is not available.
    bool SetDaemonFoundHandler(std::function<void()> handler);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

class VESKWardendToolsServiceProxy {
public:
    explicit VESKWardendToolsServiceProxy(const ProxyOptions& options = {});
    ~VESKWardendToolsServiceProxy();
    VESKWardendToolsServiceProxy(const VESKWardendToolsServiceProxy&) = delete;
    VESKWardendToolsServiceProxy& operator=(const VESKWardendToolsServiceProxy&) = delete;

    ara::core::Future<QueryAllDataTypeOutput> QueryAllDataType();
    ara::core::Future<QueryDataTypeOutput> QueryDataType(const String& typeName);
    ara::core::Future<QueryDataTypeRefListOutput> QueryDataTypeRefList();
    ara::core::Future<QueryEventInfoOutput> QueryEventInfo(const String& eventType);
    ara::core::Future<QueryEventShowOutput> QueryEventShow(const String& eventType);
    ara::core::Future<QueryLatencyResultOutput> QueryLatencyResult(const LatencyQueryInfo& query);
    ara::core::Future<QueryLatencyStatusOutput> QueryLatencyStatus(const LatencyIndex& index);
    ara::core::Future<QueryMethodInfoOutput> QueryMethodInfo(const String& methodType);
    ara::core::Future<QueryMethodTypeOutput> QueryMethodType(const String& methodType);
    ara::core::Future<QueryNodeInfoOutput> QueryNodeInfo(const String& nodeName);
    ara::core::Future<QuerySubNodeEventInfoOutput> QuerySubNodeEventInfo(
        const QuerySubEventInfoIndex& index);
    ara::core::Future<SwitchLatencyModeOutput> SwitchLatencyMode(
        const LatencySwitch& latencySwitch);

    bool WaitForService(std::chrono::milliseconds timeout);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vesk::wardend::proxy

#endif
