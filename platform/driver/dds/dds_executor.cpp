#include "platform/driver/dds/dds_executor.h"

#include <pthread.h>

#include <csignal>
#include <exception>
#include <utility>

#include "platform/log/log.h"
#include "platform/vcc/utils/stop_signals.h"

namespace lumo::driver::dds {

namespace {
constexpr std::size_t kThreadNameMax = 15;

void RunGuarded(const DdsExecutor::Task& task) {
    try {
        task();
    } catch (const std::exception& e) {
        ara::tessel::common::log::Log::GetLog("CM")->LogError()
            << "DDS driver thread: a task ended by an exception: " << e.what();
    } catch (...) {
        ara::tessel::common::log::Log::GetLog("CM")->LogError()
            << "DDS driver thread: a task ended by an unknown exception";
    }
}
}  // namespace

DdsExecutor::DdsExecutor(const ara::core::String& threadName) : state_(std::make_shared<State>()) {
    vcc::utils::WithoutStopSignals(
        [this] { thread_ = std::thread([state = state_] { Run(state); }); });
    pthread_setname_np(thread_.native_handle(), threadName.substr(0, kThreadNameMax).c_str());
    threadId_ = thread_.get_id();
}

DdsExecutor::~DdsExecutor() {
    {
        std::lock_guard<std::mutex> lock(state_->mutex);
        state_->stopping = true;
        state_->timers.clear();
        state_->timerIndex.clear();
    }
    state_->wake.notify_all();
    if (OnExecutorThread()) {
        thread_.detach();
    } else {
        thread_.join();
    }
}

bool DdsExecutor::Post(Task task) {
    {
        std::lock_guard<std::mutex> lock(state_->mutex);
        if (state_->stopping) {
            return false;
        }
        state_->posted.push_back(std::move(task));
    }
    state_->wake.notify_one();
    return true;
}

DdsExecutor::TimerId DdsExecutor::Schedule(Clock::time_point deadline, Task task) {
    bool earlier = false;
    TimerId id = 0;
    {
        std::lock_guard<std::mutex> lock(state_->mutex);
        if (state_->stopping) {
            return 0;
        }
        id = state_->nextId++;
        auto it = state_->timers.emplace(deadline, std::make_pair(id, std::move(task)));
        state_->timerIndex.emplace(id, it);
        earlier = deadline < state_->wakeAt;
        if (earlier) {
            state_->wakeAt = deadline;
        }
    }
    if (earlier) {
        state_->wake.notify_one();
    }
    return id;
}

void DdsExecutor::Cancel(TimerId id) {
    std::lock_guard<std::mutex> lock(state_->mutex);
    auto it = state_->timerIndex.find(id);
    if (it != state_->timerIndex.end()) {
        state_->timers.erase(it->second);
        state_->timerIndex.erase(it);
    }
}

void DdsExecutor::Run(const std::shared_ptr<State>& state) {
    std::unique_lock<std::mutex> lock(state->mutex);
    for (;;) {
        Task task;
        if (!state->posted.empty()) {
            task = std::move(state->posted.front());
            state->posted.pop_front();
        } else if (state->stopping) {
            return;
        } else if (!state->timers.empty() && state->timers.begin()->first <= Clock::now()) {
            auto first = state->timers.begin();
            task = std::move(first->second.second);
            state->timerIndex.erase(first->second.first);
            state->timers.erase(first);
        } else {
            // Cancelled timers leave the wake-up time as it was: waking for nothing now and
            // then is cheaper than a wake-up for every cancellation and every new timer.
            if (state->wakeAt <= Clock::now()) {
                state->wakeAt =
                    state->timers.empty() ? Clock::time_point::max() : state->timers.begin()->first;
            }
            if (state->wakeAt == Clock::time_point::max()) {
                state->wake.wait(lock);
            } else {
                state->wake.wait_until(lock, state->wakeAt);
            }
            continue;
        }
        lock.unlock();
        RunGuarded(task);
        task = nullptr;  // its captures die outside the lock
        lock.lock();
    }
}

}  // namespace lumo::driver::dds
