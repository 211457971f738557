// Calls, replies from pool threads, events and subscriptions racing each other and the
// driver's shutdown. Run under ThreadSanitizer.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/driver/someip/message_block.h"
#include "platform/driver/someip/someip_header.h"
#include "tests/support/method_calls.h"
#include "tests/support/process.h"
#include "tests/support/wait.h"
#include "tests/unit/someip/someip_test_server.h"

namespace wardend::test::someip {
namespace {

using lumo::driver::someip::SomeipDriver;
using lumo::vcc::driver::CallStatus;
using lumo::vcc::driver::MethodMsgPtr;
using namespace std::chrono_literals;

// Takes count replies from catcher; how many were answers, or -1 when one did not come.
int Answered(const ReplyCatcher& catcher, int count) {
    int ok = 0;
    for (int i = 0; i < count; ++i) {
        const auto reply = catcher.Wait(20s);
        if (!reply) {
            return -1;
        }
        ok += reply->status == CallStatus::kOk ? 1 : 0;
    }
    return ok;
}

TEST(SomeipConcurrencyTest, CallsFromManyThreadsGetOneAnswerEach) {
    TestServer server(QuickOptions(), 0, 0, true, 1U << 20U, true);
    SomeipDriver client(QuickOptions());
    auto tcp = client.CreateMethodClient(MethodOn(kService, kMethod, 0, server.sdPort));
    auto udpInfo = MethodOn(kService, kMethod, 0, server.sdPort);
    udpInfo.someip.udp = true;
    auto udp = client.CreateMethodClient(udpInfo);
    ASSERT_TRUE(tcp->WaitForService(5s));
    const ReplyCatcher tcpReplies;
    const ReplyCatcher udpReplies;
    constexpr int kThreads = 4;
    constexpr int kCalls = 200;
    std::vector<std::thread> callers;
    callers.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        callers.emplace_back([&, t] {
            const Bytes payload(static_cast<std::size_t>(t + 1), 0x11);
            auto& method = t == 0 ? *udp : *tcp;
            const auto handler = (t == 0 ? udpReplies : tcpReplies).Handler();
            for (int i = 0; i < kCalls; ++i) {
                method.Call(payload.data(), payload.size(), 1s, handler);
            }
        });
    }
    for (auto& caller : callers) {
        caller.join();
    }
    // TCP loses nothing; UDP may drop datagrams under load, but every call ends once.
    EXPECT_EQ(Answered(tcpReplies, (kThreads - 1) * kCalls), (kThreads - 1) * kCalls);
    EXPECT_GT(Answered(udpReplies, kCalls), 0);
    EXPECT_EQ(tcpReplies.Count() + udpReplies.Count(), kThreads * kCalls);
}

TEST(SomeipConcurrencyTest, EventsFromManyThreadsWhileSubscribersComeAndGo) {
    TestServer server;
    SomeipDriver client(QuickOptions());
    std::atomic<bool> stop{false};
    std::vector<std::thread> senders;
    senders.reserve(3);
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
        const int before = samples.load();
        EXPECT_TRUE(WaitUntil([&] { return samples.load() > before; })) << "round " << round;
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
    const ReplyCatcher replies;
    std::atomic<int> issued{0};
    std::thread caller([&] {
        for (int i = 0; i < 500; ++i) {
            method->Call(reinterpret_cast<const unsigned char*>("N"), 1, 30s, replies.Handler());
            ++issued;
        }
    });
    while (issued.load() < 50) {
        std::this_thread::yield();
    }
    client.reset();  // races the caller: each call ends by "driver stopped" at the latest
    caller.join();
    EXPECT_EQ(Answered(replies, 500), 0);
    EXPECT_EQ(replies.Count(), 500);
}

// Voluntary context switches of this process's threads of that name.
long long WakeUps(const std::string& name) {
    long long total = 0;
    for (const auto& thread : Threads(::getpid())) {
        total += thread.name == name ? thread.voluntarySwitches : 0;
    }
    return total;
}

// The I/O thread sleeps until its next deadline: an idle server wakes for its cyclic offers and
// the idle tick, not every tick; a call's timeout, set on the caller's thread, still ends the
// call on time while the I/O thread sleeps.
TEST(SomeipConcurrencyTest, TheIoThreadWakesForDeadlinesNotEveryTick) {
    auto options = QuickOptions();
    options.idleTick = 5s;
    TestServer server(options);
    SomeipDriver client(options);
    auto method = client.CreateMethodClient(MethodOn(kService, kMethod, 0, server.sdPort));
    ASSERT_TRUE(method->WaitForService(5s));
    ASSERT_TRUE(CallAndWait(*method, "ready", 1s));  // connected: the next call goes out directly
    std::this_thread::sleep_for(300ms);              // offers and finds settle

    const long long before = WakeUps("someip_io");
    std::this_thread::sleep_for(1s);
    const long long idle = WakeUps("someip_io") - before;
    // Two drivers at a 5 ms tick would wake 400 times; each offers every 200 ms.
    EXPECT_LT(idle, 60) << "wake-ups of the idle I/O threads in one second";

    // Never answered; waited for a second past its timeout, well before the idle tick.
    const auto reply = CallAndWait(*method, "N", 100ms);
    ASSERT_TRUE(reply) << "the timeout waited for the idle tick";
    EXPECT_EQ(reply->status, CallStatus::kTimeout);
}

// A peer that pipelines past its limit of open requests waits in its socket (TCP) or is refused
// (UDP); another peer's request is taken meanwhile, and the TCP pipeline loses nothing. Requests
// end on the test's thread while the I/O thread pauses and resumes the reading.
TEST(SomeipConcurrencyTest, APipelineWaitsAtItsLimitWhileAnotherPeerIsServed) {
    auto options = QuickOptions();
    options.maxRequestsInFlight = 3;
    const std::uint16_t port = FreePort();
    SomeipDriver server(options);
    auto method = server.CreateMethodHandler(MethodOn(kService, kMethod, port, FreePort()));
    ASSERT_NE(method, nullptr);
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<MethodMsgPtr> held;  // a held request stays open
    method->SetReceiveHandler([&](const MethodMsgPtr& msg) {
        method->ReturnLoan(msg->payload);
        std::lock_guard<std::mutex> lock(mutex);
        held.push_back(msg);
        arrived.notify_all();
    });
    const auto waitHeld = [&](std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex);
        return arrived.wait_for(lock, 5s, [&] { return held.size() >= count; });
    };
    // Answers and lets go of the held requests on this thread, as a method thread does.
    const auto answerAll = [&] {
        std::vector<MethodMsgPtr> taken;
        {
            std::lock_guard<std::mutex> lock(mutex);
            taken.swap(held);
        }
        for (auto& msg : taken) {
            const lumo::vcc::driver::SizeRecord size{1};
            method->ReplyData(method->AllocateBuffer(size, *msg), size, msg, false);
            msg.reset();
        }
    };
    ASSERT_TRUE(server.OfferService(kService, "1"));

