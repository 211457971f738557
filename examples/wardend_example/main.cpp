// wardend-example: a sample application built with the client library. It registers a node
// with its events, a method and a field, follows latency switches and reports what it
// measured, and registers again whenever the daemon restarts. Runs until SIGTERM or SIGINT.

#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <deque>
#include <iostream>
#include <mutex>

#include "client/wardend_proxy.h"
#include "examples/wardend_example/example_app.h"

namespace {

using vesk::wardend::AppRegisterInfo;
using vesk::wardend::proxy::DescribeError;
using vesk::wardend::proxy::DriverType;
using vesk::wardend::proxy::ProxyOptions;
using vesk::wardend::proxy::VESKWardendAppServiceProxy;
namespace example = vesk::wardend::example;
using Clock = std::chrono::steady_clock;

// Sends each registration and waits for its answer; false when one failed.
bool SendAll(VESKWardendAppServiceProxy& proxy, const std::vector<AppRegisterInfo>& infos,
             const char* what) {
    bool ok = true;
    for (const auto& info : infos) {
        auto result = proxy.RegisterAppInfo(info).GetResult();
        if (!result.HasValue()) {
            std::cerr << "wardend-example: " << what << " failed: " << DescribeError(result.Error())
                      << std::endl;
            return false;
        }
        if (result.Value().result != 0) {
            std::cerr << "wardend-example: " << what << " refused by the daemon (info type "
                      << static_cast<int>(info.infoType) << ")" << std::endl;
            ok = false;
        }
    }
    return ok;
}

// Acknowledgements wait here for the main thread: the switch arrives on a driver thread, which
// must not wait for the answer of a call.
class AckQueue {
public:
    void Push(std::vector<AppRegisterInfo> infos) {
        std::lock_guard<std::mutex> lock(mutex_);
        for (auto& info : infos) {
            queue_.push_back(std::move(info));
        }
    }
    std::vector<AppRegisterInfo> Take() {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<AppRegisterInfo> taken(queue_.begin(), queue_.end());
        queue_.clear();
        return taken;
    }

private:
    std::mutex mutex_;  // guards queue_
    std::deque<AppRegisterInfo> queue_;
};

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "wardend-example: registers a node, its events, a method and a field with "
        "wardend, follows latency switches and reports results, until SIGTERM or "
        "SIGINT."};
    std::string node = "example";
    std::string driver = "someip";
    std::string instance = "1";
    int timeoutMs = 2000;
    int tickMs = 100;
    int reportMs = 1000;
    app.add_option("--node", node, "the node's name")->capture_default_str();
    app.add_option("--driver", driver, "how to reach the daemon")
        ->check(CLI::IsMember({"someip", "dds"}))
        ->capture_default_str();
    app.add_option("--instance", instance, "the daemon's instance id")->capture_default_str();
    app.add_option("--timeout", timeoutMs, "timeout of each call, in milliseconds")
        ->check(CLI::Range(1, 600000))
        ->capture_default_str();
    app.add_option("--tick", tickMs, "period of the measured publish loop, in milliseconds")
        ->check(CLI::Range(1, 60000))
        ->capture_default_str();
    app.add_option("--report", reportMs, "period of the latency reports, in milliseconds")
        ->check(CLI::Range(1, 600000))
        ->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    // Every thread started from here on leaves SIGTERM and SIGINT to sigtimedwait below.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    ProxyOptions options;
    options.driver = driver == "dds" ? DriverType::kDds : DriverType::kSomeip;
    options.instance = instance;
    options.timeout = std::chrono::milliseconds(timeoutMs);
    VESKWardendAppServiceProxy proxy(options);
    example::LatencyReporter reporter(node);
    AckQueue acks;
    const auto pid = static_cast<std::int32_t>(getpid());

    const bool watched = proxy.SetDaemonFoundHandler([&] {
        // A daemon that was found anew knows nothing of this application, nor of any switch.
        reporter.Reset();
        if (SendAll(proxy, example::Registrations(node, pid), "registration")) {
            std::cout << "wardend-example: node " << node << " registered with wardend"
                      << std::endl;
        }
    });
    if (!watched ||
        !proxy.SubscribeLatencySwitch([&](const vesk::wardend::LatencySwitch& latencySwitch) {
            acks.Push(reporter.OnSwitch(latencySwitch));
        })) {
        std::cerr << "wardend-example: the " << driver << " driver is not available" << std::endl;
        return 1;
    }
    std::cout << "wardend-example: node " << node << " (pid " << pid
              << ") looking for wardend over " << driver << std::endl;

    // The measured loop: how late each tick wakes up, a stand-in for a publish cycle.
    const auto tick = std::chrono::milliseconds(tickMs);
    const auto reportPeriod = std::chrono::milliseconds(reportMs);
    auto nextTick = Clock::now() + tick;
    auto nextReport = Clock::now() + reportPeriod;
    int stopSignal = 0;
    while (stopSignal == 0) {
        const auto wait = std::max(nextTick - Clock::now(), Clock::duration::zero());
        const auto waitNs = std::chrono::duration_cast<std::chrono::nanoseconds>(wait).count();
        timespec timeout{static_cast<time_t>(waitNs / 1000000000),
                         static_cast<long>(waitNs % 1000000000)};
        const int got = sigtimedwait(&stopSignals, nullptr, &timeout);
        if (got > 0) {
            stopSignal = got;
            break;
        }
        const auto now = Clock::now();
        if (now >= nextTick) {
            const auto late = std::chrono::duration_cast<std::chrono::microseconds>(now - nextTick);
            reporter.Record(static_cast<std::uint64_t>(late.count()));
            nextTick += tick;
            if (nextTick < now) {
                nextTick = now + tick;
            }
        }
        const auto taken = acks.Take();
        if (!taken.empty() && SendAll(proxy, taken, "latency acknowledgement")) {
            std::cout << "wardend-example: latency mode "
                      << static_cast<int>(taken.front().latencyInfo.status.mode)
                      << " acknowledged for " << taken.size() << " event(s)" << std::endl;
        }
        if (now >= nextReport) {
            const auto reports = reporter.TakeReports();
            if (!reports.empty()) {
                (void)SendAll(proxy, reports, "latency report");
            }
            nextReport = now + reportPeriod;
        }
    }

    std::cout << "wardend-example: stopping on signal " << stopSignal << std::endl;
    proxy.UnsubscribeLatencySwitch();
    (void)proxy.SetDaemonFoundHandler(nullptr);
    if (proxy.WaitForService(std::chrono::milliseconds(0))) {
        (void)SendAll(proxy, example::Unregistrations(node, pid), "unregistration");
    }
    return 0;
}
