#include "platform/vcc/utils/stats.h"

#include <algorithm>
#include <sstream>
#include <tuple>

#include <pthread.h>

#include "platform/log/log.h"

namespace lumo::vcc::utils::stats {

bool EntityIdentifier::operator<(const EntityIdentifier& other) const {
    return std::tie(serviceId, instanceId, entityId) <
           std::tie(other.serviceId, other.instanceId, other.entityId);
}

ara::core::String EntityIdentifier::ToString() const {
    return std::to_string(serviceId) + "_" + instanceId + "_" + std::to_string(entityId);
}

void Stats::SetEntityName(api::types::DriverType driver, const ara::core::String& name) {
    std::lock_guard<std::mutex> lock(nameMutex_);
    names_[driver] = name;
}

std::map<api::types::DriverType, ara::core::String> Stats::GetEntityName() const {
    std::lock_guard<std::mutex> lock(nameMutex_);
    return names_;
}

ara::core::String Stats::Heading() const {
    std::ostringstream out;
    out << "[" << id_.ToString();
    for (const auto& [driver, name] : GetEntityName()) {
        out << " " << api::types::DriverTypeName(driver) << ":" << name;
    }
    out << "]\n";
    return out.str();
}

ara::core::String MethodSkeletonStats::Text() const {
    const std::uint64_t toUser = requestsToUser;
    const std::uint64_t e2e = e2eErrorsSeen;
    const std::uint64_t handled = requestsHandled;
    const std::uint64_t controlled = trafficControlled;
    if (toUser == 0 && e2e == 0 && handled == 0 && controlled == 0) {
        return {};
    }
    std::ostringstream out;
    out << Heading() << "requestsHandled=" << handled << "\nrequestsToUser=" << toUser
        << "\ne2eErrorsSeen=" << e2e << "\ntrafficControlled=" << controlled << "\n";
    return out.str();
}

ara::core::String EventSkeletonStats::Text() const {
    if (FromUserCount() == 0 && TrafficControlledCount() == 0) {
        return {};
    }
    std::ostringstream out;
    out << Heading() << "fromUser=" << FromUserCount()
        << "\ntrafficControlled=" << TrafficControlledCount() << "\ntoDds=" << ToDdsCount()
        << "\ntoSomeip=" << ToSomeipCount() << "\n";
    return out.str();
}

DataStatistician::~DataStatistician() {
    StopPeriodicLog();
}

void DataStatistician::Add(const std::shared_ptr<Stats>& stats) {
    if (stats == nullptr) {
        return;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    stats_[stats->Id()] = stats;
}

void DataStatistician::CreateTlogInfoWriter(const EntityIdentifier& id) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (std::none_of(writers_.begin(), writers_.end(), [&id](const EntityIdentifier& known) {
            return !(known < id) && !(id < known);
        })) {
        writers_.push_back(id);
    }
}

bool DataStatistician::HasTlogInfoWriter(const EntityIdentifier& id) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return std::any_of(writers_.begin(), writers_.end(), [&id](const EntityIdentifier& known) {
        return !(known < id) && !(id < known);
    });
}

ara::core::String DataStatistician::Text() const {
    std::vector<std::shared_ptr<Stats>> alive;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& entry : stats_) {
            if (auto stats = entry.second.lock()) {
                alive.push_back(std::move(stats));
            }
        }
    }
    ara::core::String text;
    for (const auto& stats : alive) {
        text += stats->Text();
    }
    return text;
}

void DataStatistician::StartPeriodicLog(std::chrono::milliseconds period) {
    std::lock_guard<std::mutex> lock(periodMutex_);
    if (periodThread_.joinable()) {
        return;
    }
    stopping_ = false;
    periodThread_ = std::thread([this, period] {
        (void)pthread_setname_np(pthread_self(), "vcc_stats");
        auto log = ara::tessel::common::log::Log::GetLog("CM");
        std::unique_lock<std::mutex> wait(periodMutex_);
        while (!periodWake_.wait_for(wait, period, [this] { return stopping_; })) {
            wait.unlock();
            const ara::core::String text = Text();
            if (!text.empty()) {
                log->LogInfo() << text;
            }
            wait.lock();
        }
    });
}

void DataStatistician::StopPeriodicLog() {
    std::thread thread;
    {
        std::lock_guard<std::mutex> lock(periodMutex_);
        stopping_ = true;
        thread = std::move(periodThread_);
    }
    periodWake_.notify_all();
    if (thread.joinable()) {
        thread.join();
    }
}

}  // namespace lumo::vcc::utils::stats
