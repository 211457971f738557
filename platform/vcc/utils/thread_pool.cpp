#include "platform/vcc/utils/thread_pool.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <exception>

#include "platform/core/spin_wait.h"
#include "platform/log/log.h"
#include "platform/vcc/utils/stop_signals.h"

namespace lumo::vcc::utils {

namespace {
constexpr std::size_t kThreadNameMax = 15;

thread_local ThreadPool::FirstQueued* tlsFirstQueued = nullptr;
// The queue whose task this thread runs outside its pool, if any.
thread_local const ThreadPoolQueue* tlsRunningHereFor = nullptr;
}  // namespace

struct ThreadPoolQueue {
    struct Entry {
        ThreadPool::Task task;
        TaskSoureceId sourceId;
        std::uint64_t ticket{0};  // non-zero for a task its submitter may take back
    };

    ThreadPoolQueue(std::uint32_t size, ara::core::String poolName,
                    std::chrono::microseconds idlePoll)
        : queueSize(size), name(std::move(poolName)), poll(idlePoll) {}

    void RunGuarded(ThreadPool::Task& task, const TaskSoureceId& id) {
        try {
            task();
            return;
        } catch (const std::exception& e) {
            LogTaskFailure(id, e.what());
        } catch (...) {
            LogTaskFailure(id, "unknown exception");
        }
        failed.fetch_add(1, std::memory_order_relaxed);
    }

    void LogTaskFailure(const TaskSoureceId& id, const char* what) const {
        ara::tessel::common::log::Log::GetLog("CM")->LogError("ThreadPool_Task_Exception")
            << "[ThreadPool][" << name << "][Task ended by exception: " << what
            << "][taskTypeId=" << id.taskTypeId << ", uuidHigh=" << id.uuidHigh
            << ", uuidLow=" << id.uuidLow << "]";
    }

