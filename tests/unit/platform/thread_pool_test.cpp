#include "platform/vcc/utils/thread_pool.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using lumo::vcc::utils::ThreadPool;

// Holds the pool's thread inside a task until released.
class Gate {
public:
    void Block() {
        std::unique_lock<std::mutex> lock(mutex_);
        entered_ = true;
        changed_.notify_all();
        changed_.wait(lock, [this] { return open_; });
    }
    void WaitEntered() {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return entered_; });
    }
    void Open() {
        std::lock_guard<std::mutex> lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool entered_{false};
    bool open_{false};
};

TEST(ThreadPoolTest, RefusesTasksBeyondTheQueueSize) {
    ThreadPool sut(1, 2, "wrdn_test");
    Gate gate;
    ASSERT_TRUE(sut.Enqueue([&] { gate.Block(); }, 1));
    gate.WaitEntered();
    EXPECT_TRUE(sut.Enqueue([] {}, 1));
    EXPECT_TRUE(sut.Enqueue([] {}, 1));
    EXPECT_FALSE(sut.Enqueue([] {}, 1));
    EXPECT_EQ(sut.QueuedCount(), 2U);
    gate.Open();
}

TEST(ThreadPoolTest, StopDropsQueuedTasksAndRefusesNewOnes) {
    ThreadPool sut(1, 8, "wrdn_test");
    Gate gate;
    std::atomic<int> ran{0};
    // The running task outlasts the moment Stop marks the pool stopped.
    ASSERT_TRUE(sut.Enqueue(
        [&] {
            gate.Block();
            while (!sut.IsStopped()) {
                std::this_thread::yield();
            }
        },
        1));
    gate.WaitEntered();
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(sut.Enqueue([&] { ++ran; }, 2));
    }
    gate.Open();
    sut.Stop();
    EXPECT_EQ(ran.load(), 0);
    EXPECT_EQ(sut.DroppedCount(), 3U);
    EXPECT_FALSE(sut.Enqueue([&] { ++ran; }, 1));
    sut.Stop();  // a second stop is harmless
}

TEST(ThreadPoolTest, OneThreadRunsTasksInArrivalOrder) {
    ThreadPool sut(1, 64, "wrdn_test");
    std::vector<int> order;
    std::promise<void> done;
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(sut.Enqueue([&order, i] { order.push_back(i); }, 0));
    }
    ASSERT_TRUE(sut.Enqueue([&] { done.set_value(); }, 0));
    done.get_future().wait();
    ASSERT_EQ(order.size(), 50U);
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(order[i], i);
    }
}

TEST(ThreadPoolTest, ThreadsCarryThePoolName) {
    ThreadPool sut(2, 4, "wrdn_rdmsg");
    std::promise<std::string> name;
    ASSERT_TRUE(sut.Enqueue(
        [&] {
            char buffer[16] = {};
            pthread_getname_np(pthread_self(), buffer, sizeof(buffer));
            name.set_value(buffer);
        },
        0));
    EXPECT_EQ(name.get_future().get(), "wrdn_rdmsg");
}

}  // namespace
