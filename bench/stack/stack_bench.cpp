// Run: build/release/bench/stack/wardend_stack_bench --benchmark_repetitions=5
// One request through the whole in-process stack: client proxy, in-process driver, method
// skeleton on the service's pool, the user method and its registries, the reply store, back to
// the caller's future. And QueryEventInfo("ALL") over 10,000 events through SOME/IP on
// loopback, as a tool sees it (the tools service on ports of its own, 30590 and 30592).

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "bench/registry/bench_events.h"
#include "client/wardend_proxy.h"
#include "daemon/drivers.h"
#include "daemon/memory_keeper.h"
#include "daemon/wardend_server.h"
#include "platform/error/com_error_domain.h"
#include "platform/log/log.h"
#include "registry/event_info_manage.h"

namespace {

using vesk::wardend::proxy::ProxyOptions;

const ProxyOptions kInProcess{lumo::vcc::api::types::DriverType::kProloc, "1",
                              std::chrono::seconds(5)};

// The daemon's services, built once for every benchmark of the program.
class Stack {
public:
    Stack() {
        const char* path = "/tmp/wardend_stack_bench.json";
        std::FILE* file = std::fopen(path, "w");
        if (file == nullptr) {
            std::abort();
        }
        std::fputs(R"({"Services": {"someip": {"sdPort": 30590},
                       "App": {"drivers": ["proloc"]},
                       "Tools": {"drivers": ["proloc", "someip"], "port": 30592}}})",
                   file);
        std::fclose(file);
        setenv("VESK_CONFIG", path, 1);
        ara::tessel::common::log::Log::SetLevel(ara::tessel::common::log::LogLevel::kError);
        // As the daemon holds freed memory; the tool's side, in this process too, shares it.
        vesk::wardend::KeepFreedMemory();
        vesk::wardend::RegisterDrivers();
        if (!server_.StartService()) {
            std::abort();
        }
    }
    ~Stack() {
        server_.StopService();
        vesk::wardend::UnregisterDrivers();
    }

private:
    vesk::wardend::WardendServer server_;
};

Stack& TheStack() {
    static Stack stack;
    return stack;
}

// A call refused by the daemon's traffic control: waits outside the timing until the policy's
// window has passed. Every other failure ends the benchmark.
template <typename Output>
bool Accepted(benchmark::State& state, ara::core::Result<Output>& result,
              std::chrono::milliseconds window) {
    if (result.HasValue()) {
        return true;
    }
    if (result.Error().Value() !=
        static_cast<int>(lumo::vcc::api::types::ComErrc::kMaxSamplesExceeded)) {
        state.SkipWithError(vesk::wardend::proxy::DescribeError(result.Error()).c_str());
        return false;
    }
    state.PauseTiming();
    std::this_thread::sleep_for(window);
    state.ResumeTiming();
    return true;
}

// A node's registration: the smallest record the application service stores.
void BM_RegisterAppInfoRoundTrip(benchmark::State& state) {
    TheStack();
    vesk::wardend::proxy::VESKWardendAppServiceProxy app(kInProcess);
    vesk::wardend::AppRegisterInfo info;
    info.infoType = vesk::wardend::AppRegisterInfoType::NODE;
    info.nodeInfo.pid = getpid();
    info.nodeInfo.nodeName = "benchNode";
    info.nodeInfo.registerState.isRegister = true;
    for (auto _ : state) {
        auto result = app.RegisterAppInfo(info).GetResult();
        if (!Accepted(state, result, std::chrono::milliseconds(100))) {
            break;
        }
    }
}
BENCHMARK(BM_RegisterAppInfoRoundTrip)->UseRealTime();

void BM_QueryNodeInfoRoundTrip(benchmark::State& state) {
    TheStack();
    vesk::wardend::proxy::VESKWardendToolsServiceProxy tools(kInProcess);
    for (auto _ : state) {
        auto result = tools.QueryNodeInfo("benchNode").GetResult();
        if (!Accepted(state, result, std::chrono::seconds(1))) {
            break;
        }
        benchmark::DoNotOptimize(result);
    }
}
// The query's traffic policy lets 500 calls a second through.
BENCHMARK(BM_QueryNodeInfoRoundTrip)->UseRealTime()->Iterations(2000);

// 10,000 events of 100 nodes, half on each driver, all published by this (live) process.
void FillEvents() {
    static const bool filled = [] {
        for (int n = 0; n < 10000; ++n) {
            const auto info = wardend::bench::MakeBenchEvent(n, getpid(), n % 2 == 0);
            (void)vesk::wardend::EventInfoManage::GetInstance().RegisterEventInfo(info, true);
        }
        return true;
    }();
    (void)filled;
}

void BM_QueryEventInfoAllOverSomeip(benchmark::State& state) {
    TheStack();
    FillEvents();
    vesk::wardend::proxy::VESKWardendToolsServiceProxy tools(
        ProxyOptions{lumo::vcc::api::types::DriverType::kSomeip, "1", std::chrono::seconds(10)});
    if (!tools.WaitForService(std::chrono::seconds(5))) {
        state.SkipWithError("the tools service was not found over SOME/IP");
        return;
    }
    for (auto _ : state) {
        auto result = tools.QueryEventInfo("ALL").GetResult();
        if (!Accepted(state, result, std::chrono::seconds(1))) {
            break;
        }
        benchmark::DoNotOptimize(result);
        // The query ends when the tool holds its answer; what the tool does with it after,
        // freeing it included, is not timed (as in wardend_load).
        state.PauseTiming();
        result = ara::core::Result<vesk::wardend::QueryEventInfoOutput>(
            vesk::wardend::QueryEventInfoOutput{});
        state.ResumeTiming();
    }
}
// The CPU column is the whole process's (both sides and the driver threads): on a shared
// machine it moves less than the wall time.
BENCHMARK(BM_QueryEventInfoAllOverSomeip)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
