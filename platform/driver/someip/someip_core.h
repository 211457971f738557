#ifndef PLATFORM_DRIVER_SOMEIP_SOMEIP_CORE_H
#define PLATFORM_DRIVER_SOMEIP_SOMEIP_CORE_H

// Inside the SOME/IP driver: the I/O thread and everything it owns. Not a public header.
//
// Every member of Core, and every object below, is touched on the I/O thread only, except where
// a comment says otherwise: the table of calls awaiting replies, a remote service's link and
// availability, and the sending state of a connection, each under its own mutex. Work from
// other threads arrives through Post (never blocks) or RunOnIo (waits for the I/O thread; runs
// at once when called on it). The driver's locks are never held one inside another; only the
// handler locks of method handlers and event clients stay held while the user's handler runs,
// which may then take the others.

#ifndef ASIO_STANDALONE
#define ASIO_STANDALONE
#endif
#ifndef ASIO_NO_DEPRECATED
#define ASIO_NO_DEPRECATED
#endif
#include <asio.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <thread>
#include <unordered_map>
#include <vector>

#include "platform/driver/someip/message_block.h"
#include "platform/driver/someip/sd_message.h"
#include "platform/driver/someip/someip_driver.h"
#include "platform/driver/someip/someip_header.h"
#include "platform/log/log.h"
#include "platform/memory/byte_buffer.h"
#include "platform/vcc/utils/stats.h"

namespace lumo::driver::someip {

using asio::ip::tcp;
using asio::ip::udp;
using Clock = std::chrono::steady_clock;
using Core = SomeipDriver::Core;

// One message ready to go out, header included. Shared when one event goes to many peers.
struct OutMessage {
    Block data;
    std::size_t size{0};
};
using OutMessagePtr = std::shared_ptr<const OutMessage>;

// Buffers handed to the binding keep kHeaderSize bytes in front of the returned pointer, so a
// reply or event gets its header written in place.
// Zeroed unless `filled` says the caller writes every byte.
unsigned char* AllocatePayload(std::uint64_t payloadSize, bool filled = false);
// Takes a buffer of AllocatePayload back and writes the header in front of it.
OutMessagePtr AdoptPayload(unsigned char* payload, SomeipHeader header, std::uint64_t size);
// A message made by copying the payload.
OutMessagePtr MakeMessage(SomeipHeader header, const unsigned char* payload, std::size_t size);

ara::core::String ToString(const tcp::endpoint& endpoint);
ara::core::String ToString(const udp::endpoint& endpoint);
std::array<std::uint8_t, 4> AddressBytes(const asio::ip::address& address);
asio::ip::address_v4 AddressFromBytes(const std::array<std::uint8_t, 4>& bytes);

// One TCP connection, framed; the base of both the server's and the client's connections.
// Reading and the state of the connection belong to the I/O thread. Sending may also start on
// another thread (TrySendDirect), so what sending touches is under sendMutex_.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    // maxRequestsInFlight 0: no limit (the client's side, which only reads replies).
    Connection(Core& core, tcp::socket socket, std::uint32_t maxMessageSize,
               std::size_t maxRequestsInFlight = 0);
    virtual ~Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Starts reading (and writing what was queued before).
    void Start();
    // Queues a message. False when the connection is closed, or when the queue would pass its
    // limit: then the message is dropped, and the connection too when dropWhenFull.
    bool Send(OutMessagePtr message, bool dropWhenFull);
    // Any thread: writes the message at once when nothing else is being written, without
    // waiting; what the socket does not take at once is queued for the I/O thread. False when
    // it could not be sent this way (busy, not connected, closed): use Send on the I/O thread.
    bool TrySendDirect(const OutMessagePtr& message);
    void Close(const ara::core::String& reason);
    // Lets what is queued go out, then closes.
    void CloseAfterSending();
    // Closes a connection that stalls half a message or its sending; brings next forward to
    // when that could next happen.
    void CheckTimeouts(Clock::time_point now, Clock::time_point& next);

    // A request of this connection handed to the binding, and its end (answered or dropped).
    // Reading waits while maxRequestsInFlight are open, so that one peer's pipeline cannot fill
    // the method threads' queue ahead of every other peer: the rest waits in its socket.
    void RequestStarted() noexcept { inFlight_.fetch_add(1); }
    void RequestFinished();

