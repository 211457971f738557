#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/core/future.h"

namespace {

using ara::core::Future;
using ara::core::Promise;

// then() attached while another thread fulfils the promise: every continuation runs exactly
// once and sees its value, whichever side wins the race.
TEST(FutureConcurrencyTest, ContinuationsRunOnceWhenAttachedDuringFulfilment) {
    constexpr int kRounds = 2000;
    std::atomic<long> sum{0};
    std::atomic<int> runs{0};
    for (int i = 0; i < kRounds; ++i) {
        Promise<int> promise;
        auto future = promise.get_future();
        std::thread fulfiller([&promise, i] { promise.set_value(i); });
        auto next = future.then([&](Future<int> done) {
            sum += done.get();
            ++runs;
            return 0;
        });
        fulfiller.join();
        EXPECT_EQ(next.get(), 0);
    }
    EXPECT_EQ(runs.load(), kRounds);
    EXPECT_EQ(sum.load(), static_cast<long>(kRounds) * (kRounds - 1) / 2);
}

TEST(FutureConcurrencyTest, ManyWaitersSeeTheSameReadyState) {
    Promise<int> promise;
    auto future = promise.get_future();
    std::vector<std::thread> waiters;
    waiters.reserve(8);
    std::atomic<int> ready{0};
    for (int i = 0; i < 8; ++i) {
        waiters.emplace_back([&] {
            future.wait();
            if (future.is_ready()) {
                ++ready;
            }
        });
    }
    promise.set_value(1);
    for (auto& waiter : waiters) {
        waiter.join();
    }
    EXPECT_EQ(ready.load(), 8);
    EXPECT_EQ(future.get(), 1);
}

}  // namespace
