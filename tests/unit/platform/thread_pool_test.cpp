#include "platform/vcc/utils/thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <numeric>
#include <thread>
#include <vector>

#include "tests/support/gate.h"

namespace {

using lumo::vcc::utils::ThreadPool;

// A task that enters the gate and then outlasts the moment Stop marks the pool stopped.
ThreadPool::Task HoldUntilStopped(const ThreadPool& pool, wardend::test::Gate& gate) {
    return [&pool, &gate] {
        gate.Enter();
        while (!pool.IsStopped()) {
            std::this_thread::yield();
        }
    };
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
    std::vector<int> expected(50);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(order, expected);
}

// Each task is queued once the one before has run, so that the worker has gone to sleep or is
// polling: either way it wakes for the next.
TEST(ThreadPoolTest, TasksQueuedOneAtATimeRunWithAndWithoutPolling) {
    for (const auto poll : {ThreadPool::kDefaultPoll, ThreadPool::kNoPoll}) {
        ThreadPool sut(1, 4, "wrdn_test", poll);
        for (int i = 0; i < 100; ++i) {
            std::promise<void> ran;
            ASSERT_TRUE(sut.Enqueue([&ran] { ran.set_value(); }, 0));
            ASSERT_EQ(ran.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready)
                << "task " << i << ", poll " << poll.count() << " us";
        }
    }
}

// The thread that queued a task takes it back and runs it while the worker is busy; a task the
// worker has started, a second take-back and a take-back after Stop run nothing. The queue refuses
// tasks beyond its size; Stop drops the queued ones and refuses more.
TEST(ThreadPoolTest, TheSubmitterRunsItsTaskOnlyWhileNoWorkerHasItAndStopDropsTheRest) {
    ThreadPool sut(1, 2, "wrdn_test");
    wardend::test::Gate gate;
    std::atomic<int> ran{0};
    ThreadPool::QueuedTask started;
    {
        ThreadPool::FirstQueued first;
        ASSERT_TRUE(sut.Enqueue(HoldUntilStopped(sut, gate), 1));
        ASSERT_TRUE(sut.Enqueue([&] { ++ran; }, 1));  // only the first one is kept
        started = first.Take();
    }
    ASSERT_TRUE(gate.WaitEntered(1));
    EXPECT_FALSE(started.RunHere());

    ThreadPool::QueuedTask queued;
    std::thread::id ranOn;
    {
        ThreadPool::FirstQueued first;
        ASSERT_TRUE(sut.Enqueue([&] { ranOn = std::this_thread::get_id(); }, 2));
        queued = first.Take();
    }
    ASSERT_TRUE(queued);
    EXPECT_FALSE(sut.Enqueue([&] { ++ran; }, 2)) << "beyond the queue size";
    EXPECT_EQ(sut.QueuedCount(), 2U);
    EXPECT_TRUE(queued.RunHere());
    EXPECT_EQ(ranOn, std::this_thread::get_id());
    EXPECT_EQ(sut.QueuedCount(), 1U);
    EXPECT_FALSE(queued.RunHere());

    ThreadPool::QueuedTask dropped;
    {
        ThreadPool::FirstQueued first;
        ASSERT_TRUE(sut.Enqueue([&] { ++ran; }, 3));
        dropped = first.Take();
    }
    gate.Open();
    sut.Stop();
    EXPECT_FALSE(dropped.RunHere());
    EXPECT_EQ(ran.load(), 0);
    EXPECT_EQ(sut.DroppedCount(), 2U);
    EXPECT_FALSE(sut.Enqueue([&] { ++ran; }, 1));
    sut.Stop();  // a second stop is harmless
    EXPECT_FALSE(ThreadPool::FirstQueued().Take());
}

}  // namespace