    bool IsClosed() const noexcept { return closed_.load(); }
    const tcp::endpoint& Remote() const noexcept { return remote_; }
    const tcp::endpoint& Local() const noexcept { return local_; }
    std::uint64_t Serial() const noexcept { return serial_; }

protected:
    virtual void OnMessage(const unsigned char* message, std::size_t size,
                           const SomeipHeader& header) = 0;
    // A framing error; the connection closes after this returns.
    virtual void OnFrameError(FrameStatus status, const SomeipHeader& header) = 0;
    virtual void OnClosed(const ara::core::String& reason) = 0;

    tcp::socket socket_;  // closed under sendMutex_: direct sends use its descriptor
    Core& core_;
    tcp::endpoint remote_;
    tcp::endpoint local_;

private:
    void Read();
    // Starts writing the queue; sendMutex_ held.
    void WriteLocked();
    // Drops what is queued; sendMutex_ held and no write in flight.
    void ClearQueueLocked();
    // Hands the framed messages on; false when reading has to wait for requests to finish.
    bool Deliver();
    bool PauseIfBusy();
    void ResumeReading();

    StreamFramer framer_;
    Clock::time_point partialSince_{};
    std::uint64_t serial_{0};
    const std::size_t maxRequestsInFlight_;
    std::atomic<std::size_t> inFlight_{0};
    std::atomic<bool> closed_{false};
    // Set by the I/O thread when it stops reading; whoever clears it resumes.
    std::atomic<bool> readPaused_{false};

    mutable std::mutex sendMutex_;  // guards what follows, and the closing of socket_
    std::deque<OutMessagePtr> queue_;
    std::size_t queuedBytes_{0};
    std::size_t frontSent_{0};  // bytes of the front message a direct send already wrote
    bool writing_{false};
    bool started_{false};
    bool closeAfterWrite_{false};
    Clock::time_point lastWriteProgress_{};
};

// ---- Server side ----

class SomeipMethodHandler;
class SomeipEventHandler;
class ServerEndpoint;
class SdSocket;

struct Subscriber {
    bool tcp{true};
    std::weak_ptr<Connection> connection;  // TCP
    udp::endpoint udpPeer;                 // UDP
    udp::endpoint sdPeer;                  // who subscribed
    Clock::time_point expiry{};
    bool forever{false};
};

// One service instance served here.
struct ServiceEntry {
    std::uint16_t serviceId{0};
    std::uint16_t instanceId{0};
    std::uint8_t majorVersion{1};
    std::uint32_t minorVersion{0};
    std::shared_ptr<ServerEndpoint> endpoint;
    std::shared_ptr<SdSocket> sd;
    std::map<std::uint16_t, std::weak_ptr<SomeipMethodHandler>> methods;
    std::map<std::uint16_t, std::uint16_t> events;                 // event id -> eventgroup
    std::map<std::uint16_t, std::vector<Subscriber>> subscribers;  // by eventgroup
    bool offered{false};
    // Offer schedule: the initial wait, repetitions, then the cyclic phase.
    Clock::time_point nextOffer{};
    std::uint32_t repetition{0};
};

class ServerConnection final : public Connection {
public:
    ServerConnection(Core& core, tcp::socket socket, std::weak_ptr<ServerEndpoint> endpoint,
                     std::uint32_t maxMessageSize);

protected:
    void OnMessage(const unsigned char* message, std::size_t size,
                   const SomeipHeader& header) override;
    void OnFrameError(FrameStatus status, const SomeipHeader& header) override;
    void OnClosed(const ara::core::String& reason) override;

private:
    std::weak_ptr<ServerEndpoint> endpoint_;
};

// Where a reply goes: the connection, or the UDP peer through the endpoint's socket. A TCP
// request counts as in flight on its connection until its route is gone.
struct ReplyRoute {
    ReplyRoute(const std::shared_ptr<Connection>& from, std::weak_ptr<ServerEndpoint> to,
               udp::endpoint peer, const SomeipHeader& header);
    ~ReplyRoute();
    ReplyRoute(const ReplyRoute&) = delete;
    ReplyRoute& operator=(const ReplyRoute&) = delete;
    ReplyRoute(ReplyRoute&&) = delete;
    ReplyRoute& operator=(ReplyRoute&&) = delete;

    std::weak_ptr<Connection> connection;
    std::weak_ptr<ServerEndpoint> endpoint;
    udp::endpoint udpPeer;
    bool tcp{true};
    SomeipHeader request;
};

