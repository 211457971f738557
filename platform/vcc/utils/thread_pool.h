#ifndef PLATFORM_VCC_UTILS_THREAD_POOL_H
#define PLATFORM_VCC_UTILS_THREAD_POOL_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
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

struct ThreadPoolQueue;

// A fixed number of named threads over one bounded FIFO queue. With one thread, tasks run in
// the order they were queued. A worker that has just finished a task polls for the next one for
// a few microseconds before it sleeps, so that a stream of requests costs no wake-ups; an idle
// pool sleeps. An exception that escapes a task is logged at error with the
// pool's name and its text; the worker goes on with the next task.
//
// A thread that queues a task and then waits for its outcome may take the task back while no
// worker has started it, and run it itself (FirstQueued): handing it to a worker costs two
// thread switches, which on a busy or small machine are most of an in-process round trip.
class ThreadPool {
public:
    using Task = std::function<void()>;

    // A task this thread queued, that it may run itself.
    class QueuedTask {
    public:
        QueuedTask() = default;
        explicit operator bool() const { return pool_ != nullptr; }
        // Takes the task out of the queue and runs it on this thread; false when a worker has
        // started it already or the pool has stopped. The pool's Stop waits for it as for its
        // workers' tasks.
        bool RunHere() const;

    private:
        friend class ThreadPool;
        std::shared_ptr<ThreadPoolQueue> pool_;
        std::uint64_t ticket_{0};
    };

    // While one lives, the first task that its thread queues on any pool is kept for it.
    class FirstQueued {
    public:
        FirstQueued();
        ~FirstQueued();
        FirstQueued(const FirstQueued&) = delete;
        FirstQueued& operator=(const FirstQueued&) = delete;

        // The task; empty when the thread queued none or it was refused.
        QueuedTask Take() { return std::move(task_); }

    private:
        friend class ThreadPool;
        QueuedTask task_;
        bool seen_{false};
        FirstQueued* outer_;
    };

    // How long a worker that has just finished a task polls for the next one before it sleeps:
    // a hand-off within that time costs no wake-up. A pool whose tasks nobody waits for polls
    // for nothing, which only takes the CPU from the threads that are waited for.
    static constexpr std::chrono::microseconds kDefaultPoll{50};
    static constexpr std::chrono::microseconds kNoPoll{0};

    // name is given to every thread (at most 15 characters show in ps -L and gdb).
    ThreadPool(std::uint32_t threadNumber, std::uint32_t queueSize, const ara::core::String& name,
               std::chrono::microseconds poll = kDefaultPoll);
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
    void Work();

    // The queue and what guards it; shared with the tasks handed out, which may outlive the pool.
    const std::shared_ptr<ThreadPoolQueue> queue_;
    std::vector<std::thread> threads_;
    std::mutex stopMutex_;  // serializes Stop() so that threads are joined once
};

}  // namespace lumo::vcc::utils

#endif
