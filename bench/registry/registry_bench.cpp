// Event registration and the two queries that walk the whole event registry, over 10,000
// events of 100 nodes, each node a live process of its own (a paused child), so that the /proc
// checks look at 100 processes as they would on a machine. Logging is at warn, so that the info
// and verbose lines of these paths are not formatted; the registry work and the /proc checks are
// what is measured.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <set>
#include <vector>

#include "bench/registry/bench_events.h"
#include "platform/log/log.h"
#include "registry/event_info_manage.h"
#include "registry/node_info_manage.h"

namespace {

using namespace vesk::wardend;  // NOLINT(google-build-using-namespace): the registries measured

constexpr int kEvents = 10000;
constexpr int kPerService = wardend::bench::kEventsPerNode;  // 100 nodes of 100 events

// One paused child per node, made before any thread exists and killed at exit. The list is
// never destroyed, so that the exit handler can still read it.
const std::vector<pid_t>& NodePids() {
    static const auto* const pids = [] {
        auto* made = new std::vector<pid_t>();  // NOLINT(cppcoreguidelines-owning-memory)
        for (int node = 0; node < kEvents / kPerService; ++node) {
            const pid_t pid = fork();
            if (pid == 0) {
                // Not holding the output open for whoever reads it.
                const int null = open("/dev/null", O_RDWR);
                dup2(null, STDOUT_FILENO);
                dup2(null, STDERR_FILENO);
                for (;;) {
                    pause();
                }
            }
            made->push_back(pid);
        }
        std::atexit([] {
            for (const pid_t pid : NodePids()) {
                kill(pid, SIGKILL);
                waitpid(pid, nullptr, 0);
            }
        });
        return made;
    }();
    return *pids;
}

EventRegisterInfo MakeEvent(int n, bool someip) {
    const auto& pids = NodePids();
    return wardend::bench::MakeBenchEvent(
        n, pids[static_cast<std::size_t>(n / kPerService) % pids.size()], someip);
}

// 10,000 events, half on each driver, each with a live publisher; done once per process.
void Fill() {
    static const bool filled = [] {
        ara::tessel::common::log::Log::SetLevel(ara::tessel::common::log::LogLevel::kWarn);
        for (int n = 0; n < kEvents; ++n) {
            EventInfoManage::GetInstance().RegisterEventInfo(MakeEvent(n, n % 2 == 1), true);
        }
        return true;
    }();
    (void)filled;
}

// The queries run first: the registrations below add events for good.
void BM_QueryEventInfoAll(benchmark::State& state) {
    Fill();
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): the benchmark loop idiom
        auto result = EventInfoManage::GetInstance().QueryEventInfo("ALL");
        benchmark::DoNotOptimize(result.data());
    }
}
BENCHMARK(BM_QueryEventInfoAll)->Unit(benchmark::kMillisecond);

void BM_QueryNodeInfoOneNode(benchmark::State& state) {
    Fill();
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): the benchmark loop idiom
        auto result = NodeInfoManage::GetInstance().QueryNodeInfo("benchNode42");
        benchmark::DoNotOptimize(result.data());
    }
}
BENCHMARK(BM_QueryNodeInfoOneNode)->Unit(benchmark::kMicrosecond);

void BM_RegisterNewEvent(benchmark::State& state) {
    Fill();
    int n = kEvents;
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): the benchmark loop idiom
        // New keys above the filled range: the table grows from 10,000 during the run.
        const bool ok = EventInfoManage::GetInstance().RegisterEventInfo(
            MakeEvent(kEvents * 10 + n++, false), true);
        benchmark::DoNotOptimize(ok);
    }
    state.SetItemsProcessed(state.iterations());
}
// Capped, so that the table grows from 10,000 to no more than 20,000 events.
BENCHMARK(BM_RegisterNewEvent)->Iterations(kEvents);

void BM_RegisterExistingSubscriber(benchmark::State& state) {
    Fill();
    EventRegisterInfo info = MakeEvent(kEvents / 2, false);
    info.appName = "benchSubscriber";
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): the benchmark loop idiom
        const bool ok = EventInfoManage::GetInstance().RegisterEventInfo(info, false);
        benchmark::DoNotOptimize(ok);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RegisterExistingSubscriber);

}  // namespace