// The TCP acceptor and UDP socket of one address and port, for the services on it.
class ServerEndpoint final : public std::enable_shared_from_this<ServerEndpoint> {
public:
    ServerEndpoint(Core& core, ara::core::String address, std::uint16_t port,
                   std::uint32_t maxMessageSize, std::uint32_t udpMaxSize);
    // Binds both sockets; false with the reason.
    bool Open(ara::core::String& error);
    void Start();
    void Close();
    void CheckTimeouts(Clock::time_point now, Clock::time_point& next);

    // A whole message that arrived on a connection (connection set) or by UDP.
    void Dispatch(const unsigned char* message, std::size_t size, const SomeipHeader& header,
                  const std::shared_ptr<Connection>& connection, const udp::endpoint& peer);
    // Sends a message back the way the request came. False when the way is gone.
    bool SendBack(const ReplyRoute& route, OutMessagePtr message);
    void SendUdp(const OutMessagePtr& message, const udp::endpoint& peer);
    // A driver-made ERROR answer with no payload.
    void Refuse(const SomeipHeader& request, ReturnCode code,
                const std::shared_ptr<Connection>& connection, const udp::endpoint& peer);
    void Forget(const std::shared_ptr<Connection>& connection);
    std::shared_ptr<Connection> FindConnection(const tcp::endpoint& remote) const;
    // UDP has no back-pressure: a peer with maxRequestsInFlight open requests is refused until
    // one ends, so that it cannot fill the method queues ahead of everybody else.
    bool UdpRequestStarted(const udp::endpoint& peer);
    void UdpRequestFinished(const udp::endpoint& peer);

    std::map<std::uint16_t, std::weak_ptr<ServiceEntry>> services;  // by service id
    tcp::endpoint tcpLocal;
    udp::endpoint udpLocal;
    std::uint32_t udpMaxSize;

private:
    void Accept();
    void ReceiveUdp();

    Core& core_;
    ara::core::String address_;
    std::uint16_t port_;
    std::uint32_t maxMessageSize_;
    tcp::acceptor acceptor_;
    asio::steady_timer acceptRetry_;
    udp::socket udp_;
    lumo::memory::ByteBuffer udpBuffer_;  // not zeroed: its pages are written as datagrams arrive
    udp::endpoint udpFrom_;
    std::set<std::shared_ptr<Connection>> connections_;
    std::mutex udpLoadMutex_;                       // requests end on any thread
    std::map<udp::endpoint, std::size_t> udpOpen_;  // peers with open requests only
};

// ---- Service discovery ----

// One SD socket: the server's on its SD address and port, or the client's on an ephemeral port.
class SdSocket final : public std::enable_shared_from_this<SdSocket> {
public:
    SdSocket(Core& core, udp::endpoint local, bool reuseAddress, const ara::core::String& group);
    bool Open(ara::core::String& error);
    void Close();

    // Unicast to one peer, with that peer's session counter.
    void SendTo(const SdMessage& message, const udp::endpoint& peer);
    // To the multicast group when there is one, and to every known peer.
    void SendToAll(const SdMessage& message);
    // Remembers a peer that cyclic offers go to (bounded: the one heard least recently goes).
    void RememberPeer(const udp::endpoint& peer);
    udp::endpoint Local() const { return local_; }

private:
    struct PeerState {
        std::uint16_t sendSession{0};
        bool sendWrapped{false};
        bool heard{false};
        std::uint16_t lastSession{0};
        bool lastReboot{false};
        Clock::time_point lastHeard{};
        bool known{false};  // gets cyclic offers
    };
    void Receive();
    void Handle(std::size_t count);
    // Forgets the peer heard least recently when the table is full.
    void MakeRoomForPeer();
    std::uint16_t NextSession(std::uint16_t& session, bool& wrapped);
    void SendRaw(const std::vector<unsigned char>& bytes, const udp::endpoint& to);

    Core& core_;
    udp::endpoint local_;
    bool reuse_;
    udp::socket socket_;
    bool hasGroup_{false};
    udp::endpoint group_;
    std::uint16_t groupSession_{0};
    bool groupWrapped_{false};
    std::map<udp::endpoint, PeerState> peers_;
    std::vector<unsigned char> buffer_;
    udp::endpoint from_;
};

