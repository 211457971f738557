#ifndef PLATFORM_VCC_DRIVER_DRIVER_H
#define PLATFORM_VCC_DRIVER_DRIVER_H

// The one interface between the binding and a transport. The in-process, SOME/IP and DDS
// drivers implement it; the binding's method and event skeletons (server side) and the client
// proxies (client side) use nothing else of a driver.
//
// Threads. "Assembly" is the thread that builds a service, before the offer; "driver thread" is
// a thread of the driver's own (an I/O loop, a DDS listener); "any" is any thread, possibly
// several at once. No call here may be made while holding a lock that the driver's callbacks
// take. Calls marked "never blocks" do no waiting on the network or on other threads beyond
// short internal locks, so that they may be made with registry locks held.
//
// Buffers. A request payload belongs to the driver; the binding gives it back with ReturnLoan.
// A buffer from AllocateBuffer belongs to the caller until it is handed to ReplyData,
// ReplyError or SendEvent, which take it back whether they succeed or not; every allocated
// buffer is handed back exactly once.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "platform/core/string.h"
#include "platform/vcc/api/types/driver_type.h"
#include "platform/vcc/api/types/entity_info.h"
#include "platform/vcc/api/types/method_msg.h"
#include "platform/vcc/api/types/sample_info.h"

namespace lumo::driver::proloc {
class ProlocMemoryManager;
class ProlocMethodManager;
}  // namespace lumo::driver::proloc

namespace lumo::vcc::utils::stats {
class Stats;
}  // namespace lumo::vcc::utils::stats

namespace lumo::vcc::driver {

using api::types::DriverType;
using api::types::MethodMsg;
using MethodMsgPtr = std::shared_ptr<MethodMsg>;

// The size of a reply; it begins with the length in bytes.
struct SizeRecord {
    std::uint32_t length{0};
    // The caller writes every byte of the buffer (no padding left as it is): it need not be
    // zeroed first.
    bool filled{false};
};

// Called for every request that arrives; on a driver thread. An empty handler detaches.
using ReceiveHandler = std::function<void(const MethodMsgPtr&)>;

// Server side of one method on one driver.
class MethodHandler {
public:
    MethodHandler() = default;
    MethodHandler(const MethodHandler&) = delete;
    MethodHandler& operator=(const MethodHandler&) = delete;
    virtual ~MethodHandler() = default;

    // Sends the reply to the request of msg, routed by msg.replyRoute. Takes the buffer back.
    // Any thread; never blocks. False when the reply could not be sent (peer gone, too large);
    // the driver has logged why.
    virtual bool ReplyData(unsigned char* buffer, const SizeRecord& size, const MethodMsgPtr& msg,
                           bool flag) = 0;
    // The same for an error reply (the binding's 17 bytes); msg.isErrorReply is set.
    virtual bool ReplyError(unsigned char* buffer, std::uint64_t size, const MethodMsgPtr& msg,
                            bool flag) = 0;
    // A buffer of at least size.length bytes for the reply to msg, or null. Any thread; never
    // blocks.
    virtual unsigned char* AllocateBuffer(const SizeRecord& size, const MethodMsg& msg) = 0;
    // Gives a request payload back. Any thread; never blocks; null does nothing.
    virtual void ReturnLoan(const unsigned char* payload) = 0;
    // Installs the handler for arriving requests. Assembly, or any thread to detach; when it
    // returns with an empty handler, no new call of the old handler starts (one that had
    // already taken it may still run: the binding counts its calls in flight).
    virtual void SetReceiveHandler(ReceiveHandler handler) = 0;
    // In-process driver only: the reply store of the method's Output type.
    virtual void SetProlocMemory(std::shared_ptr<lumo::driver::proloc::ProlocMethodManager> memory);
    // Assembly. The statistics of the method, for the driver's own counters.
    virtual void SetStats(std::shared_ptr<utils::stats::Stats> stats) = 0;
    // The driver's counters of this method as text; empty when it has none. Any thread.
    virtual ara::core::String GetStatisticsText(DriverType driver) const = 0;
};

// Server side of one event on one driver.
class EventHandler {
public:
    EventHandler() = default;
    EventHandler(const EventHandler&) = delete;
    EventHandler& operator=(const EventHandler&) = delete;
    virtual ~EventHandler() = default;

    // Sends one sample to every subscriber, and takes the buffer back. Any thread; never
    // blocks: a subscriber that cannot take the sample now loses it. No subscriber is success.
    virtual bool SendEvent(unsigned char* buffer, std::uint64_t size,
                           api::types::internal::SampleInfoImpl& sampleInfo) = 0;
    // A zeroed buffer of size bytes, or null. Any thread; never blocks.
    virtual unsigned char* AllocateBuffer(std::uint64_t size) = 0;
    // 0 DDS rules, 2 SOME/IP rules, 3 in-process (typed, nothing serialized), 4 signal-based.
    virtual std::uint8_t GetSerializeType() const = 0;
    // True when the driver writes DDS samples itself (then a failed send is logged by the
    // binding with its own line).
    virtual bool IsDdsEnabled() const { return false; }
    // True when the driver can take data now (it is started and not stopped).
    virtual bool IsReady() const = 0;
};

// What a call on the client side ends in. The handler gets exactly one of them.
enum class CallStatus : std::uint8_t {
    kOk = 0,            // a reply arrived (it may be an error reply: see isErrorReply)
    kTimeout = 1,       // no reply within the timeout
    kNotReachable = 2,  // the service is not offered, or the connection failed or closed
    kRefused = 3,       // the driver refused the request (too large, malformed)
};

const char* CallStatusName(CallStatus status) noexcept;

// One reply as the client side receives it. payload lives for the duration of the handler
// call only; in-process it is the reply store's key.
struct MethodReply {
    CallStatus status{CallStatus::kTimeout};
    bool isErrorReply{false};
    std::uint8_t serializeType{0};
    const unsigned char* payload{nullptr};
    std::uint64_t size{0};
    ara::core::String reason;  // why, for a status other than kOk, for people to read
};
using ReplyHandler = std::function<void(const MethodReply&)>;

// The handler a client calls each time its service is found. Set and Notify may be called on
// any threads; the handler runs on the notifying thread, one call at a time.
class ServiceFoundSignal {
public:
    // Replaces the handler; an empty one clears it. When Set returns, an earlier handler is not
    // running and will not run again. Never from within the handler.
    void Set(std::function<void()> handler);
    void Notify();

private:
    std::mutex mutex_;  // guards handler_, and is held while it runs
    std::function<void()> handler_;
};

// Client side of one method on one driver.
class MethodClient {
public:
    MethodClient() = default;
    MethodClient(const MethodClient&) = delete;
    MethodClient& operator=(const MethodClient&) = delete;
    virtual ~MethodClient() = default;

