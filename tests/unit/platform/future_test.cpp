#include "platform/core/future.h"

#include <gtest/gtest.h>

#include <thread>

#include "platform/error/com_error_domain.h"

namespace {

using ara::core::ErrorCode;
using ara::core::Future;
using ara::core::FutureException;
using ara::core::Promise;
using ara::core::Result;

ErrorCode FutureError(ara::core::future_errc code) {
    return ara::core::MakeErrorCode(code, 0);
}

// A continuation runs at once on the calling thread when the future is ready, otherwise on the
// thread that fulfils the promise.
TEST(FutureTest, ThenRunsOnTheThreadThatMakesTheValueAvailable) {
    for (const bool readyFirst : {true, false}) {
        SCOPED_TRACE(readyFirst ? "ready" : "pending");
        Promise<int> promise;
        auto future = promise.get_future();
        std::thread::id fulfiller = std::this_thread::get_id();
        if (readyFirst) {
            promise.set_value(4);
        }
        std::thread::id ranOn;
        auto next = future.then([&](Future<int> done) {
            ranOn = std::this_thread::get_id();
            return done.get() * 2;
        });
        EXPECT_FALSE(future.valid());
        EXPECT_EQ(next.is_ready(), readyFirst);
        if (!readyFirst) {
            std::thread worker([&] {
                fulfiller = std::this_thread::get_id();
                promise.set_value(4);
            });
            worker.join();
        }
        EXPECT_EQ(next.get(), 8);
        EXPECT_EQ(ranOn, fulfiller);
    }
}

// A continuation may return a Result, void or a Future; an error passes through a Result.
TEST(FutureTest, ThenChainsThroughResultsVoidAndFutures) {
    Promise<int> failing;
    auto next = failing.get_future().then([](Future<int> done) -> Result<std::string> {
        auto result = done.GetResult();
        if (!result.HasValue()) {
            return Result<std::string>::FromError(result.Error());
        }
        return std::to_string(result.Value());
    });
    failing.SetError(lumo::vcc::api::types::MakeErrorCode(
        lumo::vcc::api::types::ComErrc::kServiceNotOffered, 0));
    auto result = next.GetResult();
    ASSERT_FALSE(result.HasValue());
    EXPECT_EQ(result.Error().Value(), 11);

    Promise<int> promise;
    Promise<int> inner;
    int seen = 0;
    auto chained = promise.get_future()
                       .then([&](Future<int> done) { seen = done.get(); })
                       .then([&](Future<void> done) {
                           done.get();
                           return inner.get_future();
                       });
    promise.set_value(3);
    EXPECT_EQ(seen, 3);
    EXPECT_FALSE(chained.is_ready());
    inner.set_value(10);
    EXPECT_EQ(chained.get(), 10);
}

// Misuse raises FutureException with its code; a promise destroyed unsatisfied breaks its future,
// and get() on an error throws that error's domain exception.
TEST(FutureTest, MisuseAndErrorsRaiseTheirExceptions) {
    const auto expectThrows = [](const char* what, ara::core::future_errc code, auto call) {
        try {
            call();
            ADD_FAILURE() << what << " did not throw";
        } catch (const FutureException& e) {
            EXPECT_EQ(e.Error(), FutureError(code)) << what;
        }
    };
    Promise<int> promise;
    auto future = promise.get_future();
    expectThrows("second get_future", ara::core::future_errc::future_already_retrieved,
                 [&] { (void)promise.get_future(); });
    promise.set_value(1);
    expectThrows("second set_value", ara::core::future_errc::promise_already_satisfied,
                 [&] { promise.set_value(2); });
    expectThrows("get on an empty future", ara::core::future_errc::no_state,
                 [] { (void)Future<int>().get(); });

    Future<int> broken;
    {
        Promise<int> dropped;
        broken = dropped.get_future();
    }
    expectThrows("a destroyed promise", ara::core::future_errc::broken_promise,
                 [&] { (void)broken.get(); });

    auto failed =
        Future<int>::MakeReady(Result<int>::FromError(lumo::vcc::api::types::MakeErrorCode(
            lumo::vcc::api::types::ComErrc::kCommunicationStackError, 0)));
    EXPECT_THROW(failed.get(), lumo::vcc::api::types::ComException);
}

// A pending future times out. The first thread to wait runs the helper, once; a state that is
// ready drops it unrun.
TEST(FutureTest, WaitingTimesOutOrRunsTheWaitHelperOnce) {
    Promise<int> pending;
    auto pendingFuture = pending.get_future();
    EXPECT_EQ(pendingFuture.wait_for(std::chrono::milliseconds(1)),
              ara::core::future_status::timeout);
    pending.set_value(1);
    EXPECT_EQ(pendingFuture.wait_for(std::chrono::milliseconds(1)),
              ara::core::future_status::ready);

    ara::core::Promise<int> promise;
    auto future = promise.get_future();
    int runs = 0;
    promise.SetWaitHelper([&] {
        ++runs;
        promise.set_value(7);
    });
    future.wait();
    EXPECT_EQ(future.get(), 7);
    EXPECT_EQ(runs, 1);

    ara::core::Promise<int> ready;
    auto readyFuture = ready.get_future();
    ready.set_value(1);
    ready.SetWaitHelper([&] { ++runs; });
    EXPECT_EQ(readyFuture.get(), 1);
    EXPECT_EQ(runs, 1);
}

}  // namespace
