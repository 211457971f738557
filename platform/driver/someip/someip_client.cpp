// The client side of the SOME/IP driver: finding services, connections, calls and
// subscriptions.

#include <algorithm>
#include <cstring>
#include <sstream>

#include "platform/driver/someip/someip_core.h"

namespace lumo::driver::someip {

using ara::tessel::common::log::LogLimitConfig;
using vcc::driver::CallStatus;
using vcc::driver::MethodReply;
namespace types = vcc::api::types;

namespace {

constexpr std::size_t kUdpBufferSize = std::size_t{64} * 1024;

ara::core::String ServiceText(const RemoteService& remote) {
    std::ostringstream text;
    text << "service 0x" << std::hex << remote.serviceId << std::dec << " instance "
         << remote.instanceId;
    return text.str();
}

void Complete(const vcc::driver::ReplyHandler& handler, CallStatus status,
              const ara::core::String& reason) {
    if (!handler) {
        return;
    }
    MethodReply reply;
    reply.status = status;
    reply.serializeType = static_cast<std::uint8_t>(types::SerializeType::kSomeip);
    reply.reason = reason;
    handler(reply);
}

}  // namespace

void Availability::Set(bool value) {
    {
        std::lock_guard<std::mutex> lock(mutex);
        available = value;
    }
    changed.notify_all();
}

bool Availability::Get() const {
    std::lock_guard<std::mutex> lock(mutex);
    return available;
}

// ---- ClientConnection ----

ClientConnection::ClientConnection(Core& core, tcp::socket socket, tcp::endpoint remote,
                                   std::uint32_t maxMessageSize)
    : Connection(core, std::move(socket), maxMessageSize) {
    remote_ = std::move(remote);
}

void ClientConnection::Connect() {
    auto self = std::static_pointer_cast<ClientConnection>(shared_from_this());
    socket_.async_connect(remote_, [this, self](const asio::error_code& error) {
        if (IsClosed()) {
            return;
        }
        if (error) {
            Close("connect failed: " + error.message());
            return;
        }
        connected_ = true;
        Start();
        core_.OnClientConnected(*this);
    });
}

void ClientConnection::OnMessage(const unsigned char* message, std::size_t size,
                                 const SomeipHeader& header) {
    const auto type = header.messageType;
    if (type == static_cast<std::uint8_t>(MessageType::kResponse) ||
        type == static_cast<std::uint8_t>(MessageType::kError)) {
        core_.OnReply(message, size, header);
    } else if (type == static_cast<std::uint8_t>(MessageType::kNotification)) {
        core_.OnNotification(message, size, header, false);
    }
}

void ClientConnection::OnFrameError(FrameStatus status, const SomeipHeader& header) {
    core_.log->LogWarn("SomeipDriver_ClientUnframeable", LogLimitConfig{})
        << "[SomeipDriver][Connection to server closed: " << FrameStatusName(status)
        << "][server=" << ToString(remote_) << ", length=" << header.length << "]";
}

void ClientConnection::OnClosed(const ara::core::String& reason) {
    core_.OnClientConnectionClosed(*this, reason);
}

// ---- SomeipMethodClient ----

SomeipMethodClient::SomeipMethodClient(std::shared_ptr<Core> core,
                                       std::shared_ptr<RemoteService> remote,
                                       std::uint16_t methodId, bool udp)
    : core_(std::move(core)), remote_(std::move(remote)), methodId_(methodId), udp_(udp) {}

OutMessagePtr SomeipMethodClient::Request(const unsigned char* payload, std::uint64_t size,
                                          MessageType type, std::uint16_t sessionId,
                                          ara::core::String& refusal) const {
    const std::uint64_t limit = udp_ ? remote_->udpMaxSize : remote_->maxMessageSize;
    if (size + kHeaderSize > limit || (size > 0 && payload == nullptr)) {
        std::ostringstream text;
        text << "request of " << size + kHeaderSize << " bytes exceeds the maximum of " << limit;
        refusal = payload == nullptr ? "request without payload" : text.str();
        return nullptr;
    }
    SomeipHeader header;
    header.serviceId = remote_->serviceId;
    header.methodId = methodId_;
    header.clientId = core_->clientId;
    header.sessionId = sessionId;
    header.interfaceVersion = remote_->majorVersion;
    header.messageType = static_cast<std::uint8_t>(type);
    return MakeMessage(header, payload, static_cast<std::size_t>(size));
}

void SomeipMethodClient::Call(const unsigned char* payload, std::uint64_t size,
                              std::chrono::milliseconds timeout,
                              vcc::driver::ReplyHandler handler) {
    QueuedCall call;
    call.udp = udp_;
    const std::uint16_t session = core_->NextSessionId();
    call.requestId = (static_cast<std::uint32_t>(core_->clientId) << 16U) | session;
    ara::core::String refusal;
    call.message = Request(payload, size, MessageType::kRequest, session, refusal);
    PendingCall pending;
    pending.handler = std::move(handler);
    pending.deadline = Clock::now() + timeout;
    pending.serviceId = remote_->serviceId;
    pending.methodId = methodId_;
    // Connected and idle: the request goes out from this thread, and only the reply wakes the
    // I/O thread.
    if (!udp_ && call.message != nullptr) {
        if (auto link = remote_->Link()) {
            pending.connection = link->Serial();
            pending.sent = true;
            if (!core_->InsertPending(call.requestId, pending)) {
                auto refused = std::make_shared<PendingCall>(std::move(pending));
                core_->Post([refused] {
                    Complete(refused->handler, CallStatus::kRefused, "too many calls pending");
                });
                return;
            }
            if (link->TrySendDirect(call.message)) {
                return;
            }
            auto back = core_->TakePending(call.requestId);
            if (!back) {
                return;  // already ended: the connection closed meanwhile
            }
            pending = std::move(*back);
            pending.connection = 0;
            pending.sent = false;
        }
    }
    auto* core = core_.get();
    auto remote = remote_;
    // The handler is called on the I/O thread, also for a refusal found here.
    auto shared = std::make_shared<PendingCall>(std::move(pending));
    const bool posted = core_->Post([core, remote, call, shared, refusal]() mutable {
        if (call.message == nullptr) {
            core->log->LogWarn("SomeipDriver_RequestRefused", LogLimitConfig{})
                << "[SomeipDriver][Call refused: " << refusal << "]";
            Complete(shared->handler, CallStatus::kRefused, refusal);
            return;
        }
        core->Call(remote, std::move(call), std::move(*shared));
    });
    if (!posted) {
        Complete(shared->handler, CallStatus::kNotReachable, "SOME/IP driver stopped");
    }
}

bool SomeipMethodClient::CallNoReturn(const unsigned char* payload, std::uint64_t size) {
    if (!remote_->availability->Get()) {
        return false;
    }
    ara::core::String refusal;
    auto message =
        Request(payload, size, MessageType::kRequestNoReturn, core_->NextSessionId(), refusal);
    if (message == nullptr) {
        core_->log->LogWarn("SomeipDriver_RequestRefused", LogLimitConfig{})
            << "[SomeipDriver][Call refused: " << refusal << "]";
        return false;
    }
    auto* core = core_.get();
    auto remote = remote_;
    const bool udp = udp_;
    return core_->Post([core, remote, message, udp] { core->SendNoReturn(remote, message, udp); });
}

bool SomeipMethodClient::WaitForService(std::chrono::milliseconds timeout) {
    auto* core = core_.get();
    auto remote = remote_;
    if (!core_->Post([core, remote] { core->Want(remote); })) {
        return false;
    }
    auto& availability = *remote_->availability;
    std::unique_lock<std::mutex> lock(availability.mutex);
    return availability.changed.wait_for(lock, timeout, [&] { return availability.available; });
}

void SomeipMethodClient::SetServiceFoundHandler(std::function<void()> handler) {
    const bool watch = static_cast<bool>(handler);
    found_->Set(std::move(handler));
    if (!watch) {
        return;
    }
    auto* core = core_.get();
    auto remote = remote_;
    std::weak_ptr<vcc::driver::ServiceFoundSignal> signal = found_;
    (void)core_->Post([core, remote, signal] { core->WatchFound(remote, signal); });
}

// ---- SomeipEventClient ----

SomeipEventClient::SomeipEventClient(std::shared_ptr<Core> core,
                                     std::shared_ptr<RemoteService> remote, std::uint16_t eventId,
                                     std::uint16_t eventgroupId, bool udp)
    : core_(std::move(core)),
      remote_(std::move(remote)),
      eventId_(eventId),
      eventgroupId_(eventgroupId),
      udp_(udp) {}

SomeipEventClient::~SomeipEventClient() {
    Unsubscribe();
}

bool SomeipEventClient::Subscribe(vcc::driver::SampleHandler handler) {
    std::shared_ptr<EventSubscription> subscription;
    {
        std::lock_guard<std::mutex> lock(handlerMutex_);
        handler_ = std::move(handler);
        if (subscription_) {
            return true;
        }
        subscription = std::make_shared<EventSubscription>();
        subscription->client = weak_from_this();
        subscription->eventId = eventId_;
        subscription->eventgroupId = eventgroupId_;
        subscription->udp = udp_;
        // A TCP and a UDP subscription to one eventgroup are two on the wire; the counter tells
        // their acknowledgements apart.
        subscription->counter = udp_ ? 1 : 0;
        subscription_ = subscription;
    }
    auto* core = core_.get();
    auto remote = remote_;
    const bool added = core_->RunOnIo<bool>([core, remote, subscription] {
        core->AddSubscription(remote, subscription);
        return true;
    });
    if (!added) {
        std::lock_guard<std::mutex> lock(handlerMutex_);
        subscription_.reset();
        handler_ = nullptr;
    }
    return added;
}

void SomeipEventClient::Unsubscribe() {
    std::shared_ptr<EventSubscription> subscription;
    {
        std::lock_guard<std::mutex> lock(handlerMutex_);
        subscription = std::move(subscription_);
        subscription_.reset();
        handler_ = nullptr;
    }
    if (subscription) {
        auto* core = core_.get();
        auto remote = remote_;
        core_->RunOnIo<bool>([core, remote, subscription] {
            core->RemoveSubscription(remote, subscription);
            return true;
        });
    }
    acked_ = false;
}

void SomeipEventClient::Deliver(const unsigned char* payload, std::size_t size) {
    std::lock_guard<std::mutex> lock(handlerMutex_);
    if (handler_) {
        handler_(payload, size);
    }
}

// ---- Core: the client side ----

std::shared_ptr<RemoteService> SomeipDriver::Core::Remote(const types::SomeipEntityConfig& config) {
    const auto key = std::make_pair(config.serviceId, config.instanceId);
    auto it = remotes_.find(key);
    if (it != remotes_.end()) {
        return it->second;
    }
    asio::error_code ec;
    const auto address = asio::ip::make_address(config.sdAddress, ec);
    if (ec) {
        log->LogError() << "[SomeipDriver][Create client failed: bad SD address][service="
                        << config.serviceId << ", address=" << config.sdAddress << "]";
        return nullptr;
    }
    auto remote = std::make_shared<RemoteService>();
    remote->serviceId = config.serviceId;
    remote->instanceId = config.instanceId;
    remote->majorVersion = config.majorVersion;
    remote->sdServer = udp::endpoint(address, config.sdPort);
    remote->maxMessageSize = config.maxMessageSize;
    remote->maxReplySize = config.maxReplySize;
    remote->udpMaxSize = config.udpMaxSize;
    remotes_[key] = remote;
    return remote;
}

void SomeipDriver::Core::Want(const std::shared_ptr<RemoteService>& remote) {
    if (stopped_) {
        return;
    }
    remote->wanted = true;
    if (!remote->available && remote->findDelay.count() == 0) {
        remote->findDelay = options.findDelayMin;
        remote->nextFind = Clock::now() + remote->findDelay;
        WakeBy(remote->nextFind);
        SendFind(*remote);
    }
}

void SomeipDriver::Core::WatchFound(const std::shared_ptr<RemoteService>& remote,
                                    const std::weak_ptr<vcc::driver::ServiceFoundSignal>& signal) {
    auto& signals = remote->foundSignals;
    const auto known = std::any_of(signals.begin(), signals.end(), [&signal](const auto& other) {
        return !other.owner_before(signal) && !signal.owner_before(other);
    });
    if (!known) {
        signals.push_back(signal);
    }
    Want(remote);
    if (auto live = signal.lock(); live != nullptr && remote->available) {
        live->Notify();
    }
}

void SomeipDriver::Core::SendFind(RemoteService& remote) {
    auto sd = ClientSd();
    if (sd == nullptr) {
        return;
    }
    SdMessage message;
    SdEntry entry = MakeEntry(SdEntryType::kFindService, remote.serviceId, remote.instanceId,
                              remote.majorVersion, options.offerTtlSeconds);
    entry.minorVersion = kAnyMinor;
    message.entries.push_back(entry);
    sd->SendTo(message, remote.sdServer);
}

std::shared_ptr<SdSocket> SomeipDriver::Core::ClientSd() {
    if (clientSd_ == nullptr && !stopped_) {
        asio::error_code ec;
        const auto address = asio::ip::make_address(options.clientAddress, ec);
        auto sd = std::make_shared<SdSocket>(*this, udp::endpoint(address, 0), false, "");
        ara::core::String error;
        if (ec || !sd->Open(error)) {
            log->LogError("SomeipDriver_ClientSd", LogLimitConfig{})
                << "[SomeipDriver][Client SD socket failed][" << error << "]";
            return nullptr;
        }
        clientSd_ = sd;
    }
    return clientSd_;
}

bool SomeipDriver::Core::ClientUdp() {
    if (clientUdp_ != nullptr) {
        return true;
    }
    if (stopped_) {
        return false;
    }
    asio::error_code ec;
    const auto address = asio::ip::make_address(options.clientAddress, ec);
    auto socket = std::make_unique<udp::socket>(io);
    if (!ec) {
        socket->open(udp::v4(), ec);
    }
    if (!ec) {
        socket->bind(udp::endpoint(address, 0), ec);
    }
    if (ec) {
        log->LogError("SomeipDriver_ClientUdp", LogLimitConfig{})
            << "[SomeipDriver][Client UDP socket failed][" << ec.message() << "]";
        return false;
    }
    clientUdp_ = std::move(socket);
    clientUdpBuffer_.resize(kUdpBufferSize);
    ReceiveClientUdp();
    return true;
}

void SomeipDriver::Core::ReceiveClientUdp() {
    clientUdp_->async_receive_from(
        asio::buffer(clientUdpBuffer_), clientUdpFrom_,
        [this](const asio::error_code& error, std::size_t count) {
            if (error == asio::error::operation_aborted || stopped_ || !clientUdp_->is_open()) {
                return;
            }
            if (!error) {
                DatagramReader reader(clientUdpBuffer_.data(), count);
                const unsigned char* message = nullptr;
                std::size_t size = 0;
                SomeipHeader header;
                while (reader.Next(message, size, header) == FrameStatus::kMessage) {
                    const auto type = header.messageType;
                    if (type == static_cast<std::uint8_t>(MessageType::kNotification)) {
                        OnNotification(message, size, header, true);
                    } else if (type == static_cast<std::uint8_t>(MessageType::kResponse) ||
                               type == static_cast<std::uint8_t>(MessageType::kError)) {
                        OnReply(message, size, header);
                    }
                }
            }
            ReceiveClientUdp();
        });
}

std::shared_ptr<ClientConnection> SomeipDriver::Core::ConnectionTo(RemoteService& remote) {
    auto it = clientConnections_.find(remote.tcpEndpoint);
    if (it != clientConnections_.end() && !it->second->IsClosed()) {
        return it->second;
    }
    auto connection = std::make_shared<ClientConnection>(*this, tcp::socket(io), remote.tcpEndpoint,
                                                         remote.maxReplySize);
    clientConnections_[remote.tcpEndpoint] = connection;
    connection->Connect();
    return connection;
}

void SomeipDriver::Core::Call(const std::shared_ptr<RemoteService>& remote, QueuedCall call,
                              PendingCall pending) {
    if (stopped_) {
        Complete(pending.handler, CallStatus::kNotReachable, "SOME/IP driver stopped");
        return;
    }
    if (!InsertPending(call.requestId, pending)) {
        Complete(pending.handler, CallStatus::kRefused, "too many calls pending");
        return;
    }
    remote->queued.push_back(std::move(call));
    if (remote->available) {
        Flush(*remote);
    } else {
        Want(remote);
    }
}

void SomeipDriver::Core::Flush(RemoteService& remote) {
    auto queued = std::move(remote.queued);
    remote.queued.clear();
    for (QueuedCall& call : queued) {
        {
            std::lock_guard<std::mutex> lock(pendingMutex_);
            if (pending_.count(call.requestId) == 0) {
                continue;  // timed out while waiting
            }
        }
        if (call.udp) {
            if (!remote.hasUdp || !ClientUdp()) {
                Fail(call.requestId, CallStatus::kNotReachable,
                     ServiceText(remote) + " offers no UDP endpoint");
                continue;
            }
            {
                std::lock_guard<std::mutex> lock(pendingMutex_);
                auto it = pending_.find(call.requestId);
                if (it != pending_.end()) {
                    it->second.sent = true;
                }
            }
            auto message = call.message;
            clientUdp_->async_send_to(asio::buffer(message->data.get(), message->size),
                                      remote.udpEndpoint,
                                      [message](const asio::error_code&, std::size_t) {});
            continue;
        }
        if (!remote.hasTcp) {
            Fail(call.requestId, CallStatus::kNotReachable,
                 ServiceText(remote) + " offers no TCP endpoint");
            continue;
        }
        auto connection = ConnectionTo(remote);
        {
            std::lock_guard<std::mutex> lock(pendingMutex_);
            auto it = pending_.find(call.requestId);
            if (it != pending_.end()) {
                it->second.connection = connection->Serial();
                it->second.sent = true;
            }
        }
        if (!connection->Send(call.message, false)) {
            Fail(call.requestId, CallStatus::kRefused, "send queue to the server full");
        }
    }
}

bool SomeipDriver::Core::SendNoReturn(const std::shared_ptr<RemoteService>& remote,
                                      OutMessagePtr message, bool udp) {
    if (stopped_ || !remote->available) {
        return false;
    }
    if (udp) {
        if (!remote->hasUdp || !ClientUdp()) {
            return false;
        }
        clientUdp_->async_send_to(asio::buffer(message->data.get(), message->size),
                                  remote->udpEndpoint,
                                  [message](const asio::error_code&, std::size_t) {});
        return true;
    }
    return remote->hasTcp && ConnectionTo(*remote)->Send(std::move(message), false);
}

bool SomeipDriver::Core::InsertPending(std::uint32_t requestId, PendingCall& call) {
    std::size_t count = 0;
    bool inserted = false;
    const Clock::time_point deadline = call.deadline;
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        count = pending_.size();
        if (count < options.maxPendingCalls && pending_.count(requestId) == 0) {
            pending_.emplace(requestId, std::move(call));
            inserted = true;
        }
    }
    if (inserted) {
        // After the insertion: a tick that looks at the calls from now on sees this one.
        WakeBy(deadline);
        return true;
    }
    log->LogWarn("SomeipDriver_TooManyCalls", LogLimitConfig{})
        << "[SomeipDriver][Call refused: too many calls pending][pending=" << count << "]";
    return false;
}