    // Sends a request whose payload (copied before the call returns; in-process the request
    // store's key) and calls handler once, on a driver thread, with the reply, a timeout after
    // `timeout`, or a failure. Any thread; never blocks on the network: connecting and waiting
    // for the service count against the timeout. A handler may call Call again.
    virtual void Call(const unsigned char* payload, std::uint64_t size,
                      std::chrono::milliseconds timeout, ReplyHandler handler) = 0;
    // Sends a request that gets no reply. False when it could not be sent.
    virtual bool CallNoReturn(const unsigned char* payload, std::uint64_t size) = 0;
    // Waits up to timeout until the service is found (offered, matched). Blocks; any thread
    // but a driver thread.
    virtual bool WaitForService(std::chrono::milliseconds timeout) = 0;
    // Calls handler each time the service is found: soon after this call when it is available
    // already, and again whenever a restarted server offers it anew, since that server has lost
    // what clients told the old one. Keeps looking for the service while a handler is set. The
    // handler runs on a driver thread (in-process: on the thread that offers the service or sets
    // the handler) and must not block on a call of this driver. Any thread but a driver thread;
    // replaces an earlier handler, an empty one clears it (see ServiceFoundSignal::Set).
    virtual void SetServiceFoundHandler(std::function<void()> handler) = 0;
    virtual std::uint8_t GetSerializeType() const = 0;
    // In-process driver only: the request store of the method's argument list, which gets the
    // request back when the server is done with it.
    virtual void SetProlocMemory(std::shared_ptr<lumo::driver::proloc::ProlocMethodManager> memory);
};

// One sample as a subscriber receives it; payload lives for the duration of the call only.
// In-process it is the sample's address in the event store.
using SampleHandler = std::function<void(const unsigned char* payload, std::uint64_t size)>;

// Client side of one event on one driver.
class EventClient {
public:
    EventClient() = default;
    EventClient(const EventClient&) = delete;
    EventClient& operator=(const EventClient&) = delete;
    virtual ~EventClient() = default;

    // Subscribes; handler is called on a driver thread for each sample. The driver renews the
    // subscription (after a restart of the server too) until Unsubscribe. Any thread but a
    // driver thread; false when the subscription cannot be set up at all.
    virtual bool Subscribe(SampleHandler handler) = 0;
    // When it returns, the handler is not called any more. Any thread but a driver thread.
    virtual void Unsubscribe() = 0;
    // True while the server has acknowledged the subscription (SOME/IP) or matched (DDS).
    virtual bool IsSubscribed() const = 0;
    virtual std::uint8_t GetSerializeType() const = 0;
    // In-process driver only: the event store of the sample type, set before Subscribe.
    virtual void SetProlocMemory(std::shared_ptr<lumo::driver::proloc::ProlocMemoryManager> memory);
};

// One transport. One object per driver type and process, shared by all services.
class Driver {
public:
    Driver() = default;
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;
    virtual ~Driver() = default;

    virtual DriverType Type() const = 0;

    // Server side, at assembly: sockets, topics and readers are created here, so that a port
    // that is taken fails the assembly. Null on failure, with a log line that says why.
    virtual std::shared_ptr<MethodHandler> CreateMethodHandler(
        const api::types::MethodInfo& info) = 0;
    virtual std::shared_ptr<EventHandler> CreateEventHandler(const api::types::EventInfo& info) = 0;
    // Makes the service visible (service discovery) and lets requests through. Assembly thread.
    virtual bool OfferService(std::uint16_t serviceId, const ara::core::String& instanceId) = 0;
    // Withdraws it: new requests are refused, subscribers are told where the protocol can.
    virtual void StopOfferService(std::uint16_t serviceId, const ara::core::String& instanceId) = 0;

    // Client side. Null on failure, with a log line.
    virtual std::shared_ptr<MethodClient> CreateMethodClient(
        const api::types::MethodInfo& info) = 0;
    virtual std::shared_ptr<EventClient> CreateEventClient(const api::types::EventInfo& info) = 0;
};

// The drivers of this process. A program registers the drivers it links before it builds a
// service or a proxy; tests register their own.
class DriverRegistry {
public:
    static void Register(const std::shared_ptr<Driver>& driver);
    static void Unregister(DriverType type);
    // Null when no driver of that type is registered.
    static std::shared_ptr<Driver> Get(DriverType type);
};

}  // namespace lumo::vcc::driver

#endif
