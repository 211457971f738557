#include "platform/vcc/driver/driver.h"

#include <map>
#include <mutex>
#include <utility>

#include "platform/log/log.h"

namespace lumo::vcc::driver {

namespace {

struct Registry {
    std::mutex mutex;  // guards drivers
    std::map<DriverType, std::shared_ptr<Driver>> drivers;
};

Registry& TheRegistry() {
    // Drivers log from their own threads until they are destroyed. Statics die in the reverse
    // order of their construction, so the log is built first and outlives the registry at exit.
    static const bool logFirst = ara::tessel::common::log::Log::GetLog("CM") != nullptr;
    static Registry registry;
    (void)logFirst;
    return registry;
}

}  // namespace

// Sinks of the interface, taken by value for the in-process driver that keeps them; the other
// drivers keep nothing.
void MethodHandler::SetProlocMemory(
    // NOLINTNEXTLINE(performance-unnecessary-value-param)
    std::shared_ptr<lumo::driver::proloc::ProlocMethodManager> /*memory*/) {}

void MethodClient::SetProlocMemory(
    // NOLINTNEXTLINE(performance-unnecessary-value-param)
    std::shared_ptr<lumo::driver::proloc::ProlocMethodManager> /*memory*/) {}

void EventClient::SetProlocMemory(
    // NOLINTNEXTLINE(performance-unnecessary-value-param)
    std::shared_ptr<lumo::driver::proloc::ProlocMemoryManager> /*memory*/) {}

void ServiceFoundSignal::Set(std::function<void()> handler) {
    std::lock_guard<std::mutex> lock(mutex_);
    handler_ = std::move(handler);
}

void ServiceFoundSignal::Notify() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (handler_) {
        handler_();
    }
}

const char* CallStatusName(CallStatus status) noexcept {
    switch (status) {
        case CallStatus::kOk:
            return "ok";
        case CallStatus::kTimeout:
            return "timeout";
        case CallStatus::kNotReachable:
            return "not reachable";
        case CallStatus::kRefused:
            return "refused";
    }
    return "unknown";
}

void DriverRegistry::Register(const std::shared_ptr<Driver>& driver) {
    if (driver == nullptr) {
        return;
    }
    auto& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.drivers[driver->Type()] = driver;
}

void DriverRegistry::Unregister(DriverType type) {
    auto& registry = TheRegistry();
    std::shared_ptr<Driver> gone;  // destroyed outside the lock
    std::lock_guard<std::mutex> lock(registry.mutex);
    auto it = registry.drivers.find(type);
    if (it != registry.drivers.end()) {
        gone = std::move(it->second);
        registry.drivers.erase(it);
    }
}

std::shared_ptr<Driver> DriverRegistry::Get(DriverType type) {
    auto& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    auto it = registry.drivers.find(type);
    return it == registry.drivers.end() ? nullptr : it->second;
}

}  // namespace lumo::vcc::driver