// ---- Client side ----

class SomeipMethodClient;
class SomeipEventClient;

// What WaitForService waits on; shared with the client objects (any thread).
struct Availability {
    mutable std::mutex mutex;  // guards available
    std::condition_variable changed;
    bool available{false};
    void Set(bool value);
    bool Get() const;
};

class ClientConnection;

struct PendingCall {
    vcc::driver::ReplyHandler handler;
    Clock::time_point deadline{};
    std::uint16_t serviceId{0};
    std::uint16_t methodId{0};
    std::uint64_t connection{0};  // serial of the TCP connection it went out on
    bool sent{false};             // a late end is a timeout; before, the service was not found
};

// A call waiting for its service to be found and connected.
struct QueuedCall {
    OutMessagePtr message;
    bool udp{false};
    std::uint32_t requestId{0};
};

struct EventSubscription {
    std::weak_ptr<SomeipEventClient> client;
    std::uint16_t eventId{0};
    std::uint16_t eventgroupId{0};
    bool udp{false};
    enum class State : std::uint8_t { kWaitService, kWaitConnection, kWaitAck, kAcked };
    State state{State::kWaitService};
    Clock::time_point nextAction{};  // renewal, or resending an unanswered subscribe
    std::uint8_t counter{0};
};

// A service this process calls or subscribes to, as SD tells about it.
struct RemoteService {
    std::uint16_t serviceId{0};
    std::uint16_t instanceId{0};
    std::uint8_t majorVersion{1};
    udp::endpoint sdServer;  // where FindService goes
    std::uint32_t maxMessageSize{1U << 20U};
    std::uint32_t maxReplySize{32U << 20U};
    std::uint32_t udpMaxSize{1400};
    std::shared_ptr<Availability> availability = std::make_shared<Availability>();

    bool available{false};
    tcp::endpoint tcpEndpoint;
    bool hasTcp{false};
    udp::endpoint udpEndpoint;
    bool hasUdp{false};
    udp::endpoint offerSource;  // the server's SD socket; subscriptions go there
    Clock::time_point offerExpiry{};
    bool offerForever{false};
    Clock::time_point nextFind{};
    std::chrono::milliseconds findDelay{0};
    bool wanted{false};  // somebody waits for it: keep finding

    std::vector<QueuedCall> queued;  // waiting for the offer or the connection

    // The connected TCP connection while the service is available: callers on other threads
    // send on it directly.
    std::shared_ptr<ClientConnection> Link() const {
        std::lock_guard<std::mutex> lock(linkMutex);
        return link;
    }
    void SetLink(std::shared_ptr<ClientConnection> connection) {
        std::lock_guard<std::mutex> lock(linkMutex);
        link = std::move(connection);
    }
    mutable std::mutex linkMutex;  // guards link
    std::shared_ptr<ClientConnection> link;
    std::vector<std::shared_ptr<EventSubscription>> subscriptions;
    std::vector<std::weak_ptr<vcc::driver::ServiceFoundSignal>> foundSignals;
};

class ClientConnection final : public Connection {
public:
    ClientConnection(Core& core, tcp::socket socket, tcp::endpoint remote,
                     std::uint32_t maxMessageSize);
    void Connect();
    bool Connected() const noexcept { return connected_; }

protected:
    void OnMessage(const unsigned char* message, std::size_t size,
                   const SomeipHeader& header) override;
    void OnFrameError(FrameStatus status, const SomeipHeader& header) override;
    void OnClosed(const ara::core::String& reason) override;

private:
    bool connected_{false};
};

// ---- The objects the binding holds ----

class SomeipMethodHandler final : public vcc::driver::MethodHandler {
public:
    SomeipMethodHandler(std::shared_ptr<Core> core, std::shared_ptr<ServiceEntry> service,
                        std::uint16_t methodId);
    ~SomeipMethodHandler() override;

    bool ReplyData(unsigned char* buffer, const vcc::driver::SizeRecord& size,
                   const vcc::driver::MethodMsgPtr& msg, bool flag) override;
    bool ReplyError(unsigned char* buffer, std::uint64_t size, const vcc::driver::MethodMsgPtr& msg,
                    bool flag) override;
    unsigned char* AllocateBuffer(const vcc::driver::SizeRecord& size,
                                  const vcc::api::types::MethodMsg& msg) override;
    void ReturnLoan(const unsigned char* payload) override;
    void SetReceiveHandler(vcc::driver::ReceiveHandler handler) override;
    void SetStats(std::shared_ptr<vcc::utils::stats::Stats> stats) override;
    ara::core::String GetStatisticsText(vcc::driver::DriverType driver) const override;