std::optional<PendingCall> SomeipDriver::Core::TakePending(std::uint32_t requestId) {
    std::lock_guard<std::mutex> lock(pendingMutex_);
    auto it = pending_.find(requestId);
    if (it == pending_.end()) {
        return std::nullopt;
    }
    PendingCall call = std::move(it->second);
    pending_.erase(it);
    return call;
}

void SomeipDriver::Core::Fail(std::uint32_t requestId, CallStatus status,
                              const ara::core::String& reason) {
    if (auto call = TakePending(requestId)) {
        Complete(call->handler, status, reason);
    }
}

void SomeipDriver::Core::OnReply(const unsigned char* message, std::size_t size,
                                 const SomeipHeader& header) {
    vcc::driver::ReplyHandler handler;
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        auto it = pending_.find(header.RequestId());
        if (it == pending_.end() || it->second.serviceId != header.serviceId ||
            it->second.methodId != header.methodId) {
            return;  // late (timed out) or not ours
        }
        handler = std::move(it->second.handler);
        pending_.erase(it);
    }
    MethodReply reply;
    reply.serializeType = static_cast<std::uint8_t>(types::SerializeType::kSomeip);
    reply.payload = message + kHeaderSize;
    reply.size = size - kHeaderSize;
    const bool isError = header.messageType == static_cast<std::uint8_t>(MessageType::kError);
    const auto code = static_cast<ReturnCode>(header.returnCode);
    if (!isError && code == ReturnCode::kOk) {
        reply.status = CallStatus::kOk;
    } else if (isError && code == ReturnCode::kNotOk && reply.size > 0) {
        reply.status = CallStatus::kOk;
        reply.isErrorReply = true;
    } else {
        reply.status = CallStatus::kRefused;
        reply.reason = ReturnCodeName(header.returnCode);
        reply.payload = nullptr;
        reply.size = 0;
    }
    if (handler) {
        handler(reply);
    }
}

