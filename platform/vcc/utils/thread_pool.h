#ifndef PLATFORM_VCC_UTILS_THREAD_POOL_H
#define PLATFORM_VCC_UTILS_THREAD_POOL_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/core/string.h"

namespace lumo::vcc::utils {

// Who queued a task: the method skeleton passes (driver << 8) + 1 and the request's uuid.
struct TaskSoureceId {
    // A bare number is a task type without a uuid. NOLINTNEXTLINE(google-explicit-constructor)
    TaskSoureceId(std::uint16_t typeId = 0) : taskTypeId(typeId) {}
    TaskSoureceId(std::uint16_t typeId, std::uint64_t high, std::uint64_t low)
        : taskTypeId(typeId), uuidHigh(high), uuidLow(low) {}

    std::uint16_t taskTypeId{0};
    std::uint64_t uuidHigh{0};
    std::uint64_t uuidLow{0};
};

// A fixed number of named threads over one bounded FIFO queue. With one thread, tasks run in
// the order they were queued. A worker that has just finished a task polls for the next one for
// a few microseconds before it sleeps, so that a stream of requests costs no wake-ups; an idle
// pool sleeps. An exception that escapes a task is logged at error with the
// pool's name and its text; the worker goes on with the next task.
class ThreadPool {
public:
    using Task = std::function<void()>;

    // name is given to every thread (at most 15 characters show in ps -L and gdb).
    ThreadPool(std::uint32_t threadNumber, std::uint32_t queueSize, const ara::core::String& name);
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // Queues a task; false when the queue is full or the pool has stopped. sourceId names the
    // submitter in the pool's log lines.
    bool Enqueue(Task task, TaskSoureceId sourceId);

    // Lets running tasks finish, drops what is still queued and joins the threads. Idempotent.
    void Stop();

    bool IsStopped() const;
    std::size_t QueuedCount() const;
    std::uint64_t DroppedCount() const;
    // Tasks that ended by an exception.
    std::uint64_t FailedCount() const;

private:
    struct Entry {
        Task task;
        TaskSoureceId sourceId;
    };

    void Work();
    void RunGuarded(Entry& entry);
    void LogTaskFailure(const TaskSoureceId& id, const char* what) const;

    const std::uint32_t queueSize_;
    const ara::core::String name_;
    mutable std::mutex mutex_;  // guards queue_, stopped_, dropped_, failed_ and sleeping_
    std::condition_variable available_;
    std::deque<Entry> queue_;
    bool stopped_{false};
    std::uint32_t sleeping_{0};  // workers blocked on available_
    // Looks without the lock for the worker that polls for the next task.
    std::atomic<std::size_t> queued_{0};
    std::atomic<bool> stopping_{false};
    std::atomic<bool> polling_{false};  // one worker at a time polls
    std::uint64_t dropped_{0};
    std::uint64_t failed_{0};
    std::vector<std::thread> threads_;
    std::mutex stopMutex_;  // serializes Stop() so that threads are joined once
};

}  // namespace lumo::vcc::utils

#endif
