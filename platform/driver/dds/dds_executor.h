#ifndef PLATFORM_DRIVER_DDS_DDS_EXECUTOR_H
#define PLATFORM_DRIVER_DDS_DDS_EXECUTOR_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/core/string.h"

namespace lumo::driver::dds {

// The DDS driver's own thread: call timeouts, the work that follows a discovery change, and
// completions that must not run on the caller's thread. Tasks run one at a time, posted ones in
// order, timers when due. Cyclone's listeners only post here, so nothing slow runs on them.
class DdsExecutor {
public:
    using Clock = std::chrono::steady_clock;
    using Task = std::function<void()>;
    using TimerId = std::uint64_t;

    explicit DdsExecutor(const ara::core::String& threadName);
    // Drops the timers, runs what was posted, and joins; from a task of its own it detaches,
    // and the thread ends after that task.
    ~DdsExecutor();
    DdsExecutor(const DdsExecutor&) = delete;
    DdsExecutor& operator=(const DdsExecutor&) = delete;

    // Runs task soon. Any thread; never blocks. False once the executor is stopping.
    bool Post(Task task);
    // Runs task at deadline unless cancelled first. Any thread; never blocks. 0 when stopping.
    TimerId Schedule(Clock::time_point deadline, Task task);
    // Cancels a timer that has not started; a running or finished one is left alone.
    void Cancel(TimerId id);

    bool OnExecutorThread() const { return std::this_thread::get_id() == threadId_; }

private:
    // Shared with the thread, so that a thread detached by a destructor running on it may still
    // finish its loop.
    struct State {
        std::mutex mutex;  // guards every member below
        std::condition_variable wake;
        bool stopping{false};
        std::deque<Task> posted;
        std::multimap<Clock::time_point, std::pair<TimerId, Task>> timers;
        std::map<TimerId, std::multimap<Clock::time_point, std::pair<TimerId, Task>>::iterator>
            timerIndex;
        TimerId nextId{1};
        // When the thread wakes by itself; a timer due later needs no wake-up, so that a call
        // answered before its timeout costs no thread switch.
        Clock::time_point wakeAt{Clock::time_point::max()};
    };

    static void Run(const std::shared_ptr<State>& state);

    std::shared_ptr<State> state_;
    std::thread thread_;
    std::thread::id threadId_;
};

}  // namespace lumo::driver::dds

#endif