void SomeipDriver::Core::OnNotification(const unsigned char* message, std::size_t size,
                                        const SomeipHeader& header, bool viaUdp) {
    for (auto& [key, remote] : remotes_) {
        if (remote->serviceId != header.serviceId) {
            continue;
        }
        const auto subscriptions = remote->subscriptions;  // a handler may unsubscribe
        for (const auto& subscription : subscriptions) {
            if (subscription->eventId != header.methodId || subscription->udp != viaUdp) {
                continue;
            }
            if (auto client = subscription->client.lock()) {
                client->Deliver(message + kHeaderSize, size - kHeaderSize);
            }
        }
    }
}

void SomeipDriver::Core::OnClientConnected(ClientConnection& connection) {
    for (auto& [key, remote] : remotes_) {
        if (!remote->available || remote->tcpEndpoint != connection.Remote()) {
            continue;
        }
        remote->SetLink(std::static_pointer_cast<ClientConnection>(connection.shared_from_this()));
        for (const auto& subscription : remote->subscriptions) {
            if (!subscription->udp &&
                subscription->state == EventSubscription::State::kWaitConnection) {
                Subscribe(*remote, *subscription);
            }
        }
    }
}

void SomeipDriver::Core::OnClientConnectionClosed(ClientConnection& connection,
                                                  const ara::core::String& reason) {
    auto it = clientConnections_.find(connection.Remote());
    if (it != clientConnections_.end() && it->second.get() == &connection) {
        clientConnections_.erase(it);
    }
    if (stopped_) {
        return;
    }
    const ara::core::String why = "connection to " + ToString(connection.Remote()) + " " +
                                  (connection.Connected() ? "closed: " : "failed: ") + reason;
    log->LogWarn("SomeipDriver_ClientConnection", LogLimitConfig{})
        << "[SomeipDriver][" << why << "]";
    std::vector<std::uint32_t> failed;
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        for (const auto& [id, call] : pending_) {
            if (call.connection == connection.Serial()) {
                failed.push_back(id);
            }
        }
    }
    for (const std::uint32_t id : failed) {
        Fail(id, CallStatus::kNotReachable, why);
    }
    // The service may be gone: find it again before connecting anew.
    for (auto& [key, remote] : remotes_) {
        if (remote->Link().get() == &connection) {
            remote->SetLink(nullptr);
        }
        if (remote->available && remote->hasTcp && remote->tcpEndpoint == connection.Remote()) {
            MakeUnavailable(*remote, why, false);
        }
    }
}

