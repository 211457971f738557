#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/unit/service/service_fixture.h"

namespace wardend::test {
namespace {

using ServiceConcurrencyTest = ServiceTest;

// Registrations of every kind race the tools' queries, the node query among them, the way the
// method threads of the two services run them. Under ThreadSanitizer this finds races and lock
// order inversions; the final tables must hold what the writers left.
TEST_F(ServiceConcurrencyTest, RegistrationsAndQueriesRunTogether) {
    constexpr int kWriters = 4;
    constexpr int kRounds = 60;
    std::atomic<bool> writing{true};
    constexpr int kReaders = 2;
    std::vector<std::thread> threads;
    threads.reserve(kWriters + kReaders);
    for (int w = 0; w < kWriters; ++w) {
        threads.emplace_back([this, w] {
            const String app = "concApp" + std::to_string(w);
            for (int i = 0; i < kRounds; ++i) {
                const auto service = static_cast<std::uint16_t>(0x6000 + w * 100 + i % 10);
                const String event = "ConcEvent" + std::to_string(w) + "_" + std::to_string(i % 10);
                AppRegisterInfo pub = EventRegistration(app, event, service, true);
                EXPECT_EQ(Register(pub), 0);
                AppRegisterInfo sub = EventRegistration(app + "Sub", event, service, false);
                EXPECT_EQ(Register(sub), 0);
                EXPECT_EQ(Register(MethodRegistration(app, "ConcMethod" + std::to_string(w),
                                                      service, i % 2 == 0)),
                          0);
                (void)Register(FieldRegistration(app, "ConcField" + std::to_string(w),
                                                 DriverType::DDS,
                                                 static_cast<std::uint16_t>(i % 3)));
                EXPECT_EQ(Register(NodeRegistration(app, true)), 0);
                if (i % 5 == 4) {
                    sub.eventInfo.isRegister = false;
                    (void)Register(sub);
                }
                AppRegisterInfo latency = LatencyRegistration(
                    app, static_cast<LatencyInfoKind>(i % 2), service, event + "Topic");
                latency.latencyInfo.status.isPub = true;
                (void)Register(latency);
            }
        });
    }
    std::atomic<int> queries{0};
    for (int r = 0; r < kReaders; ++r) {
        threads.emplace_back([this, &writing, &queries] {
            while (writing.load()) {
                (void)tools_->QueryNodeInfo("ALL").get();
                (void)tools_->QueryEventInfo("ALL").get();
                (void)tools_->QueryMethodInfo("ALL").get();
                (void)tools_->QueryEventShow("ConcEvent0_1").get();
                (void)tools_->QueryMethodType("ConcMethod1").get();
                (void)tools_->QueryAllDataType().get();
                (void)tools_
                    ->QueryLatencyStatus(LatencyRegistration("", LatencyInfoKind::kAcknowledge,
                                                             0x6001, "ConcEvent0_1Topic")
                                             .latencyInfo.index)
                    .get();
                ++queries;
            }
        });
    }
    for (int w = 0; w < kWriters; ++w) {
        threads[w].join();
    }
    writing = false;
    for (std::size_t t = kWriters; t < threads.size(); ++t) {
        threads[t].join();
    }
    DrainReader();
    EXPECT_GT(queries.load(), 0);

    // "ALL" gives names and pids only; each node by name gives its lists.
    EXPECT_GE(tools_->QueryNodeInfo("ALL").get().nodeInfos.size(),
              static_cast<std::size_t>(kWriters));
    for (int w = 0; w < kWriters; ++w) {
        const String app = "concApp" + std::to_string(w);
        const auto nodes = tools_->QueryNodeInfo(app).get().nodeInfos;
        ASSERT_EQ(nodes.size(), 1U) << app;
        EXPECT_EQ(nodes[0].pubEvents.size(), 10U) << app;
        EXPECT_EQ(nodes[0].methods.size(), 1U) << app;
    }
}

}  // namespace
}  // namespace wardend::test
