// Calls, replies from pool threads, events and subscriptions racing each other and the
// driver's shutdown. Run under ThreadSanitizer.

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "tests/unit/someip/someip_test_server.h"

namespace wardend::test::someip {
namespace {

using lumo::driver::someip::SomeipDriver;
using lumo::vcc::driver::CallStatus;
using lumo::vcc::driver::MethodReply;
using namespace std::chrono_literals;

// Counts handler calls; each call must come exactly once.
struct CallCounter {
    std::atomic<int> ok{0};
    std::atomic<int> other{0};
    std::mutex mutex;  // guards done
    std::condition_variable changed;
    int done{0};
    void Record(const MethodReply& reply) {
        (reply.status == CallStatus::kOk ? ok : other)++;
        // Notified under the lock: the waiter may destroy the counter as soon as it sees done.
        std::lock_guard<std::mutex> lock(mutex);
        ++done;
        changed.notify_all();
    }
    bool WaitDone(int count, std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, timeout, [&] { return done >= count; });
    }
};

TEST(SomeipConcurrencyTest, CallsFromManyThreadsGetOneAnswerEach) {
    TestServer server(QuickOptions(), 0, 0, true, 1U << 20U, true);
    SomeipDriver client(QuickOptions());
    auto tcp = client.CreateMethodClient(MethodOn(kService, kMethod, 0, server.sdPort));
    auto udpInfo = MethodOn(kService, kMethod, 0, server.sdPort);
    udpInfo.someip.udp = true;
    auto udp = client.CreateMethodClient(udpInfo);
    ASSERT_TRUE(tcp->WaitForService(5s));
    CallCounter counter;
    CallCounter udpCounter;
    constexpr int kThreads = 4;
    constexpr int kCalls = 200;
    std::vector<std::thread> callers;
    for (int t = 0; t < kThreads; ++t) {
        callers.emplace_back([&, t] {
            const Bytes payload(static_cast<std::size_t>(t + 1), 0x11);
            auto& method = t == 0 ? *udp : *tcp;
            auto& count = t == 0 ? udpCounter : counter;
            for (int i = 0; i < kCalls; ++i) {
                method.Call(payload.data(), payload.size(), 1s,
                            [&count](const MethodReply& reply) { count.Record(reply); });
            }
        });
    }
    for (auto& caller : callers) {
        caller.join();
    }
    ASSERT_TRUE(counter.WaitDone((kThreads - 1) * kCalls, 20s));
    ASSERT_TRUE(udpCounter.WaitDone(kCalls, 20s));
    // TCP loses nothing; UDP may drop datagrams under load, but every call ends once.
    EXPECT_EQ(counter.ok.load(), (kThreads - 1) * kCalls);
    EXPECT_EQ(counter.other.load(), 0);
    EXPECT_EQ(udpCounter.ok.load() + udpCounter.other.load(), kCalls);
    EXPECT_GT(udpCounter.ok.load(), 0);
}

TEST(SomeipConcurrencyTest, EventsFromManyThreadsWhileSubscribersComeAndGo) {
    TestServer server;
    SomeipDriver client(QuickOptions());
    std::atomic<bool> stop{false};
    std::vector<std::thread> senders;
    for (int t = 0; t < 3; ++t) {
        senders.emplace_back([&] {
            while (!stop) {
                server.SendEvent({1, 2, 3});
                std::this_thread::sleep_for(1ms);
            }
        });
    }
    std::atomic<int> samples{0};
    for (int round = 0; round < 10; ++round) {
        auto info = EventOn(kService, kEvent, kEventgroup, 0, server.sdPort);
        info.someip.udp = round % 2 == 1;
        auto events = client.CreateEventClient(info);
        ASSERT_TRUE(events->Subscribe([&](const unsigned char*, std::uint64_t) { ++samples; }));
        const auto deadline = std::chrono::steady_clock::now() + 5s;
        const int before = samples.load();
        while (samples.load() == before && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(1ms);
        }
        EXPECT_GT(samples.load(), before) << "round " << round;
        events->Unsubscribe();
        const int after = samples.load();
        std::this_thread::sleep_for(5ms);
        EXPECT_EQ(samples.load(), after) << "a sample arrived after Unsubscribe returned";
    }
    stop = true;
    for (auto& sender : senders) {
        sender.join();
    }
}

TEST(SomeipConcurrencyTest, StoppingTheClientEndsEveryCallExactlyOnce) {
    TestServer server;
    auto client = std::make_unique<SomeipDriver>(QuickOptions());
    auto method = client->CreateMethodClient(MethodOn(kService, kMethod, 0, server.sdPort));
    ASSERT_TRUE(method->WaitForService(5s));
    CallCounter counter;
    std::atomic<int> issued{0};
    std::thread caller([&] {
        const Bytes silent = {'N'};
        for (int i = 0; i < 500; ++i) {
            method->Call(silent.data(), silent.size(), 30s,
                         [&counter](const MethodReply& reply) { counter.Record(reply); });
            ++issued;
        }
    });
    while (issued.load() < 50) {
        std::this_thread::yield();
    }
    client.reset();  // races the caller: each call ends by "driver stopped" at the latest
    caller.join();
    ASSERT_TRUE(counter.WaitDone(500, 10s));
    EXPECT_EQ(counter.ok.load(), 0);
    EXPECT_EQ(counter.other.load(), 500);
}

}  // namespace
}  // namespace wardend::test::someip