void SomeipDriver::Core::HandleOffer(const udp::endpoint& from, const SdMessage& message,
                                     const SdEntry& entry) {
    for (auto& [key, remote] : remotes_) {
        if (remote->serviceId != entry.serviceId ||
            (remote->instanceId != entry.instanceId && remote->instanceId != kAnyInstance) ||
            remote->majorVersion != entry.majorVersion) {
            continue;
        }
        if (entry.ttl == 0) {
            if (remote->available && remote->offerSource == from) {
                MakeUnavailable(*remote, "offer withdrawn", false);
            }
            continue;
        }
        std::vector<const SdOption*> endpoints;
        if (!EntryOptions(message, entry, endpoints)) {
            continue;
        }
        bool hasTcp = false;
        bool hasUdp = false;
        tcp::endpoint tcpEndpoint;
        udp::endpoint udpEndpoint;
        for (const SdOption* option : endpoints) {
            if (option->type != static_cast<std::uint8_t>(SdOptionType::kIpv4Endpoint)) {
                continue;
            }
            const auto address = AddressFromBytes(option->address);
            if (option->protocol == static_cast<std::uint8_t>(L4Protocol::kTcp) && !hasTcp) {
                hasTcp = true;
                tcpEndpoint = tcp::endpoint(address, option->port);
            } else if (option->protocol == static_cast<std::uint8_t>(L4Protocol::kUdp) && !hasUdp) {
                hasUdp = true;
                udpEndpoint = udp::endpoint(address, option->port);
            }
        }
        if (!hasTcp && !hasUdp) {
            continue;
        }
        if (remote->available && (remote->hasTcp != hasTcp || remote->tcpEndpoint != tcpEndpoint ||
                                  remote->hasUdp != hasUdp || remote->udpEndpoint != udpEndpoint ||
                                  remote->offerSource != from)) {
            MakeUnavailable(*remote, "service moved", true);
        }
        remote->hasTcp = hasTcp;
        remote->tcpEndpoint = tcpEndpoint;
        remote->hasUdp = hasUdp;
        remote->udpEndpoint = udpEndpoint;
        remote->offerSource = from;
        remote->offerForever = entry.ttl == kSdTtlForever;
        remote->offerExpiry = Clock::now() + std::chrono::seconds(entry.ttl);
        if (!remote->offerForever) {
            WakeBy(remote->offerExpiry);
        }
        if (!remote->available) {
            MakeAvailable(*remote);
        }
    }
}