    // I/O thread: hands one request to the binding. False with the return code to refuse it.
    bool Deliver(const SomeipHeader& header, const unsigned char* payload, std::size_t size,
                 std::shared_ptr<ReplyRoute> route, std::uint64_t peerSerial, ReturnCode& refusal);

private:
    bool Reply(unsigned char* buffer, std::uint64_t size, const vcc::driver::MethodMsgPtr& msg,
               bool error);

    std::shared_ptr<Core> core_;
    std::shared_ptr<ServiceEntry> service_;  // its fields other than state are fixed
    std::uint16_t methodId_;
    std::uint32_t udpMaxSize_;

    std::recursive_mutex handlerMutex_;  // guards handler_; held while it runs
    vcc::driver::ReceiveHandler handler_;
    mutable std::mutex bufferMutex_;          // guards loans_, buffers_ and stats_
    std::set<const unsigned char*> loans_;    // request payloads the binding holds
    std::set<const unsigned char*> buffers_;  // reply buffers it allocated
    std::shared_ptr<vcc::utils::stats::Stats> stats_;

    std::atomic<std::uint64_t> requests_{0};
    std::atomic<std::uint64_t> replies_{0};
    std::atomic<std::uint64_t> errorReplies_{0};
    std::atomic<std::uint64_t> failedReplies_{0};
    std::atomic<std::uint64_t> refused_{0};
};

class SomeipEventHandler final : public vcc::driver::EventHandler {
public:
    SomeipEventHandler(std::shared_ptr<Core> core, std::shared_ptr<ServiceEntry> service,
                       std::uint16_t eventId, std::uint16_t eventgroupId);
    ~SomeipEventHandler() override;

    bool SendEvent(unsigned char* buffer, std::uint64_t size,
                   vcc::api::types::internal::SampleInfoImpl& sampleInfo) override;
    unsigned char* AllocateBuffer(std::uint64_t size) override;
    std::uint8_t GetSerializeType() const override { return 2; }
    bool IsReady() const override;

private:
    std::shared_ptr<Core> core_;
    std::shared_ptr<ServiceEntry> service_;
    std::uint16_t eventId_;
    std::uint16_t eventgroupId_;
    std::uint8_t majorVersion_;
    std::atomic<std::uint16_t> session_{0};
    mutable std::mutex bufferMutex_;  // guards buffers_
    std::set<const unsigned char*> buffers_;
};

class SomeipMethodClient final : public vcc::driver::MethodClient {
public:
    SomeipMethodClient(std::shared_ptr<Core> core, std::shared_ptr<RemoteService> remote,
                       std::uint16_t methodId, bool udp);

    void Call(const unsigned char* payload, std::uint64_t size, std::chrono::milliseconds timeout,
              vcc::driver::ReplyHandler handler) override;
    bool CallNoReturn(const unsigned char* payload, std::uint64_t size) override;
    bool WaitForService(std::chrono::milliseconds timeout) override;
    void SetServiceFoundHandler(std::function<void()> handler) override;
    std::uint8_t GetSerializeType() const override { return 2; }

private:
    OutMessagePtr Request(const unsigned char* payload, std::uint64_t size, MessageType type,
                          std::uint16_t sessionId, ara::core::String& refusal) const;

    std::shared_ptr<Core> core_;
    std::shared_ptr<RemoteService> remote_;  // fixed fields only, outside the I/O thread
    std::uint16_t methodId_;
    bool udp_;
    std::shared_ptr<vcc::driver::ServiceFoundSignal> found_ =
        std::make_shared<vcc::driver::ServiceFoundSignal>();
};

