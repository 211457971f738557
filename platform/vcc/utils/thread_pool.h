#ifndef PLATFORM_VCC_UTILS_THREAD_POOL_H
#define PLATFORM_VCC_UTILS_THREAD_POOL_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/core/string.h"

namespace lumo::vcc::utils {

// A fixed number of named threads over one bounded FIFO queue. With one thread, tasks run in
// the order they were queued.
class ThreadPool {
public:
    using Task = std::function<void()>;

    // name is given to every thread (at most 15 characters show in ps -L and gdb).
    ThreadPool(std::uint32_t threadNumber, std::uint32_t queueSize, const ara::core::String& name);
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // Queues a task; false when the queue is full or the pool has stopped. sourceId names the
    // submitter for the pool's accounting.
    bool Enqueue(Task task, std::uint32_t sourceId);

    // Lets running tasks finish, drops what is still queued and joins the threads. Idempotent.
    void Stop();

    bool IsStopped() const;
    std::size_t QueuedCount() const;
    std::uint64_t DroppedCount() const;

private:
    struct Entry {
        Task task;
        std::uint32_t sourceId;
    };

    void Work();

    const std::uint32_t queueSize_;
    const ara::core::String name_;
    mutable std::mutex mutex_;  // guards queue_, stopped_ and dropped_
    std::condition_variable available_;
    std::deque<Entry> queue_;
    bool stopped_{false};
    std::uint64_t dropped_{0};
    std::vector<std::thread> threads_;
    std::mutex stopMutex_;  // serializes Stop() so that threads are joined once
};

}  // namespace lumo::vcc::utils

#endif
