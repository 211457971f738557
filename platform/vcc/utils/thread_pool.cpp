#include "platform/vcc/utils/thread_pool.h"

#include <pthread.h>

#include <csignal>
#include <exception>

#include "platform/core/spin_wait.h"
#include "platform/log/log.h"
#include "platform/vcc/utils/stop_signals.h"

namespace lumo::vcc::utils {

namespace {
constexpr std::size_t kThreadNameMax = 15;
// How long a worker that has just finished a task polls for the next one.
constexpr std::chrono::microseconds kPoll{50};
}  // namespace

ThreadPool::ThreadPool(std::uint32_t threadNumber, std::uint32_t queueSize,
                       const ara::core::String& name)
    : queueSize_(queueSize), name_(name.substr(0, kThreadNameMax)) {
    WithoutStopSignals([this, threadNumber] {
        threads_.reserve(threadNumber);
        for (std::uint32_t i = 0; i < threadNumber; ++i) {
            threads_.emplace_back([this] { Work(); });
            pthread_setname_np(threads_.back().native_handle(), name_.c_str());
        }
    });
}

ThreadPool::~ThreadPool() {
    Stop();
}

bool ThreadPool::Enqueue(Task task, TaskSoureceId sourceId) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (stopped_ || queue_.size() >= queueSize_ || !task) {
            return false;
        }
        queue_.push_back(Entry{std::move(task), sourceId});
        queued_.store(queue_.size(), std::memory_order_release);
        // A polling worker takes a single task without being woken.
        if (sleeping_ == 0 || (queue_.size() == 1 && polling_.load(std::memory_order_acquire))) {
            return true;
        }
    }
    available_.notify_one();
    return true;
}

void ThreadPool::Stop() {
    std::lock_guard<std::mutex> stopLock(stopMutex_);
    std::deque<Entry> dropped;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopped_ = true;
        stopping_.store(true, std::memory_order_release);
        dropped_ += queue_.size();
        dropped.swap(queue_);
        queued_.store(0, std::memory_order_release);
    }
    available_.notify_all();
    for (auto& thread : threads_) {
        if (thread.joinable() && thread.get_id() != std::this_thread::get_id()) {
            thread.join();
        } else if (thread.joinable()) {
            thread.detach();  // Stop from one of our own tasks: that thread ends after it
        }
    }
    threads_.clear();
}

bool ThreadPool::IsStopped() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return stopped_;
}

std::size_t ThreadPool::QueuedCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return queue_.size();
}

std::uint64_t ThreadPool::DroppedCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return dropped_;
}

std::uint64_t ThreadPool::FailedCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return failed_;
}

void ThreadPool::RunGuarded(Entry& entry) {
    try {
        entry.task();
        return;
    } catch (const std::exception& e) {
        LogTaskFailure(entry.sourceId, e.what());
    } catch (...) {
        LogTaskFailure(entry.sourceId, "unknown exception");
    }
    std::lock_guard<std::mutex> lock(mutex_);
    ++failed_;
}

void ThreadPool::LogTaskFailure(const TaskSoureceId& id, const char* what) const {
    ara::tessel::common::log::Log::GetLog("CM")->LogError("ThreadPool_Task_Exception")
        << "[ThreadPool][" << name_ << "][Task ended by exception: " << what
        << "][taskTypeId=" << id.taskTypeId << ", uuidHigh=" << id.uuidHigh
        << ", uuidLow=" << id.uuidLow << "]";
}

void ThreadPool::Work() {
    bool justWorked = false;
    for (;;) {
        Entry entry;
        if (justWorked && queued_.load(std::memory_order_acquire) == 0 &&
            !polling_.exchange(true, std::memory_order_acq_rel)) {
            (void)ara::core::detail::SpinUntil(
                [this] {
                    return queued_.load(std::memory_order_acquire) > 0 ||
                           stopping_.load(std::memory_order_acquire);
                },
                kPoll);
            polling_.store(false, std::memory_order_release);
        }
        {
            std::unique_lock<std::mutex> lock(mutex_);
            ++sleeping_;
            available_.wait(lock, [this] { return stopped_ || !queue_.empty(); });
            --sleeping_;
            if (stopped_) {
                return;
            }
            entry = std::move(queue_.front());
            queue_.pop_front();
            queued_.store(queue_.size(), std::memory_order_release);
        }
        RunGuarded(entry);
        justWorked = true;
    }
}

}  // namespace lumo::vcc::utils