    RawTcpPeer pipeline;
    ASSERT_TRUE(pipeline.Connect(port));
    for (std::uint16_t session = 1; session <= 5; ++session) {
        ASSERT_TRUE(pipeline.Send(Request(kService, kMethod, session)));
    }
    ASSERT_TRUE(waitHeld(3));
    RawTcpPeer other;
    ASSERT_TRUE(other.Connect(port));
    ASSERT_TRUE(other.Send(Request(kService, kMethod, 9)));
    ASSERT_TRUE(waitHeld(4));
    {
        std::lock_guard<std::mutex> lock(mutex);
        EXPECT_EQ(held[3]->uuid.low, 9U) << "the pipeline went on past its limit";
    }
    answerAll();
    EXPECT_EQ(HeaderOf(other.Receive()).sessionId, 9);
    // The rest of the pipeline comes once its first three have ended.
    ASSERT_TRUE(waitHeld(2));
    answerAll();
    for (std::uint16_t session = 1; session <= 5; ++session) {
        EXPECT_EQ(HeaderOf(pipeline.Receive()).sessionId, session);
    }

    // UDP cannot wait in a socket: what a peer sends past its limit is refused at once.
    using lumo::driver::someip::ReturnCode;
    const RawUdpPeer flood;
    const RawUdpPeer quiet;
    for (std::uint16_t session = 21; session <= 25; ++session) {
        ASSERT_TRUE(flood.SendTo(port, Request(kService, kMethod, session)));
    }
    for (std::uint16_t session = 24; session <= 25; ++session) {
        const SomeipHeader refusal = HeaderOf(flood.Receive());
        EXPECT_EQ(refusal.sessionId, session);
        EXPECT_EQ(refusal.returnCode, static_cast<std::uint8_t>(ReturnCode::kNotReady));
    }
    ASSERT_TRUE(quiet.SendTo(port, Request(kService, kMethod, 31)));
    ASSERT_TRUE(waitHeld(4));
    answerAll();
    ASSERT_TRUE(quiet.Receive());
    for (int answered = 0; answered < 3; ++answered) {
        EXPECT_EQ(HeaderOf(flood.Receive()).returnCode, static_cast<std::uint8_t>(ReturnCode::kOk));
    }
    // Its ended requests are forgotten: it is served again.
    ASSERT_TRUE(flood.SendTo(port, Request(kService, kMethod, 26)));
    ASSERT_TRUE(waitHeld(1));
    method->SetReceiveHandler(nullptr);
}

// Large message blocks written, given back and taken again on several threads at once, while
// an I/O thread's tick releases idle ones.
TEST(SomeipConcurrencyTest, LargeBlocksPassBetweenThreads) {
    using namespace lumo::driver::someip;
    std::atomic<bool> stop{false};
    std::thread releaser([&stop] {
        while (!stop) {
            ReleaseIdleBlocks(std::chrono::steady_clock::now() + kLargeBlockKeep);
            std::this_thread::sleep_for(1ms);
        }
    });
    std::vector<std::thread> writers;
    writers.reserve(4);
    for (int t = 0; t < 4; ++t) {
        writers.emplace_back([t] {
            for (int i = 0; i < 200; ++i) {
                const std::size_t size =
                    kLargeBlockBytes * static_cast<std::size_t>(1 + (t + i) % 3);
                unsigned char* block = AllocateBlock(size, i % 2 == 0);
                ASSERT_NE(block, nullptr);
                block[0] = static_cast<unsigned char>(t);
                block[size - 1] = static_cast<unsigned char>(i);
                FreeBlock(block);
            }
        });
    }
    for (auto& writer : writers) {
        writer.join();
    }
    stop = true;
    releaser.join();
    ReleaseIdleBlocks(std::chrono::steady_clock::now() + kLargeBlockKeep);
    EXPECT_EQ(KeptLargeBlocks().count, 0U);
}

}  // namespace
}  // namespace wardend::test::someip