class SomeipEventClient final : public vcc::driver::EventClient,
                                public std::enable_shared_from_this<SomeipEventClient> {
public:
    SomeipEventClient(std::shared_ptr<Core> core, std::shared_ptr<RemoteService> remote,
                      std::uint16_t eventId, std::uint16_t eventgroupId, bool udp);
    ~SomeipEventClient() override;

    bool Subscribe(vcc::driver::SampleHandler handler) override;
    void Unsubscribe() override;
    bool IsSubscribed() const override { return acked_.load(); }
    std::uint8_t GetSerializeType() const override { return 2; }

    // I/O thread.
    void Deliver(const unsigned char* payload, std::size_t size);
    void SetAcked(bool acked) { acked_.store(acked); }

private:
    std::shared_ptr<Core> core_;
    std::shared_ptr<RemoteService> remote_;
    std::uint16_t eventId_;
    std::uint16_t eventgroupId_;
    bool udp_;
    std::mutex handlerMutex_;  // guards handler_ and subscription_; held while handler_ runs
    vcc::driver::SampleHandler handler_;
    std::shared_ptr<EventSubscription> subscription_;
    std::atomic<bool> acked_{false};
};

class SomeipDriver::Core {
public:
    explicit Core(SomeipDriverOptions opts);
    ~Core();
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    // Withdraws offers, closes every socket, joins the thread. Idempotent. Not on the I/O
    // thread: a driver is never destroyed from one of its own callbacks.
    void Stop();

    bool OnIoThread() const noexcept {
        return started_.load(std::memory_order_acquire) &&
               std::this_thread::get_id() == ioThreadId_;
    }
    // Any thread. False (and fn dropped) when the driver has stopped. The I/O thread and its
    // tick start with the first post, so that a process that links the driver but uses no
    // SOME/IP entity has neither.
    bool Post(std::function<void()> fn);
    // Any thread: makes the housekeeping run by deadline, when it would run later. A caller on
    // another thread records its deadline where the housekeeping looks (under a lock that it
    // takes too) before it calls this.
    void WakeBy(Clock::time_point deadline);
    // Runs fn on the I/O thread and waits for it; inline when already there. The value of a
    // default-made R when the driver has stopped.
    template <typename R>
    R RunOnIo(std::function<R()> fn) {
        if (OnIoThread()) {
            return fn();
        }
        auto task = std::make_shared<std::packaged_task<R()>>(std::move(fn));
        std::future<R> result = task->get_future();
        if (!Post([task] { (*task)(); })) {
            return R{};
        }
        // A task dropped by a stopping context breaks its promise.
        try {
            return result.get();
        } catch (const std::future_error&) {
            return R{};
        }
    }

    const SomeipDriverOptions options;
    asio::io_context io;
    std::shared_ptr<ara::tessel::common::log::Log> log;
    std::uint16_t clientId{0};

    std::uint64_t NextSerial() noexcept { return ++serial_; }
    bool Stopped() const noexcept { return stopped_.load(); }
    // Any thread: the next session id, 1..0xFFFF.
    std::uint16_t NextSessionId() noexcept;

    // Server side (I/O thread).
    std::shared_ptr<ServiceEntry> ServiceFor(const vcc::api::types::SomeipEntityConfig& config,
                                             ara::core::String& error);
    std::shared_ptr<SdSocket> ServerSd(const vcc::api::types::SomeipEntityConfig& config,
                                       ara::core::String& error);
    bool Offer(std::uint16_t serviceId, std::uint16_t instanceId);
    void StopOffer(std::uint16_t serviceId, std::uint16_t instanceId);
    void SendEvent(const std::shared_ptr<ServiceEntry>& service, std::uint16_t eventgroupId,
                   const OutMessagePtr& message);
    void DropConnectionSubscribers(const Connection* connection);

    // Client side (I/O thread).
    std::shared_ptr<RemoteService> Remote(const vcc::api::types::SomeipEntityConfig& config);
    void Want(const std::shared_ptr<RemoteService>& remote);
    // Notifies signal now if the service is available, and each time it is found again.
    void WatchFound(const std::shared_ptr<RemoteService>& remote,
                    const std::weak_ptr<vcc::driver::ServiceFoundSignal>& signal);
    void Call(const std::shared_ptr<RemoteService>& remote, QueuedCall call, PendingCall pending);
    bool SendNoReturn(const std::shared_ptr<RemoteService>& remote, OutMessagePtr message,
                      bool udp);
    void AddSubscription(const std::shared_ptr<RemoteService>& remote,
                         const std::shared_ptr<EventSubscription>& subscription);
    void RemoveSubscription(const std::shared_ptr<RemoteService>& remote,
                            const std::shared_ptr<EventSubscription>& subscription);
    void OnReply(const unsigned char* message, std::size_t size, const SomeipHeader& header);
    // Any thread. Moves call in; false (call untouched) when the table is full or the request
    // id is taken.
    bool InsertPending(std::uint32_t requestId, PendingCall& call);
    std::optional<PendingCall> TakePending(std::uint32_t requestId);
    void OnNotification(const unsigned char* message, std::size_t size, const SomeipHeader& header,
                        bool viaUdp);
    void OnClientConnectionClosed(ClientConnection& connection, const ara::core::String& reason);
    void OnClientConnected(ClientConnection& connection);