void SomeipDriver::Core::MakeAvailable(RemoteService& remote) {
    remote.available = true;
    remote.findDelay = std::chrono::milliseconds(0);
    if (remote.hasTcp) {
        auto it = clientConnections_.find(remote.tcpEndpoint);
        if (it != clientConnections_.end() && it->second->Connected() && !it->second->IsClosed()) {
            remote.SetLink(it->second);
        }
    }
    remote.availability->Set(true);
    Flush(remote);
    for (const auto& subscription : remote.subscriptions) {
        if (subscription->state == EventSubscription::State::kWaitService) {
            Subscribe(remote, *subscription);
        }
    }
    auto& signals = remote.foundSignals;
    signals.erase(std::remove_if(signals.begin(), signals.end(),
                                 [](const auto& signal) { return signal.expired(); }),
                  signals.end());
    for (const auto& signal : signals) {
        if (auto live = signal.lock()) {
            live->Notify();
        }
    }
}

void SomeipDriver::Core::MakeUnavailable(RemoteService& remote, const ara::core::String& reason,
                                         bool closeLinks) {
    log->LogInfo() << "[SomeipDriver][" << ServiceText(remote) << " unavailable: " << reason << "]";
    remote.available = false;
    remote.SetLink(nullptr);
    remote.availability->Set(false);
    for (const auto& subscription : remote.subscriptions) {
        subscription->state = EventSubscription::State::kWaitService;
        if (auto client = subscription->client.lock()) {
            client->SetAcked(false);
        }
    }
    if (closeLinks && remote.hasTcp) {
        auto it = clientConnections_.find(remote.tcpEndpoint);
        if (it != clientConnections_.end()) {
            it->second->Close(reason);
        }
    }
    if (remote.wanted && !stopped_) {
        remote.findDelay = options.findDelayMin;
        remote.nextFind = Clock::now() + remote.findDelay;
        WakeBy(remote.nextFind);
        SendFind(remote);
    }
}

