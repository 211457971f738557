// Run: build/release/bench/stack/wardend_stack_bench --benchmark_repetitions=5
// One request through the whole in-process stack: client proxy, in-process driver, method
// skeleton on the service's pool, the user method and its registries, the reply store, back to
// the caller's future.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "client/wardend_proxy.h"
#include "daemon/drivers.h"
#include "daemon/wardend_server.h"
#include "platform/error/com_error_domain.h"
#include "platform/log/log.h"

namespace {

using vesk::wardend::proxy::ProxyOptions;

const ProxyOptions kInProcess{lumo::vcc::api::types::DriverType::kProloc, "1",
                              std::chrono::seconds(5)};

// The daemon's services, built once for every benchmark of the program.
class Stack {
public:
    Stack() {
        // In-process only, so that no socket of the default drivers is opened.
        const char* path = "/tmp/wardend_stack_bench.json";
        std::FILE* file = std::fopen(path, "w");
        if (file == nullptr) {
            std::abort();
        }
        std::fputs(
            R"({"Services": {"App": {"drivers": ["proloc"]}, "Tools": {"drivers": ["proloc"]}}})",
            file);
        std::fclose(file);
        setenv("VESK_CONFIG", path, 1);
        ara::tessel::common::log::Log::SetLevel(ara::tessel::common::log::LogLevel::kError);
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

}  // namespace

BENCHMARK_MAIN();