    // Service discovery (I/O thread).
    void OnSdMessage(SdSocket& socket, const udp::endpoint& from, const SdMessage& message,
                     bool rebooted);

private:
    // Does what is due, then sleeps until the next deadline that it saw.
    void Tick();
    void ScheduleTick(Clock::time_point at);
    void TickServer(Clock::time_point now, Clock::time_point& next);
    void TickClient(Clock::time_point now, Clock::time_point& next);
    void SendOffer(ServiceEntry& service, const udp::endpoint* to, bool stop);
    SdEntry OfferEntry(const ServiceEntry& service, SdMessage& message, bool stop) const;
    void HandleSubscribe(SdSocket& socket, const udp::endpoint& from, const SdMessage& message,
                         const SdEntry& entry, SdMessage& answer);
    void HandleOffer(const udp::endpoint& from, const SdMessage& message, const SdEntry& entry);
    void HandleAck(const SdEntry& entry);
    void MakeAvailable(RemoteService& remote);
    void MakeUnavailable(RemoteService& remote, const ara::core::String& reason, bool closeLinks);
    void SendFind(RemoteService& remote);
    void Flush(RemoteService& remote);
    void Subscribe(RemoteService& remote, EventSubscription& subscription);
    void SendSubscribe(RemoteService& remote, EventSubscription& subscription, bool stop);
    std::shared_ptr<ClientConnection> ConnectionTo(RemoteService& remote);
    std::shared_ptr<SdSocket> ClientSd();
    bool ClientUdp();
    void ReceiveClientUdp();
    void Fail(std::uint32_t requestId, vcc::driver::CallStatus status,
              const ara::core::String& reason);

    void CloseAll();
    // Fails every call, withdraws subscriptions and closes the client's sockets.
    void StopClient();

    void Start();

    std::thread thread_;
    std::thread::id ioThreadId_;  // written before started_ is set
    std::atomic<bool> started_{false};
    std::mutex postMutex_;  // guards stopped_ against a post that races Stop
    std::atomic<bool> stopped_{false};
    std::mutex stopMutex_;  // serializes Start and Stop
    std::optional<asio::executor_work_guard<asio::io_context::executor_type>> workGuard_;
    std::unique_ptr<asio::steady_timer> tickTimer_;
    // When the timer fires, for WakeBy on other threads; the largest value while a tick is
    // looking at the deadlines, so that a deadline recorded meanwhile is never missed.
    std::atomic<Clock::rep> tickAt_{0};
    Clock::time_point tickNext_{Clock::time_point::max()};  // deadlines set while ticking
    std::uint64_t serial_{0};
    std::atomic<std::uint16_t> session_{0};
    bool ticking_{false};  // I/O thread
    std::minstd_rand random_;

    std::map<std::pair<ara::core::String, std::uint16_t>, std::shared_ptr<ServerEndpoint>>
        endpoints_;
    std::map<std::pair<std::uint16_t, std::uint16_t>, std::shared_ptr<ServiceEntry>> services_;
    std::map<std::pair<ara::core::String, std::uint16_t>, std::shared_ptr<SdSocket>> serverSd_;

    std::shared_ptr<SdSocket> clientSd_;
    std::unique_ptr<udp::socket> clientUdp_;
    lumo::memory::ByteBuffer clientUdpBuffer_;  // not zeroed, as the server's
    udp::endpoint clientUdpFrom_;
    std::map<std::pair<std::uint16_t, std::uint16_t>, std::shared_ptr<RemoteService>> remotes_;
    std::map<tcp::endpoint, std::shared_ptr<ClientConnection>> clientConnections_;
    // Calls are registered by the I/O thread, and by callers that send directly.
    std::mutex pendingMutex_;  // guards pending_
    std::unordered_map<std::uint32_t, PendingCall> pending_;
};

}  // namespace lumo::driver::someip

#endif