void SomeipDriver::Core::AddSubscription(const std::shared_ptr<RemoteService>& remote,
                                         const std::shared_ptr<EventSubscription>& subscription) {
    remote->subscriptions.push_back(subscription);
    Want(remote);
    if (remote->available) {
        Subscribe(*remote, *subscription);
    }
}

void SomeipDriver::Core::SendSubscribe(RemoteService& remote, EventSubscription& subscription,
                                       bool stop) {
    auto sd = ClientSd();
    if (sd == nullptr) {
        return;
    }
    SdMessage message;
    SdEntry entry =
        MakeEntry(SdEntryType::kSubscribeEventgroup, remote.serviceId, remote.instanceId,
                  remote.majorVersion, stop ? 0 : options.subscribeTtlSeconds);
    entry.counter = subscription.counter;
    entry.eventgroupId = subscription.eventgroupId;
    if (subscription.udp) {
        asio::error_code ec;
        const auto local = clientUdp_->local_endpoint(ec);
        entry.index1 = AddEndpointOption(message, AddressBytes(local.address()), L4Protocol::kUdp,
                                         local.port());
    } else {
        auto it = clientConnections_.find(remote.tcpEndpoint);
        if (it == clientConnections_.end()) {
            return;
        }
        const auto& local = it->second->Local();
        entry.index1 = AddEndpointOption(message, AddressBytes(local.address()), L4Protocol::kTcp,
                                         local.port());
    }
    entry.count1 = 1;
    message.entries.push_back(entry);
    sd->SendTo(message, remote.offerSource);
}

