#ifndef PLATFORM_DRIVER_DDS_DDS_DRIVER_H
#define PLATFORM_DRIVER_DDS_DDS_DRIVER_H

// The DDS driver over Eclipse Cyclone DDS. Topics, envelope and routing: dds_envelope.h.
//
// Server side: the handlers of one process serve one daemon instance per domain
// (info.dds.targetInstance), announced in the participant's user data. A request waits, for a
// bounded time, until the service is offered and the caller's reply reader is discovered, so
// that neither it nor its reply is lost while discovery completes. After StopOfferService a
// request is answered "not offered" (the caller gets kNotReachable).
//
// Client side: a call waits, within its timeout, until the target daemon's request reader and
// reply writer are both matched, and is sent then. Replies and timeouts reach the handler on a
// Cyclone listener thread or on the driver's thread "wrdn_dds".
//
// Threads. Cyclone calls the handlers' listeners on its receive threads; for a reader in the
// same process, on the writing thread. The receive handler of a method must only queue work
// (replying from inside it would nest the reply's delivery in the listener).
//
// Shutdown. Destroying the driver closes every handler and client it made (open calls end with
// kNotReachable) and deletes its participants.

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/core/string.h"
#include "platform/vcc/driver/driver.h"

namespace lumo::driver::dds {

namespace api = lumo::vcc::api;

class DdsExecutor;
class DdsParticipant;
class DdsMethodHandler;
class DdsEventHandler;
class DdsMethodClient;
class DdsEventClient;

struct DdsDriverConfig {
    // Cyclone DDS configuration (XML fragments or file URIs, comma-separated). Empty: Cyclone
    // reads CYCLONEDDS_URI itself; otherwise CYCLONEDDS_URI, when set, applies after it.
    ara::core::String cycloneConfig;
};

// One daemon found on a domain.
struct DdsDaemonInfo {
    ara::core::String instanceId;
    ara::core::String host;
    std::uint32_t pid{0};
};

class DdsDriver final : public vcc::driver::Driver {
public:
    explicit DdsDriver(DdsDriverConfig config = {});
    ~DdsDriver() override;

    api::types::DriverType Type() const override { return api::types::DriverType::kDds; }

    std::shared_ptr<vcc::driver::MethodHandler> CreateMethodHandler(
        const api::types::MethodInfo& info) override;
    std::shared_ptr<vcc::driver::EventHandler> CreateEventHandler(
        const api::types::EventInfo& info) override;
    // Lets requests through to the handlers of that service instance and lets its events out.
    // True also when the service has no DDS entity.
    bool OfferService(std::uint16_t serviceId, const ara::core::String& instanceId) override;
    void StopOfferService(std::uint16_t serviceId, const ara::core::String& instanceId) override;

    std::shared_ptr<vcc::driver::MethodClient> CreateMethodClient(
        const api::types::MethodInfo& info) override;
    std::shared_ptr<vcc::driver::EventClient> CreateEventClient(
        const api::types::EventInfo& info) override;

    // The wardend daemons on domainId, sorted by instance id, found through the user data of
    // the participants on the domain. Discovery needs a moment after joining: the first call
    // for a domain waits until this process's client participant has existed for
    // discoveryTime. Empty when the domain cannot be joined. Blocks; any thread but a driver
    // thread.
    std::vector<DdsDaemonInfo> ListDaemons(std::uint32_t domainId,
                                           std::chrono::milliseconds discoveryTime);

private:
    // Called with mutex_ held. The server participant names instance; null with a log line.
    std::shared_ptr<DdsParticipant> ParticipantLocked(std::uint32_t domainId, bool server,
                                                      const ara::core::String& instance);
    // Null, with a log line, when the info cannot be served on DDS.
    std::shared_ptr<DdsParticipant> ServerParticipant(const api::types::EntityInfo& info);
    std::shared_ptr<DdsParticipant> ClientParticipant(const api::types::EntityInfo& info);
    void SetOffered(std::uint16_t serviceId, const ara::core::String& instanceId, bool offered);
    // Keeps a weak reference to what was made, for the offer and for shutdown; takes mutex_.
    template <typename T>
    std::shared_ptr<T> Remember(std::vector<std::weak_ptr<T>>& list, std::shared_ptr<T> object);

    const DdsDriverConfig config_;
    const std::shared_ptr<DdsExecutor> executor_;

    std::mutex mutex_;  // guards every member below
    // Keyed by domain id and role (true: server).
    std::map<std::pair<std::uint32_t, bool>, std::shared_ptr<DdsParticipant>> participants_;
    std::map<std::uint32_t, ara::core::String> serverInstances_;
    std::vector<std::weak_ptr<DdsMethodHandler>> methodHandlers_;
    std::vector<std::weak_ptr<DdsEventHandler>> eventHandlers_;
    std::vector<std::weak_ptr<DdsMethodClient>> methodClients_;
    std::vector<std::weak_ptr<DdsEventClient>> eventClients_;
};

}  // namespace lumo::driver::dds

#endif
