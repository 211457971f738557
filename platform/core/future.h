#ifndef PLATFORM_CORE_FUTURE_H
#define PLATFORM_CORE_FUTURE_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>

#include "platform/core/error_code.h"
#include "platform/core/result.h"
#include "platform/core/spin_wait.h"
#include "platform/error/future_error_domain.h"

namespace ara::core {

enum class future_status : std::uint8_t {  // NOLINT(readability-identifier-naming): standard name
    ready = 1,                             // NOLINT(readability-identifier-naming)
    timeout,                               // NOLINT(readability-identifier-naming)
};

template <typename T, typename E = ErrorCode>
class Future;
template <typename T, typename E = ErrorCode>
class Promise;

namespace detail {

// State shared by one Promise and its Future. The continuation runs on the thread that makes
// the state ready, or at once in then() when the state is ready already.
template <typename T, typename E>
class FutureState {
public:
    // Returns false when a result was stored already.
    bool SetResult(Result<T, E> result) {
        std::function<void()> continuation;
        std::function<void()> helper;  // let go outside the lock: it may own a whole request
        bool wake = false;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (result_.has_value()) {
                return false;
            }
            result_.emplace(std::move(result));
            continuation = std::move(continuation_);
            continuation_ = nullptr;
            helper = std::move(waitHelper_);
            waitHelper_ = nullptr;
            isReady_.store(true, std::memory_order_release);
            wake = blocked_ != 0;
        }
        if (wake) {
            ready_.notify_all();
        }
        if (continuation) {
            continuation();
        }
        return true;
    }

    bool IsReady() const { return isReady_.load(std::memory_order_acquire); }

    void Wait() {
        if (!isReady_.load(std::memory_order_acquire)) {
            if (auto helper = TakeWaitHelper()) {
                helper();
            }
        }
        // A reply of the in-process driver comes within microseconds.
        if (SpinUntil([this] { return isReady_.load(std::memory_order_acquire); }, kSpin)) {
            return;
        }
        std::unique_lock<std::mutex> lock(mutex_);
        ++blocked_;
        ready_.wait(lock, [this] { return result_.has_value(); });
        --blocked_;
    }

    template <typename Clock, typename Duration>
    bool WaitUntil(const std::chrono::time_point<Clock, Duration>& deadline) const {
        std::unique_lock<std::mutex> lock(mutex_);
        ++blocked_;
        const bool ready =
            ready_.wait_until(lock, deadline, [this] { return result_.has_value(); });
        --blocked_;
        return ready;
    }

    // The result does not change once it is ready, and only the one future takes it: no lock.
    Result<T, E> TakeResult() {
        Wait();
        return std::move(*result_);
    }

    // Runs the continuation now if the state is ready, otherwise stores it for SetResult.
    void SetContinuation(std::function<void()> continuation) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (!result_.has_value()) {
                continuation_ = std::move(continuation);
                return;
            }
        }
        continuation();
    }

    // Work that the first thread to block in Wait runs before it blocks, for the result it waits
    // for: an in-process request that no worker has taken yet. Dropped once the state is ready.
    void SetWaitHelper(std::function<void()> helper) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!result_.has_value()) {
            waitHelper_.swap(helper);
        }
    }

    std::function<void()> TakeWaitHelper() {
        std::lock_guard<std::mutex> lock(mutex_);
        std::function<void()> helper;
        helper.swap(waitHelper_);
        return helper;
    }

    bool MarkRetrieved() { return !retrieved_.exchange(true, std::memory_order_relaxed); }

private:
    static constexpr std::chrono::microseconds kSpin{50};

    mutable std::mutex mutex_;  // guards result_ until ready, continuation_, waitHelper_, blocked_
    mutable std::condition_variable ready_;
    mutable int blocked_{0};            // threads waiting on ready_: nobody to wake, no system call
    std::atomic<bool> isReady_{false};  // result_ is set: a look without the lock
    std::optional<Result<T, E>> result_;
    std::function<void()> continuation_;
    std::function<void()> waitHelper_;
    std::atomic<bool> retrieved_{false};
};

template <typename U>
struct IsResult : std::false_type {};
template <typename U, typename G>
struct IsResult<Result<U, G>> : std::true_type {};

template <typename U>
struct IsFuture : std::false_type {};
template <typename U, typename G>
struct IsFuture<Future<U, G>> : std::true_type {};

[[noreturn]] inline void ThrowFutureError(future_errc code) {
    throw FutureException(MakeErrorCode(code, 0));
}

}  // namespace detail

// The result of an asynchronous operation; get() throws the error's domain exception.
template <typename T, typename E>
class Future final {
public:
    using ValueType = T;

    Future() noexcept = default;
    Future(Future&&) noexcept = default;
    Future& operator=(Future&&) noexcept = default;
    Future(const Future&) = delete;
    Future& operator=(const Future&) = delete;

    // A future that is ready with the given result.
    static Future MakeReady(Result<T, E> result) {
        auto state = std::make_shared<detail::FutureState<T, E>>();
        state->SetResult(std::move(result));
        return Future(std::move(state));
    }

    bool valid() const noexcept { return state_ != nullptr; }  // NOLINT: standard name
    bool is_ready() const {                                    // NOLINT: standard name
        return state_ != nullptr && state_->IsReady();
    }

    void wait() const {  // NOLINT: standard name
        RequireState();
        state_->Wait();
    }