void SomeipDriver::Core::Subscribe(RemoteService& remote, EventSubscription& subscription) {
    if (stopped_ || !remote.available) {
        subscription.state = EventSubscription::State::kWaitService;
        return;
    }
    if (subscription.udp) {
        if (!remote.hasUdp || !ClientUdp()) {
            log->LogWarn("SomeipDriver_SubscribeUdp", LogLimitConfig{})
                << "[SomeipDriver][Subscription waits: " << ServiceText(remote)
                << " offers no UDP endpoint]";
            subscription.state = EventSubscription::State::kWaitService;
            return;
        }
    } else {
        if (!remote.hasTcp) {
            subscription.state = EventSubscription::State::kWaitService;
            return;
        }
        auto connection = ConnectionTo(remote);
        if (!connection->Connected()) {
            subscription.state = EventSubscription::State::kWaitConnection;
            return;
        }
    }
    SendSubscribe(remote, subscription, false);
    subscription.state = EventSubscription::State::kWaitAck;
    subscription.nextAction = Clock::now() + options.subscribeAckTimeout;
    WakeBy(subscription.nextAction);
}

void SomeipDriver::Core::RemoveSubscription(
    const std::shared_ptr<RemoteService>& remote,
    const std::shared_ptr<EventSubscription>& subscription) {
    auto& list = remote->subscriptions;
    list.erase(std::remove(list.begin(), list.end(), subscription), list.end());
    const bool shared = std::any_of(list.begin(), list.end(), [&](const auto& other) {
        return other->eventgroupId == subscription->eventgroupId && other->udp == subscription->udp;
    });
    if (!shared && remote->available && !stopped_ &&
        (subscription->state == EventSubscription::State::kAcked ||
         subscription->state == EventSubscription::State::kWaitAck)) {
        SendSubscribe(*remote, *subscription, true);
    }
    subscription->state = EventSubscription::State::kWaitService;
}