    const std::uint32_t queueSize;
    const ara::core::String name;
    const std::chrono::microseconds poll;
    std::mutex mutex;  // guards every member below but the atomics
    std::condition_variable available;
    std::condition_variable doneHere;  // a task run outside the pool has ended
    std::deque<Entry> entries;
    bool stopped{false};
    std::uint32_t sleeping{0};  // workers blocked on available
    std::uint64_t dropped{0};
    std::uint64_t lastTicket{0};
    // Looks without the lock for the worker that polls for the next task.
    std::atomic<std::size_t> queued{0};
    std::atomic<bool> stopping{false};
    std::atomic<std::uint32_t> runningHere{0};  // tasks that threads outside the pool run now
    std::atomic<bool> polling{false};           // one worker at a time polls
    std::atomic<std::uint64_t> failed{0};
};

ThreadPool::FirstQueued::FirstQueued() : outer_(tlsFirstQueued) {
    tlsFirstQueued = this;
}

ThreadPool::FirstQueued::~FirstQueued() {
    tlsFirstQueued = outer_;
}

bool ThreadPool::QueuedTask::RunHere() const {
    if (pool_ == nullptr) {
        return false;
    }
    ThreadPoolQueue& queue = *pool_;
    Task task;
    TaskSoureceId id;
    {
        std::lock_guard<std::mutex> lock(queue.mutex);
        if (queue.stopped) {
            return false;
        }
        // The newest entries are searched first: the task was queued moments ago.
        const auto found = std::find_if(
            queue.entries.rbegin(), queue.entries.rend(),
            [this](const ThreadPoolQueue::Entry& entry) { return entry.ticket == ticket_; });
        if (found == queue.entries.rend()) {
            return false;
        }
        task = std::move(found->task);
        id = found->sourceId;
        queue.entries.erase(std::next(found).base());
        queue.queued.store(queue.entries.size(), std::memory_order_release);
        ++queue.runningHere;
    }
    const ThreadPoolQueue* outer = tlsRunningHereFor;
    tlsRunningHereFor = &queue;
    queue.RunGuarded(task, id);
    tlsRunningHereFor = outer;
    task = nullptr;  // what the task holds goes before the pool's Stop may return
    // Only Stop waits for tasks run here, and it sets stopping before it looks at runningHere:
    // either it sees this task gone, or this thread sees it stopping and wakes it.
    queue.runningHere.fetch_sub(1);
    if (queue.stopping.load()) {
        { std::lock_guard<std::mutex> lock(queue.mutex); }  // Stop is waiting or sees zero
        queue.doneHere.notify_all();
    }
    return true;
}

ThreadPool::ThreadPool(std::uint32_t threadNumber, std::uint32_t queueSize,
                       const ara::core::String& name, std::chrono::microseconds poll)
    : queue_(std::make_shared<ThreadPoolQueue>(queueSize, name.substr(0, kThreadNameMax), poll)) {
    WithoutStopSignals([this, threadNumber] {
        threads_.reserve(threadNumber);
        for (std::uint32_t i = 0; i < threadNumber; ++i) {
            threads_.emplace_back([this] { Work(); });
            pthread_setname_np(threads_.back().native_handle(), queue_->name.c_str());
        }
    });
}

ThreadPool::~ThreadPool() {
    Stop();
}

bool ThreadPool::Enqueue(Task task, TaskSoureceId sourceId) {
    FirstQueued* keeper = tlsFirstQueued;
    if (keeper != nullptr && keeper->seen_) {
        keeper = nullptr;
    } else if (keeper != nullptr) {
        keeper->seen_ = true;
    }
    ThreadPoolQueue& queue = *queue_;
    {
        std::lock_guard<std::mutex> lock(queue.mutex);
        if (queue.stopped || queue.entries.size() >= queue.queueSize || !task) {
            return false;
        }
        std::uint64_t ticket = 0;
        if (keeper != nullptr) {
            ticket = ++queue.lastTicket;
            keeper->task_.pool_ = queue_;
            keeper->task_.ticket_ = ticket;
        }
        queue.entries.push_back(ThreadPoolQueue::Entry{std::move(task), sourceId, ticket});
        queue.queued.store(queue.entries.size(), std::memory_order_release);
        // A polling worker takes a single task without being woken.
        if (queue.sleeping == 0 ||
            (queue.entries.size() == 1 && queue.polling.load(std::memory_order_acquire))) {
            return true;
        }
    }
    queue.available.notify_one();
    return true;
}

void ThreadPool::Stop() {
    std::lock_guard<std::mutex> stopLock(stopMutex_);
    ThreadPoolQueue& queue = *queue_;
    std::deque<ThreadPoolQueue::Entry> dropped;
    {
        std::lock_guard<std::mutex> lock(queue.mutex);
        queue.stopped = true;
        queue.stopping.store(true);  // before runningHere is read: see RunHere
        queue.dropped += queue.entries.size();
        dropped.swap(queue.entries);
        queue.queued.store(0, std::memory_order_release);
    }
    queue.available.notify_all();
    for (auto& thread : threads_) {
        if (thread.joinable() && thread.get_id() != std::this_thread::get_id()) {
            thread.join();
        } else if (thread.joinable()) {
            thread.detach();  // Stop from one of our own tasks: that thread ends after it
        }
    }
    threads_.clear();
    // A task that stops its own pool from outside the pool must not wait for itself.
    const std::uint32_t own = tlsRunningHereFor == &queue ? 1 : 0;
    std::unique_lock<std::mutex> lock(queue.mutex);
    queue.doneHere.wait(lock, [&queue, own] { return queue.runningHere <= own; });
}

bool ThreadPool::IsStopped() const {
    std::lock_guard<std::mutex> lock(queue_->mutex);
    return queue_->stopped;
}

std::size_t ThreadPool::QueuedCount() const {
    std::lock_guard<std::mutex> lock(queue_->mutex);
    return queue_->entries.size();
}

std::uint64_t ThreadPool::DroppedCount() const {
    std::lock_guard<std::mutex> lock(queue_->mutex);
    return queue_->dropped;
}

std::uint64_t ThreadPool::FailedCount() const {
    return queue_->failed.load(std::memory_order_relaxed);
}

void ThreadPool::Work() {
    ThreadPoolQueue& queue = *queue_;
    bool justWorked = false;
    for (;;) {
        ThreadPoolQueue::Entry entry;
        if (justWorked && queue.poll.count() > 0 &&
            queue.queued.load(std::memory_order_acquire) == 0 &&
            !queue.polling.exchange(true, std::memory_order_acq_rel)) {
            (void)ara::core::detail::SpinUntil(
                [&queue] {
                    return queue.queued.load(std::memory_order_acquire) > 0 ||
                           queue.stopping.load(std::memory_order_acquire);
                },
                queue.poll);
            queue.polling.store(false, std::memory_order_release);
        }
        {
            std::unique_lock<std::mutex> lock(queue.mutex);
            ++queue.sleeping;
            queue.available.wait(lock,
                                 [&queue] { return queue.stopped || !queue.entries.empty(); });
            --queue.sleeping;
            if (queue.stopped) {
                return;
            }
            entry = std::move(queue.entries.front());
            queue.entries.pop_front();
            queue.queued.store(queue.entries.size(), std::memory_order_release);
        }
        queue.RunGuarded(entry.task, entry.sourceId);
        justWorked = true;
    }
}

}  // namespace lumo::vcc::utils