    template <typename Rep, typename Period>
    future_status wait_for(const std::chrono::duration<Rep, Period>& timeout) const {  // NOLINT
        return wait_until(std::chrono::steady_clock::now() + timeout);
    }

    template <typename Clock, typename Duration>
    future_status wait_until(  // NOLINT: standard name
        const std::chrono::time_point<Clock, Duration>& deadline) const {
        RequireState();
        return state_->WaitUntil(deadline) ? future_status::ready : future_status::timeout;
    }

    // Waits and hands over the result; the future is invalid afterwards.
    Result<T, E> GetResult() {
        RequireState();
        auto state = std::move(state_);
        return state->TakeResult();
    }

    // Waits and returns the value, or throws the error as its domain's exception.
    T get() {  // NOLINT: standard name
        auto result = GetResult();
        if constexpr (std::is_void<T>::value) {
            result.ValueOrThrow();
        } else {
            return std::move(result).ValueOrThrow();
        }
    }

    // Runs func with this (ready) future, on the thread that makes it ready or at once when it
    // is ready now. func may return a plain value, void, a Result or a Future.
    template <typename F>
    auto then(F&& func) {  // NOLINT: standard name
        RequireState();
        using Ret = std::invoke_result_t<F, Future<T, E>>;
        using Next = typename NextOf<Ret>::type;
        using NextT = typename Next::ValueType;

        auto next = std::make_shared<detail::FutureState<NextT, E>>();
        auto state = std::move(state_);
        auto raw = state.get();
        next->SetWaitHelper(raw->TakeWaitHelper());
        raw->SetContinuation([state, next, fn = std::forward<F>(func)]() mutable {
            Future<T, E> ready(state);
            if constexpr (std::is_void<Ret>::value) {
                fn(std::move(ready));
                next->SetResult(Result<void, E>());
            } else if constexpr (detail::IsResult<Ret>::value) {
                next->SetResult(fn(std::move(ready)));
            } else if constexpr (detail::IsFuture<Ret>::value) {
                Ret inner = fn(std::move(ready));
                inner.then([next](Ret done) { next->SetResult(done.GetResult()); });
            } else {
                next->SetResult(Result<NextT, E>(fn(std::move(ready))));
            }
        });
        return Next(std::move(next));
    }

private:
    template <typename U, typename G>
    friend class Promise;
    template <typename U, typename G>
    friend class Future;

    template <typename Ret, typename = void>
    struct NextOf {
        using type = Future<Ret, E>;
    };
    template <typename Ret>
    struct NextOf<Ret, std::enable_if_t<detail::IsResult<Ret>::value>> {
        using type = Future<typename Ret::value_type, E>;
    };
    template <typename Ret>
    struct NextOf<Ret, std::enable_if_t<detail::IsFuture<Ret>::value>> {
        using type = Future<typename Ret::ValueType, E>;
    };

    explicit Future(std::shared_ptr<detail::FutureState<T, E>> state) : state_(std::move(state)) {}

    void RequireState() const {
        if (state_ == nullptr) {
            detail::ThrowFutureError(future_errc::no_state);
        }
    }

    std::shared_ptr<detail::FutureState<T, E>> state_;
};

// The writing side. Destroying a promise that was never satisfied breaks it: its future gets
// kBrokenPromise of the Future domain.
template <typename T, typename E>
class Promise final {
public:
    Promise() : state_(std::make_shared<detail::FutureState<T, E>>()) {}
    Promise(Promise&&) noexcept = default;
    Promise& operator=(Promise&& other) noexcept {
        if (this != &other) {
            Break();
            state_ = std::move(other.state_);
        }
        return *this;
    }
    Promise(const Promise&) = delete;
    Promise& operator=(const Promise&) = delete;
    ~Promise() { Break(); }

    Future<T, E> get_future() {  // NOLINT: standard name
        RequireState();
        if (!state_->MarkRetrieved()) {
            detail::ThrowFutureError(future_errc::future_already_retrieved);
        }
        return Future<T, E>(state_);
    }

    template <typename U = T, typename = std::enable_if_t<!std::is_void<U>::value>>
    void set_value(const U& value) {  // NOLINT: standard name
        SetResult(Result<T, E>(value));
    }
    template <typename U = T, typename = std::enable_if_t<!std::is_void<U>::value>>
    void set_value(U&& value) {  // NOLINT: standard name
        SetResult(Result<T, E>(std::forward<U>(value)));
    }
    template <typename U = T, typename = std::enable_if_t<std::is_void<U>::value>>
    void set_value() {  // NOLINT: standard name
        SetResult(Result<T, E>());
    }

    void SetError(E error) { SetResult(Result<T, E>(std::move(error))); }

    // Work that a thread about to block on the future runs first, once (see FutureState).
    void SetWaitHelper(std::function<void()> helper) {
        RequireState();
        state_->SetWaitHelper(std::move(helper));
    }

    void SetResult(Result<T, E> result) {
        RequireState();
        if (!state_->SetResult(std::move(result))) {
            detail::ThrowFutureError(future_errc::promise_already_satisfied);
        }
    }

private:
    void RequireState() const {
        if (state_ == nullptr) {
            detail::ThrowFutureError(future_errc::no_state);
        }
    }

    void Break() noexcept {
        if (state_ != nullptr && !state_->IsReady()) {
            state_->SetResult(Result<T, E>(E(MakeErrorCode(future_errc::broken_promise, 0))));
        }
        state_.reset();
    }

    std::shared_ptr<detail::FutureState<T, E>> state_;
};

}  // namespace ara::core

#endif