void SomeipDriver::Core::HandleAck(const SdEntry& entry) {
    const auto now = Clock::now();
    for (auto& [key, remote] : remotes_) {
        if (remote->serviceId != entry.serviceId || remote->instanceId != entry.instanceId) {
            continue;
        }
        for (const auto& subscription : remote->subscriptions) {
            if (subscription->eventgroupId != entry.eventgroupId ||
                subscription->counter != entry.counter ||
                (subscription->state != EventSubscription::State::kWaitAck &&
                 subscription->state != EventSubscription::State::kAcked)) {
                continue;
            }
            auto client = subscription->client.lock();
            if (entry.ttl == 0) {
                log->LogWarn("SomeipDriver_Nack", LogLimitConfig{})
                    << "[SomeipDriver][Subscription refused by the server][" << ServiceText(*remote)
                    << ", eventgroup=" << entry.eventgroupId << "]";
                subscription->state = EventSubscription::State::kWaitAck;
                subscription->nextAction = now + options.subscribeAckTimeout;
                WakeBy(subscription->nextAction);
                if (client) {
                    client->SetAcked(false);
                }
                continue;
            }
            subscription->state = EventSubscription::State::kAcked;
            subscription->nextAction =
                entry.ttl == kSdTtlForever
                    ? Clock::time_point::max()
                    : now + std::chrono::milliseconds(std::uint64_t{entry.ttl} * 1000U / 2U);
            WakeBy(subscription->nextAction);
            if (client) {
                client->SetAcked(true);
            }
        }
    }
}

void SomeipDriver::Core::TickClient(Clock::time_point now, Clock::time_point& next) {
    for (auto& [key, connection] : clientConnections_) {
        connection->CheckTimeouts(now, next);
    }
    std::vector<std::pair<std::uint32_t, bool>> expired;
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        for (const auto& [id, call] : pending_) {
            if (now >= call.deadline) {
                expired.emplace_back(id, call.sent);
            } else {
                next = std::min(next, call.deadline);
            }
        }
    }
    for (const auto& [id, sent] : expired) {
        Fail(id, sent ? CallStatus::kTimeout : CallStatus::kNotReachable,
             sent ? "no reply within the timeout" : "service not found within the timeout");
    }
    for (auto& [key, remote] : remotes_) {
        if (remote->available && !remote->offerForever && now >= remote->offerExpiry) {
            MakeUnavailable(*remote, "offer expired", false);
        }
        if (!remote->available && remote->wanted && now >= remote->nextFind) {
            SendFind(*remote);
            remote->findDelay = std::min(remote->findDelay * 2, options.findDelayMax);
            remote->nextFind = now + remote->findDelay;
        }
        if (!remote->available) {
            if (remote->wanted) {
                next = std::min(next, remote->nextFind);
            }
            continue;
        }
        if (!remote->offerForever) {
            next = std::min(next, remote->offerExpiry);
        }
        for (const auto& subscription : remote->subscriptions) {
            const auto state = subscription->state;
            if (state != EventSubscription::State::kAcked &&
                state != EventSubscription::State::kWaitAck) {
                continue;
            }
            if (now >= subscription->nextAction) {
                if (state == EventSubscription::State::kWaitAck) {
                    if (auto client = subscription->client.lock()) {
                        client->SetAcked(false);
                    }
                }
                Subscribe(*remote, *subscription);
            } else {
                next = std::min(next, subscription->nextAction);
            }
        }
    }
}

void SomeipDriver::Core::StopClient() {
    for (auto& [key, remote] : remotes_) {
        for (const auto& subscription : remote->subscriptions) {
            if (remote->available && (subscription->state == EventSubscription::State::kAcked ||
                                      subscription->state == EventSubscription::State::kWaitAck)) {
                SendSubscribe(*remote, *subscription, true);
            }
        }
        remote->subscriptions.clear();
        remote->queued.clear();
        remote->SetLink(nullptr);
    }
    std::unordered_map<std::uint32_t, PendingCall> pending;
    {
        std::lock_guard<std::mutex> lock(pendingMutex_);
        pending.swap(pending_);
    }
    for (auto& [id, call] : pending) {
        Complete(call.handler, CallStatus::kNotReachable, "SOME/IP driver stopped");
    }
    const auto connections = clientConnections_;
    for (const auto& [key, connection] : connections) {
        connection->Close("driver stopped");
    }
    clientConnections_.clear();
    if (clientSd_) {
        clientSd_->Close();
    }
    if (clientUdp_) {
        asio::error_code ignored;
        clientUdp_->close(ignored);
    }
}

}  // namespace lumo::driver::someip
